// finaset-verify, but it reads the access control lists of files from the file that its first
// argument names: Wine makes up those that are read. Each line there is a path, a tab, and its list
// in the platform's notation, in ASCII. Other files have only inherited entries.

#include "support/access_lists.h"
#include "verify/verify.h"

#include <filesystem>
#include <fstream>
#include <string>

int wmain(int argumentCount, wchar_t** arguments) {
    test::AccessLists lists;
    std::ifstream file{std::filesystem::path(arguments[1])};
    for (std::string line; std::getline(file, line);) {
        const std::wstring wide(line.begin(), line.end());
        const std::size_t tab = wide.find(L'\t');
        lists.lists[wide.substr(0, tab)] = wide.substr(tab + 1);
    }
    return verify::RunVerify(argumentCount - 1, arguments + 1);
}
