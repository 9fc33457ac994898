#include "support/handle_ledger.h"

#include <windows.h>

#include <objbase.h>

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

using test::HandleLedger;
using testing::ElementsAre;
using testing::IsEmpty;

HANDLE OpenOwnProcess() {
    return ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, ::GetCurrentProcessId());
}

HANDLE OpenOwnToken() {
    HANDLE token = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token);
    return token;
}

HKEY OpenUserKey() {
    HKEY key = nullptr;
    ::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &key);
    return key;
}

HKEY CreateUserKey() {
    HKEY key = nullptr;
    ::RegCreateKeyExW(HKEY_CURRENT_USER, L"Software", 0, nullptr, 0, KEY_READ, nullptr, &key,
                      nullptr);
    return key;
}

// A kind of handle: the function that opens it, and how a test opens and releases one.
struct LedgerKind {
    std::string opener;
    std::function<void*()> open;
    std::function<void(void*)> release;
};

void PrintTo(const LedgerKind& kind, std::ostream* out) {
    *out << kind.opener;
}

void CloseKey(void* key) {
    ::RegCloseKey(static_cast<HKEY>(key));
}

void CloseService(void* handle) {
    ::CloseServiceHandle(static_cast<SC_HANDLE>(handle));
}

void CloseKernelHandle(void* handle) {
    ::CloseHandle(handle);
}

void* OpenOwnProgram() {
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    return ::CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
}

void* FindWindowsDirectory() {
    WIN32_FIND_DATAW entry = {};
    return ::FindFirstFileW(L"C:\\windows", &entry);
}

void* OpenManager() {
    return ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
}

TEST(HandleLedger, NamesAReleaseThatIsRefused) {
    test::ImportHook<&::CloseHandle> refuse([](HANDLE) { return FALSE; });
    const HandleLedger ledger;
    ::CloseHandle(nullptr);
    EXPECT_THAT(ledger.Findings(), ElementsAre("CloseHandle refused"));
}

class HandleLedgerKinds : public testing::TestWithParam<LedgerKind> {};

TEST_P(HandleLedgerKinds, NamesWhatIsOpenAndForgetsWhatIsReleased) {
    const LedgerKind& kind = GetParam();
    HandleLedger ledger;
    void* handle = kind.open();
    EXPECT_EQ(ledger.Opened(), 1U);
    EXPECT_THAT(ledger.Findings(), ElementsAre("never released: handle of " + kind.opener));
    kind.release(handle);
    EXPECT_THAT(ledger.Findings(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, HandleLedgerKinds,
    testing::Values(LedgerKind{"RegOpenKeyExW", &OpenUserKey, &CloseKey},
                    LedgerKind{"RegCreateKeyExW", &CreateUserKey, &CloseKey},
                    LedgerKind{"OpenSCManagerW", &OpenManager, &CloseService},
                    LedgerKind{"OpenProcess", &OpenOwnProcess, &CloseKernelHandle},
                    LedgerKind{"OpenProcessToken", &OpenOwnToken, &CloseKernelHandle},
                    LedgerKind{"CreateFileW", &OpenOwnProgram, &CloseKernelHandle},
                    LedgerKind{"FindFirstFileW", &FindWindowsDirectory,
                               [](void* search) { ::FindClose(search); }},
                    LedgerKind{"RegisterEventSourceW",
                               [] { return ::RegisterEventSourceW(nullptr, L"Finaset test"); },
                               [](void* source) { ::DeregisterEventSource(source); }},
                    LedgerKind{"LoadLibraryExW",
                               [] { return ::LoadLibraryExW(L"version.dll", nullptr, 0); },
                               [](void* library) { ::FreeLibrary(static_cast<HMODULE>(library)); }},
                    LedgerKind{"CoInitializeEx",
                               [] {
                                   ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
                                   return nullptr;
                               },
                               [](void*) { ::CoUninitialize(); }}));

}  // namespace
