// What Wine cannot show, or shows differently from Windows, so that other tests make an allowance.
// Each entry is a check of Wine itself, and fails once Wine behaves like Windows: then remove the
// entry and the allowance.

#include "machine/machine.h"
#include "shared/owner.h"
#include "support/installed_service.h"
#include "support/on_wine.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "support/temporary_directory.h"
#include "tasks/com.h"
#include "tasks/task_table.h"

#include <windows.h>

#include <aclapi.h>
#include <objbase.h>
#include <taskschd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace {

class WineLimits : public testing::Test {
    void SetUp() override {
        if (!test::OnWine()) {
            GTEST_SKIP() << "not Wine";
        }
    }
};

// Allowance: the command line for starting a program is compared at the import; the one that
// arrives is compared with its quotes.
TEST_F(WineLimits, AnUnquotedPathWithBlanksArrivesInQuotes) {
    test::Machine machine;
    machine.InstallProgram(L"stand_in_companion.exe", L"BriskoLU.exe");
    ASSERT_EQ(machine.Run(L"/START").exitCode, 0U);
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"),
                testing::ElementsAre("\"C:\\Program Files\\Tarsel\\Lumetra\\BriskoLU.exe\" -u"));
}

// Allowance: the transacted calls are made to functions that the tests supply.
TEST_F(WineLimits, TransactedOpenAndDeleteAreMissing) {
    const HMODULE advapi = ::GetModuleHandleW(L"Advapi32.dll");
    EXPECT_EQ(::GetProcAddress(advapi, "RegOpenKeyTransactedW"), nullptr);
    EXPECT_NE(::GetProcAddress(advapi, "RegCreateKeyTransactedW"), nullptr);
    EXPECT_EQ(::GetProcAddress(advapi, "RegDeleteKeyTransactedW"), nullptr);
}

// Allowance: the stand-ins for services are stop-pending for at least 200 ms, so that the answer to
// the stop control arrives before they have stopped.
TEST_F(WineLimits, AServiceThatStopsAtOnceBreaksItsStopControl) {
    const Utils::ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    const test::InstalledService installed(L"Finaset stops at once", L"--stops-at-once");
    installed.Start();
    const Utils::ServiceHandle service(
        ::OpenServiceW(manager.Get(), installed.Name().c_str(), SERVICE_STOP));
    SERVICE_STATUS status = {};
    EXPECT_FALSE(::ControlService(service.Get(), SERVICE_CONTROL_STOP, &status));
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_BROKEN_PIPE});
}

// Allowance: what is reported to the event log is compared at the import.
TEST_F(WineLimits, TheEventLogStoresNothing) {
    const Utils::EventSource source(::RegisterEventSourceW(nullptr, L"Application"));
    ASSERT_TRUE(source);
    const wchar_t* text = L"Finaset test";
    ASSERT_TRUE(
        ::ReportEventW(source.Get(), EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 1, 0, &text, nullptr));
    const HANDLE log = ::OpenEventLogW(nullptr, L"Application");
    BYTE buffer[4096] = {};
    DWORD read = 0;
    DWORD needed = 0;
    EXPECT_FALSE(::ReadEventLogW(log, EVENTLOG_SEQUENTIAL_READ | EVENTLOG_BACKWARDS_READ, 0, buffer,
                                 sizeof(buffer), &read, &needed));
    EXPECT_EQ(read, 0U);
    ::CloseEventLog(log);
}

// Allowance: access control lists are compared as requested, not as they are afterwards. Where
// finaset-verify reads them, it gets the tests' own lists; by itself it reports that the four
// directories differ.
TEST_F(WineLimits, AnAccessControlListIsReadBackAsTheFilesModeHasIt) {
    const test::TemporaryDirectory directory;
    std::wstring path = directory / L"file";
    test::MakeFile(path);
    ACL empty = {};
    ASSERT_TRUE(::InitializeAcl(&empty, sizeof(empty), ACL_REVISION));
    ASSERT_EQ(
        ::SetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT,
                                DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                nullptr, nullptr, &empty, nullptr),
        DWORD{ERROR_SUCCESS});
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_EQ(::GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                                      nullptr, nullptr, &list, nullptr, &descriptor),
              DWORD{ERROR_SUCCESS});
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    ASSERT_TRUE(::GetSecurityDescriptorControl(descriptor, &control, &revision));
    EXPECT_FALSE(control & SE_DACL_PROTECTED);  // it was requested
    EXPECT_GT(list->AceCount, 0);               // none was requested
    ::LocalFree(descriptor);
}

// Allowance: links are created by a program of the system below Wine.
TEST_F(WineLimits, ASymbolicLinkIsReportedAsCreatedButMissing) {
    const test::TemporaryDirectory directory;
    const std::wstring link = directory / L"link";
    EXPECT_TRUE(::CreateSymbolicLinkW(link.c_str(), directory.Path().c_str(),
                                      SYMBOLIC_LINK_FLAG_DIRECTORY));
    EXPECT_EQ(::GetFileAttributesW(link.c_str()), INVALID_FILE_ATTRIBUTES);
}

// Allowance: an open file, not a read-only one, shows that a file may not be replaced.
TEST_F(WineLimits, AReadOnlyFileIsOverwrittenByTheAdministrator) {
    const test::TemporaryDirectory directory;
    const std::wstring from = directory / L"from";
    const std::wstring to = directory / L"to";
    test::MakeFile(from);
    test::MakeFile(to);
    ASSERT_TRUE(::SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(::CopyFileW(from.c_str(), to.c_str(), /*bFailIfExists=*/FALSE));
    ::SetFileAttributesW(to.c_str(), FILE_ATTRIBUTE_NORMAL);
}

// Allowance: the view in which a key is opened is compared at the import.
TEST_F(WineLimits, ARedirectedRootHasNoSecondView) {
    const test::PrivateRegistry registry;
    test::MakeKey(HKEY_LOCAL_MACHINE, L"Software\\Finaset", KEY_WOW64_32KEY);
    EXPECT_TRUE(test::KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Finaset", KEY_WOW64_64KEY));
}

// Allowance: open handles are counted by a ledger of calls.
TEST_F(WineLimits, NoProcessHasAHandle) {
    DWORD handles = 1;
    ASSERT_TRUE(::GetProcessHandleCount(::GetCurrentProcess(), &handles));
    EXPECT_EQ(handles, 0U);
}

// Allowance: in a directory with an & in its name, the run that registers the idle task is expected
// to succeed.
TEST_F(WineLimits, ATaskWhoseXmlIsNotWellFormedIsAccepted) {
    test::Machine::DisconnectTaskService();  // Wine's own, whatever a test has left
    ASSERT_EQ(::CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    {
        ITaskService* created = nullptr;
        ASSERT_EQ(::CoCreateInstance(__uuidof(TaskScheduler), nullptr, CLSCTX_INPROC_SERVER,
                                     __uuidof(ITaskService), reinterpret_cast<void**>(&created)),
                  S_OK);
        const Utils::ComPointer<ITaskService> service(created);
        const VARIANT none = {};
        ASSERT_EQ(created->Connect(none, none, none, none), S_OK);
        ITaskDefinition* made = nullptr;
        ASSERT_EQ(created->NewTask(0, &made), S_OK);
        const Utils::ComPointer<ITaskDefinition> definition(made);
        std::wstring xml = ScheduledTaskTable.front().taskXml;
        xml.insert(xml.find(L"##PROCESSNAME##"), L"&");
        EXPECT_EQ(made->put_XmlText(Utils::ComString(::SysAllocString(xml.c_str())).Get()), S_OK);
    }
    ::CoUninitialize();
}

}  // namespace
