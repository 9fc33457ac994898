#include "support/import_hook.h"
#include "support/installed_service.h"
#include "tools/verify_rows.h"
#include "verify/services.h"

#include <windows.h>

#include <tlhelp32.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using test::Denied;
using test::Deny;
using test::Shown;
using testing::ElementsAre;
using testing::IsEmpty;
using verify::CheckDisabled;
using verify::CheckStarted;
using verify::CheckStopped;

constexpr wchar_t Name[] = L"Finaset verified service";
const std::vector<ProcessEntry> TheService = {{EntryKind::Service, Name, L""}};

// The one row of the service in each step.
using Rows = std::vector<std::wstring>;

Rows Stop(const std::wstring& verdict, const std::wstring& found) {
    return {verdict + L" | stop | " + Name + L" | not running | " + found};
}

Rows Start(const std::wstring& verdict, const std::wstring& found) {
    return {verdict + L" | start | " + Name + L" | running | " + found};
}

Rows Disable(const std::wstring& verdict, const std::wstring& found) {
    return {verdict + L" | disable | " + Name + L" | disabled | " + found};
}

TEST(VerifiedServices, ThatAreToBeStoppedAreNotRunning) {
    const test::InstalledService service(Name);
    EXPECT_EQ(Shown(CheckStopped(TheService, {})), Stop(L"ok", L"stopped"));
    service.Start();
    EXPECT_EQ(Shown(CheckStopped(TheService, {})), Stop(L"DIFFERS", L"running"));
}

TEST(VerifiedServices, ThatAreToBeStoppedNeedNotBeInstalled) {
    EXPECT_EQ(Shown(CheckStopped(TheService, {})), Stop(L"ok", L"not installed"));
}

TEST(VerifiedServices, ThatAreStartedLaterAreNotAskedForWhenStopped) {
    EXPECT_THAT(CheckStopped(TheService, TheService), IsEmpty());
    const std::vector<ProcessEntry> others = {{EntryKind::LaunchApp, Name, L""},
                                              {EntryKind::Service, L"another", L""}};
    EXPECT_EQ(CheckStopped(TheService, others).size(), 1U);
}

TEST(VerifiedServices, ThatAreToBeStartedAreRunning) {
    const test::InstalledService service(Name, L"--start-pending=300");
    EXPECT_EQ(Shown(CheckStarted(TheService)), Start(L"DIFFERS", L"stopped"));
    service.Start();
    EXPECT_EQ(Shown(CheckStarted(TheService)), Start(L"ok", L"running"));
}

TEST(VerifiedServices, ThatAreToBeStartedMustBeInstalled) {
    EXPECT_EQ(Shown(CheckStarted(TheService)), Start(L"DIFFERS", L"not installed"));
}

TEST(VerifiedServices, InAStateWithoutANameHaveItsNumber) {
    const test::InstalledService service(Name);
    const test::ImportHook<&::QueryServiceStatus> hook([](SC_HANDLE, SERVICE_STATUS* status) {
        status->dwCurrentState = 8;
        return TRUE;
    });
    EXPECT_EQ(Shown(CheckStarted(TheService)), Start(L"DIFFERS", L"8"));
}

TEST(VerifiedServices, ThatAreToBeDisabledAre) {
    {
        const test::InstalledService service(Name, L"", SERVICE_AUTO_START);
        EXPECT_EQ(Shown(CheckDisabled(TheService)), Disable(L"DIFFERS", L"automatic"));
    }
    const test::InstalledService service(Name, L"", SERVICE_DISABLED);
    EXPECT_EQ(Shown(CheckDisabled(TheService)), Disable(L"ok", L"disabled"));
}

TEST(VerifiedServices, ThatAreToBeDisabledMustBeInstalled) {
    EXPECT_EQ(Shown(CheckDisabled(TheService)), Disable(L"DIFFERS", L"not installed"));
}

TEST(VerifiedServices, AreUnknownWithoutAServiceManager) {
    const test::ImportHook<&::OpenSCManagerW> hook([](auto...) { return Deny(nullptr); });
    EXPECT_EQ(Shown(CheckStarted(TheService)),
              Start(L"UNKNOWN", L"the service manager: " + Denied));
}

TEST(VerifiedServices, AreUnknownIfTheyMayNotBeOpened) {
    const test::ImportHook<&::OpenServiceW> hook([](auto...) { return Deny(nullptr); });
    EXPECT_EQ(Shown(CheckStopped(TheService, {})), Stop(L"UNKNOWN", Denied));
}

