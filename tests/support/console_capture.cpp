#include "support/console_capture.h"

#include "driver/console_log.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <array>
#include <cstdio>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace test {

namespace {

constexpr int StandardOutput = 1;

// Redirects standard output to a file while it lives.
class Redirection {
public:
    explicit Redirection(std::FILE* file) : saved_(::_dup(StandardOutput)) {
        std::fflush(stdout);
        if (saved_ < 0 || ::_dup2(::_fileno(file), StandardOutput) != 0) {
            throw std::runtime_error("standard output cannot be redirected");
        }
        PrepareConsole();
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;
    ~Redirection() {
        std::fflush(stdout);
        std::clearerr(stdout);
        ::_dup2(saved_, StandardOutput);
        ::_close(saved_);
        ::_setmode(StandardOutput, _O_TEXT);
    }

private:
    int saved_;
};

// A file that is gone when it is closed. Not std::tmpfile, whose file is in the root of the drive,
// where not every user may write. Needs no memory of the program's: that may have run out.
std::FILE* OpenTemporaryFile() {
    wchar_t directory[MAX_PATH + 1] = {};
    wchar_t path[MAX_PATH] = {};
    return ::GetTempPathW(static_cast<DWORD>(std::size(directory)), directory) != 0 &&
                   ::GetTempFileNameW(directory, L"fin", 0, path) != 0
               ? ::_wfopen(path, L"w+bTD")
               : nullptr;
}

}  // namespace

std::string Printed(const std::function<void()>& action) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(OpenTemporaryFile(), &std::fclose);
    if (file == nullptr) {
        throw std::runtime_error("no temporary file can be made");
    }
    {
        const Redirection redirection(file.get());
        action();
    }
    std::string text;
    std::rewind(file.get());
    std::array<char, 4096> block{};
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), file.get())) {
        text.append(block.data(), count);
    }
    return text;
}

}  // namespace test
