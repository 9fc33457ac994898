#pragma once

#include "support/import_hook.h"

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <sddl.h>
#include <tlhelp32.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

// The hooked function's attributes do not belong in the hook's type.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace test {

// While it lives, records every handle that this program opens or releases, for each kind of handle
// that the product and its companions use. Ledgers nest. The test programs keep one around every
// test.
class HandleLedger {
public:
    // How many handles were opened so far.
    [[nodiscard]] std::size_t Opened() const { return opened_; }

    // The errors: each handle that is still open, by the function that opened it, and each release
    // that the platform refused (such as a second one).
    [[nodiscard]] std::vector<std::string> Findings() const;

private:
    enum class Kind {
        RegistryKey,
        Service,
        Kernel,
        Search,
        EventSource,
        Library,
        Com,
        LocalMemory,
        String
    };

    void Enter(Kind kind, void* handle, const char* opener);
    void Strike(Kind kind, void* handle, bool released, const char* releaser);

    // COM has no handle of its own: initialisations are numbered.
    std::size_t comInitialisations_ = 0;
    std::size_t opened_ = 0;
    std::map<std::pair<Kind, void*>, std::vector<const char*>> open_;
    std::vector<std::string> refused_;

    ImportHook<&::RegOpenKeyExW> openKey_;
    ImportHook<&::RegCreateKeyExW> createKey_;
    ImportHook<&::RegCloseKey> closeKey_;
    ImportHook<&::OpenSCManagerW> openManager_;
    ImportHook<&::OpenServiceW> openService_;
    ImportHook<&::CloseServiceHandle> closeService_;
    ImportHook<&::OpenProcess> openProcess_;
    ImportHook<&::OpenProcessToken> openToken_;
    ImportHook<&::CreateProcessW> createProcess_;
    ImportHook<&::CreateProcessAsUserW> createProcessAsUser_;
    ImportHook<&::CreateFileW> createFile_;
    ImportHook<&::CloseHandle> closeHandle_;
    ImportHook<&::FindFirstFileW> findFirst_;
    ImportHook<&::FindFirstFileExW> findFirstEx_;
    ImportHook<&::CreateToolhelp32Snapshot> snapshot_;
    ImportHook<&::FindClose> findClose_;
    ImportHook<&::RegisterEventSourceW> registerSource_;
    ImportHook<&::DeregisterEventSource> deregisterSource_;
    ImportHook<&::LoadLibraryExW> loadLibrary_;
    ImportHook<&::FreeLibrary> freeLibrary_;
    ImportHook<&::CoInitializeEx> initialiseCom_;
    ImportHook<&::CoUninitialize> uninitialiseCom_;
    ImportHook<&::FormatMessageW> formatMessage_;
    ImportHook<&::ConvertSidToStringSidW> convertSid_;
    ImportHook<&::ConvertSecurityDescriptorToStringSecurityDescriptorW> convertDescriptor_;
    ImportHook<&::LocalFree> localFree_;
    ImportHook<&::SysAllocString> allocateString_;
    ImportHook<&::SysFreeString> freeString_;

public:
    HandleLedger();
};

}  // namespace test
