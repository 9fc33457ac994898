#include "support/console_capture.h"

#include "driver/console_log.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace test {

namespace {

constexpr int StandardOutput = 1;

// An empty file for what is printed. Most of a capture's time went into making one and deleting it,
// so the last one stays for the next capture; it is gone when the program ends.
class CaptureFile {
public:
    CaptureFile() : descriptor_(std::exchange(idle_, None)) {
        descriptor_ = descriptor_ == None ? Open() : descriptor_;
        if (descriptor_ == None) {
            throw std::runtime_error("no temporary file can be made");
        }
    }
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile& operator=(const CaptureFile&) = delete;
    ~CaptureFile() {
        ::_lseek(descriptor_, 0, SEEK_SET);
        if (idle_ == None && ::_chsize(descriptor_, 0) == 0) {
            idle_ = descriptor_;
        } else {
            ::_close(descriptor_);
        }
    }

    [[nodiscard]] int Descriptor() const { return descriptor_; }

    [[nodiscard]] std::string Text() const {
        std::string text;
        std::array<char, 4096> block{};
        ::_lseek(descriptor_, 0, SEEK_SET);
        for (int count = 0; (count = ::_read(descriptor_, block.data(), block.size())) > 0;) {
            text.append(block.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

private:
    static constexpr int None = -1;
    static inline int idle_ = None;

    // Not std::tmpfile, whose file is in the root of the drive, where not every user may write.
    // Needs no memory of the program's: that may have run out.
    static int Open() {
        wchar_t directory[MAX_PATH + 1] = {};
        wchar_t path[MAX_PATH] = {};
        return ::GetTempPathW(static_cast<DWORD>(std::size(directory)), directory) != 0 &&
                       ::GetTempFileNameW(directory, L"fin", 0, path) != 0
                   ? ::_wopen(path,
                              _O_RDWR | _O_BINARY | _O_NOINHERIT | _O_SHORT_LIVED | _O_TEMPORARY)
                   : None;
    }

    int descriptor_;
};

// Redirects standard output to a file while it lives.
class Redirection {
public:
    explicit Redirection(int descriptor) : saved_(::_dup(StandardOutput)) {
        std::fflush(stdout);
        if (saved_ < 0 || ::_dup2(descriptor, StandardOutput) != 0) {
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

}  // namespace

std::string Printed(const std::function<void()>& action) {
    const CaptureFile file;
    {
        const Redirection redirection(file.Descriptor());
        action();
    }
    return file.Text();
}

}  // namespace test
