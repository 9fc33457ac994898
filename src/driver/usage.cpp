#include "driver/usage.h"

#include "driver/console_log.h"
#include "fs/path_helpers.h"

#include <cstddef>
#include <cstdlib>
#include <iterator>

namespace {

constexpr std::size_t TitleCapacity = 260;  // with the terminating zero

}  // namespace

std::wstring GetFileTitle(const std::wstring& path) {
    wchar_t title[TitleCapacity] = {};
    const errno_t error = ::_wsplitpath_s(ExpandEnvironmentPath(path).c_str(), nullptr, 0, nullptr,
                                          0, title, std::size(title), nullptr, 0);
    if (error != 0) {
        return {};
    }
    return title;
}

void PrintUsage(const std::wstring& programPath) {
    ConsolePrint("\r\n");
    ConsolePrint("%ls [/<Option>]\r\n", GetFileTitle(programPath).c_str());
    ConsolePrint("       Option = /STOP  or  /CONFIGURE  or  /START  or  /DISABLE\r\n");
    ConsolePrint("\r\n");
    ConsolePrint("       No option means STOP then CONFIGURE then START\r\n");
    ConsolePrint("\r\n");
}
