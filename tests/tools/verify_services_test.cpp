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

using test::Shown;
using testing::ElementsAre;
using testing::IsEmpty;
using verify::CheckDisabled;
using verify::CheckStarted;
using verify::CheckStopped;

constexpr wchar_t Name[] = L"Finaset verified service";
const std::vector<ProcessEntry> TheService = {{EntryKind::Service, Name, L""}};

BOOL Denied() {
    ::SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
}

const std::wstring Reason = verify::ErrorText(ERROR_ACCESS_DENIED);

TEST(VerifiedServices, ThatAreToBeStoppedAreNotRunning) {
    const test::InstalledService service(Name);
    EXPECT_THAT(Shown(CheckStopped(TheService, {})),
                ElementsAre(L"ok | stop | Finaset verified service | not running | stopped"));
    service.Start();
    EXPECT_THAT(Shown(CheckStopped(TheService, {})),
                ElementsAre(L"DIFFERS | stop | Finaset verified service | not running | running"));
}

TEST(VerifiedServices, ThatAreToBeStoppedNeedNotBeInstalled) {
    EXPECT_THAT(Shown(CheckStopped(TheService, {})),
                ElementsAre(L"ok | stop | Finaset verified service | not running | not installed"));
}

TEST(VerifiedServices, ThatAreStartedLaterAreNotAskedForWhenStopped) {
    EXPECT_THAT(CheckStopped(TheService, TheService), IsEmpty());
    const std::vector<ProcessEntry> others = {{EntryKind::LaunchApp, Name, L""},
                                              {EntryKind::Service, L"another", L""}};
    EXPECT_EQ(CheckStopped(TheService, others).size(), 1U);
}

TEST(VerifiedServices, ThatAreToBeStartedAreRunning) {
    const test::InstalledService service(Name, L"--start-pending=300");
    EXPECT_THAT(Shown(CheckStarted(TheService)),
                ElementsAre(L"DIFFERS | start | Finaset verified service | running | stopped"));
    service.Start();
    EXPECT_THAT(Shown(CheckStarted(TheService)),
                ElementsAre(L"ok | start | Finaset verified service | running | running"));
}

TEST(VerifiedServices, ThatAreToBeStartedMustBeInstalled) {
    EXPECT_THAT(
        Shown(CheckStarted(TheService)),
        ElementsAre(L"DIFFERS | start | Finaset verified service | running | not installed"));
}

TEST(VerifiedServices, InAStateWithoutANameHaveItsNumber) {
    const test::InstalledService service(Name);
    const test::ImportHook<&::QueryServiceStatus> hook([](SC_HANDLE, SERVICE_STATUS* status) {
        status->dwCurrentState = 8;
        return TRUE;
    });
    EXPECT_THAT(Shown(CheckStarted(TheService)),
                ElementsAre(L"DIFFERS | start | Finaset verified service | running | 8"));
}

TEST(VerifiedServices, ThatAreToBeDisabledAre) {
    {
        const test::InstalledService service(Name, L"", SERVICE_AUTO_START);
        EXPECT_THAT(
            Shown(CheckDisabled(TheService)),
            ElementsAre(L"DIFFERS | disable | Finaset verified service | disabled | automatic"));
    }
    const test::InstalledService service(Name, L"", SERVICE_DISABLED);
    EXPECT_THAT(Shown(CheckDisabled(TheService)),
                ElementsAre(L"ok | disable | Finaset verified service | disabled | disabled"));
}

TEST(VerifiedServices, ThatAreToBeDisabledMustBeInstalled) {
    EXPECT_THAT(
        Shown(CheckDisabled(TheService)),
        ElementsAre(L"DIFFERS | disable | Finaset verified service | disabled | not installed"));
}

TEST(VerifiedServices, AreUnknownWithoutAServiceManager) {
    const test::ImportHook<&::OpenSCManagerW> hook([](LPCWSTR, LPCWSTR, DWORD) -> SC_HANDLE {
        Denied();
        return nullptr;
    });
    EXPECT_THAT(Shown(CheckStarted(TheService)),
                ElementsAre(L"UNKNOWN | start | Finaset verified service | running | "
                            L"the service manager: " +
                            Reason));
}

TEST(VerifiedServices, AreUnknownIfTheyMayNotBeOpened) {
    const test::ImportHook<&::OpenServiceW> hook([](SC_HANDLE, LPCWSTR, DWORD) -> SC_HANDLE {
        Denied();
        return nullptr;
    });
    EXPECT_THAT(
        Shown(CheckStopped(TheService, {})),
        ElementsAre(L"UNKNOWN | stop | Finaset verified service | not running | " + Reason));
}

TEST(VerifiedServices, AreUnknownIfTheyDoNotAnswer) {
    const test::InstalledService service(Name);
    const test::ImportHook<&::QueryServiceStatus> state(
        [](SC_HANDLE, SERVICE_STATUS*) { return Denied(); });
    const test::ImportHook<&::QueryServiceConfigW> configuration(
        [](SC_HANDLE, QUERY_SERVICE_CONFIGW*, DWORD, DWORD*) { return Denied(); });
    EXPECT_THAT(Shown(CheckStarted(TheService)),
                ElementsAre(L"UNKNOWN | start | Finaset verified service | running | " + Reason));
    EXPECT_THAT(
        Shown(CheckDisabled(TheService)),
        ElementsAre(L"UNKNOWN | disable | Finaset verified service | disabled | " + Reason));
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
        const test::ImportHook<&::CreateToolhelp32Snapshot> hook([](DWORD, DWORD) {
            Denied();
            return INVALID_HANDLE_VALUE;
        });
        EXPECT_THAT(Shown(CheckStarted(entries)),
                    ElementsAre(L"UNKNOWN | start | a.exe | running | " + Reason));
    }
    const test::ImportHook<&::Process32FirstW> hook(
        [](HANDLE, PROCESSENTRY32W*) { return Denied(); });
    EXPECT_THAT(Shown(CheckStarted(entries)),
                ElementsAre(L"UNKNOWN | start | a.exe | running | " + Reason));
}

}  // namespace
