#include "support/fake_task_service.h"
#include "support/import_hook.h"
#include "support/initialised_com.h"
#include "tools/verify_rows.h"
#include "verify/tasks.h"

#include <windows.h>

#include <objbase.h>
#include <xmllite.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using test::Shown;
using testing::ElementsAre;
using testing::StartsWith;
using verify::CheckTasks;

// A definition with the relevant parts, among others.
std::wstring Xml(const std::wstring& command, const std::wstring& principal) {
    return L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n"
           L"<Task version=\"1.4\" xmlns=\"http://schemas.microsoft.com/windows/2004/02/mit/task\">"
           L"<!-- a comment --><Settings><Command>of no action</Command><Empty/></Settings>\r\n"
           L"  <Principals><Principal id=\"Author\">" +
           principal + L"</Principal></Principals>\r\n<Actions Context=\"Author\">" + command +
           L"</Actions></Task>";
}

const std::wstring Group = L"<GroupId>S-1-5-32-544</GroupId>";

class VerifiedTasks : public testing::Test {
protected:
    std::vector<std::wstring> Rows() {
        const ScheduledTaskEntry task = {
            Xml(L"<Exec><Command>##PROCESSNAME##</Command></Exec>", Group), false,
            L"C:\\R & D\\a.exe", L"a task"};
        std::vector<std::wstring> rows = Shown(CheckTasks({&task, 1}, L"an old task"));
        EXPECT_EQ(service_.References(), 0U);
        return rows;
    }
    static std::wstring Task(const std::wstring& verdict, const std::wstring& found) {
        return verdict + L" | task | a task | C:\\R & D\\a.exe for S-1-5-32-544 | " + found;
    }
    static std::wstring Obsolete(const std::wstring& verdict, const std::wstring& found) {
        return verdict + L" | task | an old task | absent | " + found;
    }
    void Register(const std::wstring& command, const std::wstring& principal = Group) {
        service_.tasks[L"a task"] = Xml(command, principal);
    }

    test::InitialisedCom com_;
    test::FakeTaskService service_;
    std::wstring absent_ = Obsolete(L"ok", L"absent");
};

TEST_F(VerifiedTasks, AreRegisteredForTheirGroupWithTheirCommand) {
    EXPECT_THAT(Rows(), ElementsAre(Task(L"DIFFERS", L"absent"), absent_));
    Register(L"<Exec><Command>C:\\R &amp; D\\A.EXE</Command><Arguments>b</Arguments></Exec>");
    EXPECT_THAT(Rows(), ElementsAre(Task(L"ok", L"C:\\R & D\\A.EXE for S-1-5-32-544"), absent_));
    Register(L"<Exec><Command><![CDATA[C:\\R & D\\a.exe]]></Command></Exec>");
    EXPECT_THAT(Rows(), ElementsAre(Task(L"ok", L"C:\\R & D\\a.exe for S-1-5-32-544"), absent_));
}

TEST_F(VerifiedTasks, WithAnotherCommandDiffer) {
    Register(L"<Exec><Command>C:\\b.exe</Command></Exec>");
    EXPECT_THAT(Rows(), ElementsAre(Task(L"DIFFERS", L"C:\\b.exe for S-1-5-32-544"), absent_));
    Register(
        L"<Exec><Command>C:\\R &amp; D\\a.exe</Command></Exec>"
        L"<Exec><Command>C:\\b.exe</Command></Exec>");
    EXPECT_THAT(
        Rows(),
        ElementsAre(Task(L"DIFFERS", L"C:\\R & D\\a.exe, C:\\b.exe for S-1-5-32-544"), absent_));
    Register(L"<Exec><Command/></Exec>");
    EXPECT_THAT(Rows(), ElementsAre(Task(L"DIFFERS", L" for S-1-5-32-544"), absent_));
    Register(L"");
    EXPECT_THAT(Rows(), ElementsAre(Task(L"DIFFERS", L" for S-1-5-32-544"), absent_));
}

TEST_F(VerifiedTasks, ForAnotherPrincipalDiffer) {
    const std::wstring command = L"<Exec><Command>C:\\R &amp; D\\a.exe</Command></Exec>";
    Register(command, L"<GroupId>S-1-5-32-545</GroupId>");
    EXPECT_THAT(Rows(),
                ElementsAre(Task(L"DIFFERS", L"C:\\R & D\\a.exe for S-1-5-32-545"), absent_));
    Register(command, L"<UserId>S-1-5-18</UserId>");
    EXPECT_THAT(Rows(), ElementsAre(Task(L"DIFFERS", L"C:\\R & D\\a.exe for S-1-5-18"), absent_));
}