TEST(VerifiedServices, AreUnknownIfTheyDoNotAnswer) {
    const test::InstalledService service(Name);
    const test::ImportHook<&::QueryServiceStatus> state([](auto...) { return Deny(FALSE); });
    const test::ImportHook<&::QueryServiceConfigW> configuration(
        [](auto...) { return Deny(FALSE); });
    EXPECT_EQ(Shown(CheckStarted(TheService)), Start(L"UNKNOWN", Denied));
    EXPECT_EQ(Shown(CheckDisabled(TheService)), Disable(L"UNKNOWN", Denied));
}

TEST(VerifiedServices, AreOpenedWithTheRightToBeAskedAndNoOther) {
    std::vector<DWORD> rights;
    test::ImportHook<&::OpenSCManagerW> manager(
        [&](LPCWSTR machine, LPCWSTR database, DWORD access) {
            rights.push_back(access);
            return manager.Forward(machine, database, access);
        });
    test::ImportHook<&::OpenServiceW> service([&](SC_HANDLE from, LPCWSTR name, DWORD access) {
        rights.push_back(access);
        return service.Forward(from, name, access);
    });
    CheckStarted(TheService);
    CheckDisabled(TheService);
    EXPECT_THAT(rights, ElementsAre(SC_MANAGER_CONNECT, SERVICE_QUERY_STATUS, SC_MANAGER_CONNECT,
                                    SERVICE_QUERY_CONFIG));
}

TEST(VerifiedServices, WithoutANameAreSkipped) {
    const std::vector<ProcessEntry> nameless = {{EntryKind::Service, L"", L""},
                                                {EntryKind::QuitApp, L"", L""},
                                                {EntryKind::LaunchApp, L"", L""}};
    EXPECT_THAT(CheckStopped(nameless, {}), IsEmpty());
    EXPECT_THAT(CheckStarted(nameless), IsEmpty());
    EXPECT_THAT(CheckDisabled(nameless), IsEmpty());
}

TEST(VerifiedApplications, AreSkippedByTheStepsThatHaveNoUseForThem) {
    EXPECT_THAT(CheckStopped(std::vector<ProcessEntry>{{EntryKind::LaunchApp, L"a", L""}}, {}),
                IsEmpty());
    EXPECT_THAT(CheckStarted(std::vector<ProcessEntry>{{EntryKind::QuitApp, L"a", L""}}),
                IsEmpty());
    EXPECT_THAT(CheckDisabled(std::vector<ProcessEntry>{{EntryKind::QuitApp, L"a", L""}}),
                IsEmpty());
}

TEST(VerifiedApplications, ThatAreToQuitAreFoundByAPartOfTheirNameInAnyCase) {
    const std::vector<ProcessEntry> entries = {{EntryKind::QuitApp, L"ERIFY_TEST", L"title"},
                                               {EntryKind::QuitApp, L"no such.exe", L"title"}};
    EXPECT_THAT(Shown(CheckStopped(entries, {})),
                ElementsAre(L"DIFFERS | stop | ERIFY_TEST | not running | running",
                            L"ok | stop | no such.exe | not running | not running"));
}

TEST(VerifiedApplications, ThatAreToRunAreFoundByTheirWholeName) {
    const std::vector<ProcessEntry> entries = {{EntryKind::LaunchApp, L"VERIFY_tests.exe", L"-u"},
                                               {EntryKind::LaunchApp, L"erify_tests.exe", L"-u"}};
    EXPECT_THAT(Shown(CheckStarted(entries)),
                ElementsAre(L"ok | start | VERIFY_tests.exe | running | running",
                            L"DIFFERS | start | erify_tests.exe | running | not running"));
}

TEST(VerifiedApplications, AreUnknownIfTheProcessesCannotBeListed) {
    const std::vector<ProcessEntry> entries = {{EntryKind::LaunchApp, L"a.exe", L""}};
    {
        const test::ImportHook<&::CreateToolhelp32Snapshot> hook(
            [](auto...) { return Deny(INVALID_HANDLE_VALUE); });
        EXPECT_THAT(Shown(CheckStarted(entries)),
                    ElementsAre(L"UNKNOWN | start | a.exe | running | " + Denied));
    }
    const test::ImportHook<&::Process32FirstW> hook([](auto...) { return Deny(FALSE); });
    EXPECT_THAT(Shown(CheckStarted(entries)),
                ElementsAre(L"UNKNOWN | start | a.exe | running | " + Denied));
}

}  // namespace
