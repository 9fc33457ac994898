// Reads all files below a directory and does nothing with them: the minimum cost of reading logs.

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>

int main(int /*argumentCount*/, char* arguments[]) {
    constexpr std::size_t BufferSize = 0x100000;
    static std::array<char, BufferSize> buffer;
    std::streamsize bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(arguments[1])) {
        if (entry.is_regular_file()) {
            std::filebuf file;
            file.pubsetbuf(nullptr, 0);
            file.open(entry.path(), std::ios::in | std::ios::binary);
            while (const std::streamsize size = file.sgetn(buffer.data(), buffer.size())) {
                bytes += size;
            }
        }
    }
    std::printf("%lld bytes\n", static_cast<long long>(bytes));
}
