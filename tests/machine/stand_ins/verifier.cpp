// finaset-verify, but the access control lists of files are not those that Wine makes up. They are
// in the file that the first argument names: each line is a path, a tab, and its list in the
// platform's notation, in ASCII; other files have only inherited entries. If the first argument is
// an option, or there is none, they are the requested ones; on Windows they are then the real ones.

#include "fs/secured_directories.h"
#include "support/access_lists.h"
#include "support/expected_log.h"
#include "support/on_wine.h"
#include "verify/verify.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

int wmain(int argumentCount, wchar_t** arguments) {
    const bool listsGiven = argumentCount > 1 && arguments[1][0] != L'/' && arguments[1][0] != L'-';
    std::optional<test::AccessLists> lists;
    if (listsGiven) {
        lists.emplace();
        std::ifstream file{std::filesystem::path(arguments[1])};
        for (std::string line; std::getline(file, line);) {
            const std::wstring wide(line.begin(), line.end());
            const std::size_t tab = wide.find(L'\t');
            lists->lists[wide.substr(0, tab)] = wide.substr(tab + 1);
        }
    } else if (test::OnWine()) {
        lists.emplace();
        for (const auto& [path, list] : test::RequestedLists()) {
            lists->lists[path] = {list.begin(), list.end()};
        }
    }
    const int used = listsGiven ? 1 : 0;
    return verify::RunVerify(argumentCount - used, arguments + used);
}
