#include "sweep/installed_product.h"

#include "support/console_capture.h"
#include "support/file_contents.h"
#include "support/registry_contents.h"
#include "support/temporary_directory.h"

#include <algorithm>
#include <filesystem>

namespace test {

namespace {

// The files of all machines, which follow one another.
const TemporaryDirectory& Files() {
    static const TemporaryDirectory files;
    return files;
}

constexpr wchar_t ConfigurationFiles[] = L"data\\Tarsel\\Nimbus\\ConfigurationFiles\\";
constexpr const wchar_t* FileNames[] = {L"user.xml", L"oem.xml", L"vx.stg"};

// The files as a run finds them, whatever the one before has left.
void LayOutFiles() {
    if (!std::filesystem::exists(Files() / L"program")) {
        PutFile(Files() / L"program\\Unfinaset.exe", "");
        for (const std::wstring name : FileNames) {
            PutFile(Files() / (L"system\\system32\\drivers\\Tarsel\\ZEFIR\\" + name), "shipped");
        }
        PutFile(Files() / L"data\\Tarsel\\ImageCache\\icons\\game.png", "an image");
    }
    for (const std::wstring name : FileNames) {
        ::DeleteFileW((Files() / (ConfigurationFiles + name)).c_str());
    }
    ::RemoveDirectoryW((Files() / L"data\\Tarsel\\Nimbus\\ActivityLog").c_str());
    PutFile(Files() / (ConfigurationFiles + std::wstring(L"oem.xml")), "old");
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
    adapters_.adapters = {{L"other"}, {L"Tarsel QZ311"}};

    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"FirstRun", DwordValue(1));
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, L"ConfigFileDirectory", TextValue(L"C:\\stale"));
    PutValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Halvane\\SAP\\below", L"value", DwordValue(1));
}

void InstalledProduct::Run(const std::wstring& option, Program program) {
    const wchar_t* const arguments[] = {L"Finaset.exe", option.c_str()};
    log_ = Printed([&] {
        const PrintHook print([this](const std::string& text) { Event("log " + text); });
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

void InstalledProduct::Wait(DWORD milliseconds) {
    longestWait_ = std::max(longestWait_, milliseconds);
    waited_ += milliseconds;
}

}  // namespace test
