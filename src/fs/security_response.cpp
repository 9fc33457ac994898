#include "fs/security_response.h"

#include "driver/console_log.h"
#include "fs/path_helpers.h"
#include "proc/process.h"
#include "shared/owner.h"

#include <windows.h>

namespace {

constexpr int UninstallBannerDashes = 26;
constexpr DWORD UninstallTimeoutMs = 60'000;
constexpr WORD EventCategory = 1;
constexpr DWORD EventId = 16;

}  // namespace

void RespondToSecurityFailure(std::wstring& reason) {
    PrintSectionBanner(UninstallBannerDashes, "Uninstalling Product.....\r\n");
    RunUninstallProgram();
    reason += L" - Uninstalling";
    ConsolePrint("%ls\r\n", reason.c_str());
    ReportEventLogEntry(reason, L"Tarsel Nimbus CInstall");
    reason.clear();
}

bool RunUninstallProgram() {
    const std::wstring directory = GetOwnDirectory();
    if (directory.empty()) {
        return false;
    }
    const std::wstring program = directory + L"Unfinaset.exe";
    if (!PathExists(program)) {
        ConsolePrint("First Run - %ls  DOES NOT EXIST\r\n", program.c_str());
        return false;
    }
    ConsolePrint("First Run - Starting %ls Process\r\n", program.c_str());
    ReportEventLogEntry(L"First Run - Starting" + program + L"Process",  // no blanks on purpose
                        L"Tarsel Nimbus Network Service");
    const bool ended =
        RunProcess(/*token=*/nullptr, program, /*arguments=*/L"", UninstallTimeoutMs);
    ConsolePrint("First Run - Process %ls Ended (%ls)\r\n", program.c_str(),
                 ended ? L"True" : L"False");
    return ended;
}

bool ReportEventLogEntry(const std::wstring& message, const std::wstring& source) {
    const Utils::EventSource log(
        ::RegisterEventSourceW(/*lpUNCServerName=*/nullptr, source.c_str()));
    const wchar_t* text = message.c_str();
    return log && ::ReportEventW(log.Get(), EVENTLOG_SUCCESS, EventCategory, EventId,
                                 /*lpUserSid=*/nullptr, /*wNumStrings=*/1, /*dwDataSize=*/0, &text,
                                 /*lpRawData=*/nullptr) != FALSE;
}
