#include "sweep/installed_product.h"

#include "fs/file_table.h"
#include "fs/path_helpers.h"
#include "fs/secured_directories.h"
#include "support/console_capture.h"
#include "support/expected_log.h"
#include "support/file_contents.h"
#include "support/guard_page_heap.h"
#include "support/registry_contents.h"
#include "support/temporary_directory.h"

#include <algorithm>
#include <filesystem>

namespace test {

namespace {

// The files of all machines, which exist one after another.
const TemporaryDirectory& Files() {
    static const TemporaryDirectory files;
    return files;
}

// The files that a run finds, whatever the last one left: the first of those to be replaced exists,
// and the directories that contain something. They are empty: to be certain, the file system below
// Wine would write every copy's contents to the disk, and its deletion would wait for that.
void LayOutFiles() {
    if (!std::filesystem::exists(Files() / L"program")) {
        PutFile(Files() / L"program\\Unfinaset.exe", "");
        for (const FileOperation& file : FileTable) {
            PutFile(ExpandEnvironmentPath(file.sourcePath), "");
        }
        PutFile(Files() / L"data\\Tarsel\\ImageCache\\icons\\game.png", "an image");
    }
    for (const FileOperation& file : FileTable) {
        ::DeleteFileA(DestinationOf(file).c_str());
    }
    if (const auto replaced = std::ranges::find(FileTable, true, &FileOperation::overwrite);
        replaced != FileTable.end()) {
        PutFile(DestinationOf(*replaced), "");
    }
    for (const SecuredDirectory& directory : SecuredDirectoryTable) {
        ::RemoveDirectoryA(TargetOf(directory).c_str());
    }
}

}  // namespace

InstalledProduct::InstalledProduct()
    : programData_(L"ProgramData", Files() / L"data"),
      systemRoot_(L"SystemRoot", Files() / L"system"),
      openToken_([this](HANDLE process, DWORD access, PHANDLE token) {
          Event("OpenProcessToken");
          return openToken_.Forward(process, access, token);
      }),
      start_([this](SC_HANDLE service, DWORD count, LPCWSTR* arguments) {
          Event("StartServiceW");
          return start_.Forward(service, count, arguments);
      }),
      control_([this](SC_HANDLE service, DWORD control, SERVICE_STATUS* status) {
          Event("ControlService");
          return control_.Forward(service, control, status);
      }),
      change_([this](SC_HANDLE service, DWORD type, DWORD startType, DWORD errorControl,
                     LPCWSTR path, LPCWSTR group, LPDWORD tag, LPCWSTR dependencies,
                     LPCWSTR account, LPCWSTR password, LPCWSTR displayName) {
          Event("ChangeServiceConfigW");
          return change_.Forward(service, type, startType, errorControl, path, group, tag,
                                 dependencies, account, password, displayName);
      }),
      createProcess_([this](LPCWSTR application, LPWSTR commandLine, auto* processSecurity,
                            auto* threadSecurity, BOOL inherit, DWORD flags, LPVOID environment,
                            LPCWSTR directory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION info) {
          Event("CreateProcessW " + Narrow(commandLine));
          return createProcess_.Forward(application, commandLine, processSecurity, threadSecurity,
                                        inherit, flags, environment, directory, startup, info);
      }),
      secure_([this](LPWSTR path, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID, PSID, PACL,
                     PACL) -> DWORD {
          Event("SetNamedSecurityInfoW " + Narrow(path));
          return ERROR_SUCCESS;
      }),
      sleep_([this](DWORD milliseconds) {
          Wait(milliseconds);
          sleep_.Forward(milliseconds);
      }),
      wait_([this](HANDLE handle, DWORD milliseconds) {
          Wait(milliseconds == INFINITE ? 0 : milliseconds);  // the thread library's own waits
          return wait_.Forward(handle, milliseconds);
      }) {
    LayOutFiles();
    services_.obeys = true;
    processes_.ownPath = Files() / L"program\\Finaset.exe";
    processes_.running = {{.id = 1000, .path = L"C:\\other.exe"},
                          {.id = 1004, .path = L"C:\\Program Files\\ZEFIR.exe"}};
    for (const std::wstring& description : ProductAdapters()) {
        adapters_.adapters.push_back({description});
    }

    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun", DwordValue(1));
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"ConfigFileDirectory", TextValue(L"C:\\stale"));
    PutValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\SAP\\below", L"value", DwordValue(1));
}

void InstalledProduct::Run(const std::wstring& option, Program program) {
    const wchar_t* const arguments[] = {L"Finaset.exe", option.c_str()};
    log_ = Printed([&] {
        const PrintHook print([this](const std::string& text) { Event("log " + text); });
        const GuardPages with(true);
        exitCode_ = program(option.empty() ? 1 : 2, arguments);
    });
}

std::vector<std::string> InstalledProduct::Leaks() const {
    std::vector<std::string> leaks = ledger_.Findings();
    if (taskService_.References() != 0) {
        leaks.push_back("never released: an object of the task service");
    }
    return leaks;
}

std::vector<std::wstring> ProductAdapters() {
    std::vector<std::wstring> descriptions = {L"other"};
    for (const AdapterPattern& row : HardwarePatternTable) {
        descriptions.push_back(DescriptionFor(row));
    }
    return descriptions;
}

void InstalledProduct::Wait(DWORD milliseconds) {
    longestWait_ = std::max(longestWait_, milliseconds);
    waited_ += milliseconds;
}

}  // namespace test
