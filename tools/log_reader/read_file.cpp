#include "log_reader/read_file.h"

#include "log_reader/read_log.h"

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <ios>
#include <streambuf>
#include <string_view>

namespace reader {

namespace {

// A run writes about five thousand bytes. Even, as LogReader requires.
constexpr std::size_t BufferSize = 0x100000;
constexpr std::size_t LongestRun = 0x100000;

std::size_t Fill(std::streambuf& file, char* to, std::size_t size) {
    return static_cast<std::size_t>(file.sgetn(to, static_cast<std::streamsize>(size)));
}

// Twice, since the encoding depends on all of it.
Report ReadFrom(std::streambuf& file, std::vector<char>& buffer) {
    EncodingFinder encoding;
    const std::size_t first = Fill(file, buffer.data(), buffer.size());
    encoding.Take({buffer.data(), first});
    for (std::size_t size = first; size == buffer.size();) {
        size = Fill(file, buffer.data(), buffer.size());
        encoding.Take({buffer.data(), size});
    }
    if (encoding.Empty()) {
        throw NotALog("it is empty");
    }
    LogReader reader(encoding.Found(), LongestRun);
    if (first < buffer.size()) {
        reader.Take({buffer.data(), first}, /*last=*/true);
        return reader.Finish();
    }
    if (file.pubseekpos(0) != std::streampos(0)) {
        throw NotALog("it is too long to be read from a pipe with others: read it alone");
    }
    std::size_t kept = 0;
    for (bool last = false; !last;) {
        const std::size_t size = kept + Fill(file, buffer.data() + kept, buffer.size() - kept);
        last = size < buffer.size();
        std::size_t taken = reader.Take({buffer.data(), size}, last);
        if (taken == 0 && !last) {
            reader.SkipLine();
            taken = size;
        }
        std::copy(buffer.data() + taken, buffer.data() + size, buffer.data());
        kept = size - taken;
    }
    return reader.Finish();
}

}  // namespace

FileReader::FileReader() : buffer_(BufferSize) {}

Report FileReader::Read(const std::filesystem::path& path) {
    std::filebuf file;
    file.pubsetbuf(nullptr, 0);
    if (file.open(path, std::ios::in | std::ios::binary) == nullptr) {
        throw NotALog("it cannot be read");
    }
    try {
        return ReadFrom(file, buffer_);
    } catch (const std::ios_base::failure&) {
        throw NotALog("it cannot be read");
    }
}

}  // namespace reader
