// Reads a captured log of Finaset and says what in it needs attention.

#include "log_reader/judge.h"
#include "log_reader/read_log.h"
#include "log_reader/writers.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr int NeedsNothing = 0;
constexpr int NeedsAttention = 1;
constexpr int NotRead = 2;

constexpr char Usage[] =
    "usage: finaset-log [--json | --html] [FILE]\n"
    "\n"
    "Reads the log of a run of Finaset from FILE, or from standard input, and prints its sections\n"
    "and items, each with what is to be thought of it.\n"
    "\n"
    "  --json   for a program\n"
    "  --html   as a page for a browser\n"
    "\n"
    "Exit status: 0 nothing needs attention, 1 something does, 2 there is no log to be read.\n";

using Writer = std::string (*)(const reader::Report& report);

std::string ReadAll(std::istream& input) {
    return {std::istreambuf_iterator<char>(input), {}};
}

// Empty if it cannot be read.
std::string ReadInput(const std::filesystem::path& file) {
    if (!file.empty()) {
        std::ifstream input(file, std::ios::binary);
        if (!input) {
            throw reader::NotALog("it cannot be read");
        }
        return ReadAll(input);
    }
#ifdef _WIN32
    ::_setmode(::_fileno(stdin), _O_BINARY);
#endif
    return ReadAll(std::cin);
}

int Fail(const std::string& what) {
    std::cerr << "finaset-log: " << what << '\n';
    return NotRead;
}

int Run(const std::vector<std::filesystem::path>& arguments) {
    Writer write = &reader::WriteText;
    std::filesystem::path file;
    for (const std::filesystem::path& argument : arguments) {
        if (argument == "--help" || argument == "/?") {
            std::cout << Usage;
            return NeedsNothing;
        }
        if (argument == "--json") {
            write = &reader::WriteJson;
        } else if (argument == "--html") {
            write = &reader::WriteHtml;
        } else if (argument.native().starts_with('-') || !file.empty()) {
            return Fail("it takes --json or --html, and one file; see finaset-log --help");
        } else {
            file = argument;
        }
    }
    const std::string name = file.empty() ? "standard input" : file.filename().string();
    try {
        reader::Report report = reader::ReadLog(ReadInput(file));
        reader::Judge(report);
        std::cout << write(report);
        return reader::NeedsAttention(report) ? NeedsAttention : NeedsNothing;
    } catch (const reader::NotALog& reason) {
        return Fail(name + ": " + reason.what());
    }
}

}  // namespace

#ifdef _WIN32
int wmain(int argumentCount, wchar_t* arguments[]) {
#else
int main(int argumentCount, char* arguments[]) {
#endif
    return Run({arguments + 1, arguments + argumentCount});
}