TEST_F(VerifiedTasks, WhoseTemplateHasNoPlaceholderAreTakenUnchanged) {
    const ScheduledTaskEntry task = {Xml(L"<Exec><Command>b.exe</Command></Exec>", Group), true,
                                     L"a.exe", L"a task"};
    Register(L"<Exec><Command>b.exe</Command></Exec>");
    EXPECT_EQ(Shown(CheckTasks({&task, 1}, L"")).front(),
              L"ok | task | a task | b.exe for S-1-5-32-544 | b.exe for S-1-5-32-544");
}

TEST_F(VerifiedTasks, ThatAreObsoleteAreAbsent) {
    Register(L"<Exec><Command>C:\\R &amp; D\\a.exe</Command></Exec>");
    service_.tasks[L"an old task"] = L"";
    EXPECT_EQ(Rows().back(), Obsolete(L"DIFFERS", L"registered"));
    service_.results["GetTask"] = HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(Rows().back(), absent_);
}

TEST_F(VerifiedTasks, AreReadAndNotChanged) {
    Register(L"");
    Rows();
    EXPECT_THAT(
        service_.calls.Lines(),
        ElementsAre(StartsWith("CoCreateInstance("), "CreateInstance(null)", "QueryInterface()",
                    "Connect(empty, empty, empty, empty)", "GetFolder(\\)", "GetTask(a task)",
                    "get_Xml()", "GetTask(an old task)"));
}

TEST_F(VerifiedTasks, AreUnknownIfTheServiceCannotBeReached) {
    for (const char* const call : {"CreateInstance", "QueryInterface", "Connect", "GetFolder"}) {
        service_.results = {{call, E_ACCESSDENIED}};
        const std::wstring reason = L"the Task Scheduler: error 0x80070005";
        EXPECT_THAT(Rows(), ElementsAre(StartsWith(Task(L"UNKNOWN", reason)),
                                        StartsWith(Obsolete(L"UNKNOWN", reason))));
    }
}

TEST_F(VerifiedTasks, AreUnknownIfTheServiceGivesNothing) {
    service_.givesNothing = {"GetFolder"};
    EXPECT_THAT(Rows().back(),
                StartsWith(Obsolete(L"UNKNOWN", L"the Task Scheduler: error 0x80004003")));
    service_.givesNothing = {"GetTask"};
    EXPECT_THAT(Rows().back(), StartsWith(Obsolete(L"UNKNOWN", L"error 0x80004003")));
}

TEST_F(VerifiedTasks, AreUnknownIfTheyMayNotBeRead) {
    service_.results = {{"GetTask", E_ACCESSDENIED}};
    EXPECT_THAT(Rows(), ElementsAre(StartsWith(Task(L"UNKNOWN", L"error 0x80070005")),
                                    StartsWith(Obsolete(L"UNKNOWN", L"error 0x80070005"))));
    Register(L"");
    service_.results = {{"get_Xml", E_ACCESSDENIED}};
    EXPECT_THAT(Rows().front(), StartsWith(Task(L"UNKNOWN", L"error 0x80070005")));
}

TEST_F(VerifiedTasks, WhoseDefinitionIsNoXmlAreUnknown) {
    for (const wchar_t* const xml :
         {L"", L"no XML", L"<!-- none -->", L"<Task><Actions>", L"<Task></Actions>"}) {
        service_.tasks[L"a task"] = xml;
        EXPECT_THAT(Rows().front(), StartsWith(Task(L"UNKNOWN", L"error 0x")));
    }
}

// The platform's XML reader may be missing, or fail.

TEST_F(VerifiedTasks, AreUnknownWithoutAReaderOfXml) {
    Register(L"");
    const test::ImportHook<&::LoadLibraryExW> hook([](auto...) { return nullptr; });
    EXPECT_THAT(Rows().front(), StartsWith(L"UNKNOWN | task | a task |  for  | error 0x8007007F"));
}

HRESULT WINAPI CreatesNoReader(REFIID /*iid*/, void** /*object*/, IMalloc* /*malloc*/) {
    return E_OUTOFMEMORY;
}

TEST_F(VerifiedTasks, AreUnknownIfNoReaderOfXmlIsMade) {
    Register(L"");
    test::ImportHook<&::GetProcAddress> hook([&](HMODULE library, LPCSTR name) {
        return name == std::string("CreateXmlReader")
                   ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&CreatesNoReader))
                   : hook.Forward(library, name);
    });
    EXPECT_THAT(Rows().front(), StartsWith(L"UNKNOWN | task | a task |  for  | error 0x8007000E"));
}

TEST_F(VerifiedTasks, AreUnknownWithoutMemoryForTheirXml) {
    Register(L"");
    const test::ImportHook<&::CreateStreamOnHGlobal> hook(
        [](HGLOBAL, BOOL, IStream**) { return E_OUTOFMEMORY; });
    EXPECT_THAT(Rows().front(), StartsWith(L"UNKNOWN | task | a task |  for  | error 0x8007000E"));
}

}  // namespace
