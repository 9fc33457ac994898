#include "support/handle_ledger.h"

#include "shared/owner.h"
#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/fake_processes.h"
#include "support/fake_services.h"
#include "support/installed_service.h"

#include <windows.h>

#include <objbase.h>
#include <process.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
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
    std::size_t opened = 1;  // including those needed to open one
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

void* FindWindowsDirectoryEx() {
    WIN32_FIND_DATAW entry = {};
    return ::FindFirstFileExW(L"C:\\windows", FindExInfoBasic, &entry, FindExSearchNameMatch,
                              nullptr, 0);
}

void* TextOfTrustee() {
    SID everyone = {SID_REVISION, 1, SECURITY_WORLD_SID_AUTHORITY, {SECURITY_WORLD_RID}};
    wchar_t* text = nullptr;
    ::ConvertSidToStringSidW(&everyone, &text);
    return text;
}

void* TextOfDescriptor() {
    SECURITY_DESCRIPTOR descriptor = {};
    ::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    ::SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    wchar_t* text = nullptr;
    ::ConvertSecurityDescriptorToStringSecurityDescriptorW(
        &descriptor, SDDL_REVISION_1, OWNER_SECURITY_INFORMATION, &text, nullptr);
    return text;
}

void FreeMemory(void* memory) {
    ::LocalFree(memory);
}

void* OpenManager() {
    return ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
}

// A service that every system has.
void* OpenSystemService() {
    const Utils::ServiceHandle manager(static_cast<SC_HANDLE>(OpenManager()));
    return ::OpenServiceW(manager.Get(), L"RpcSs", SERVICE_QUERY_STATUS);
}

// Starts a program that ends at once.
PROCESS_INFORMATION StartProcess(bool asUser) {
    wchar_t commandLine[] = L"C:\\windows\\system32\\cmd.exe /c exit";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    if (!asUser) {
        ::CreateProcessW(nullptr, commandLine, nullptr, nullptr, FALSE, DETACHED_PROCESS, nullptr,
                         nullptr, &startup, &info);
        return info;
    }
    HANDLE token = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_ALL_ACCESS, &token);
    const Utils::KernelHandle owner(token);
    ::CreateProcessAsUserW(token, nullptr, commandLine, nullptr, nullptr, FALSE, DETACHED_PROCESS,
                           nullptr, nullptr, &startup, &info);
    return info;
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
    EXPECT_EQ(ledger.Opened(), kind.opened);
    EXPECT_THAT(ledger.Findings(), ElementsAre("never released: handle of " + kind.opener));
    kind.release(handle);
    EXPECT_THAT(ledger.Findings(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, HandleLedgerKinds,
    testing::Values(LedgerKind{"RegOpenKeyExW", &OpenUserKey, &CloseKey},
                    LedgerKind{"RegCreateKeyExW", &CreateUserKey, &CloseKey},
                    LedgerKind{"OpenSCManagerW", &OpenManager, &CloseService},
                    LedgerKind{"OpenServiceW", &OpenSystemService, &CloseService, 2},
                    LedgerKind{"OpenProcess", &OpenOwnProcess, &CloseKernelHandle},
                    LedgerKind{"OpenProcessToken", &OpenOwnToken, &CloseKernelHandle},
                    LedgerKind{"CreateFileW", &OpenOwnProgram, &CloseKernelHandle},
                    LedgerKind{"FindFirstFileW", &FindWindowsDirectory,
                               [](void* search) { ::FindClose(search); }},
                    LedgerKind{"FindFirstFileExW", &FindWindowsDirectoryEx,
                               [](void* search) { ::FindClose(search); }},
                    LedgerKind{"CreateToolhelp32Snapshot",
                               [] { return ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0); },
                               &CloseKernelHandle},
                    LedgerKind{"ConvertSidToStringSidW", &TextOfTrustee, &FreeMemory},
                    LedgerKind{"ConvertSecurityDescriptorToStringSecurityDescriptorW",
                               &TextOfDescriptor, &FreeMemory},
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

TEST(HandleLedger, NamesTheProcessAndTheThreadOfAProgramThatIsStarted) {
    for (const bool asUser : {false, true}) {
        HandleLedger ledger;
        const PROCESS_INFORMATION info = StartProcess(asUser);
        if (asUser && info.hProcess == nullptr && ::GetLastError() == ERROR_PRIVILEGE_NOT_HELD) {
            GTEST_SKIP() << "starting a program with a token takes a right of Local System's";
        }
        const std::string finding = std::string("never released: handle of ") +
                                    (asUser ? "CreateProcessAsUserW" : "CreateProcessW");
        EXPECT_THAT(ledger.Findings(), ElementsAre(finding, finding));
        ::CloseHandle(info.hThread);
        EXPECT_THAT(ledger.Findings(), ElementsAre(finding));
        ::CloseHandle(info.hProcess);
        EXPECT_THAT(ledger.Findings(), IsEmpty());
    }
}

// In a process of its own; the variable tells it to leak.
TEST(HandleLedger, FailsATestThatLeavesAHandleOpen) {
    constexpr wchar_t Leak[] = L"FINASET_TEST_LEAKS";
    if (::GetEnvironmentVariableW(Leak, nullptr, 0) != 0) {
        OpenOwnProcess();
        return;
    }
    const test::EnvironmentVariable leak(Leak, L"1");
    const std::wstring program = test::BesideThisProgram(L"unit_tests.exe");
    const std::wstring quoted = L"\"" + program + L"\"";
    std::intptr_t exitCode = 0;
    const std::string output = test::Printed([&] {
        exitCode =
            ::_wspawnl(_P_WAIT, program.c_str(), quoted.c_str(),
                       L"--gtest_filter=HandleLedger.FailsATestThatLeavesAHandleOpen", nullptr);
    });
    EXPECT_EQ(exitCode, 1) << output;
    EXPECT_THAT(output, testing::HasSubstr("never released: handle of OpenProcess\""));
}

TEST(FakeServices, FailATestThatLeavesAHandleOpenOrClosesOneTwice) {
    EXPECT_NONFATAL_FAILURE(
        {
            const test::FakeServices fake;
            ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
            EXPECT_FALSE(fake.AllClosed());
        },
        "never closed: manager 1");
    EXPECT_NONFATAL_FAILURE(
        {
            const test::FakeServices fake;
            const SC_HANDLE manager = ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
            ::CloseServiceHandle(manager);
            EXPECT_TRUE(fake.AllClosed());
            ::CloseServiceHandle(manager);
        },
        "a handle that is not open is closed");
}

TEST(FakeProcesses, FailATestThatLeavesAHandleOpen) {
    EXPECT_NONFATAL_FAILURE(
        {
            test::FakeProcesses fake;
            fake.running.emplace_back().id = 4;
            ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, 4);
        },
        "never closed: process 4");
}

}  // namespace
