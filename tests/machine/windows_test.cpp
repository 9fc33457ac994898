// What Windows can show of the shipping program and Wine cannot: the checkboxes in docs/security.md
// that a program can test. On Wine, each impossible test says why.

#include "machine/machine.h"
#include "shared/owner.h"
#include "support/file_contents.h"
#include "support/installed_service.h"
#include "support/on_wine.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <cwctype>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using test::Machine;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using Utils::KernelHandle;

constexpr wchar_t IdleTask[] = L"VxIdle Task";
constexpr wchar_t StartupTask[] = L"Tarsel Lumetra Startup Task";
constexpr std::chrono::seconds QuitLimit{10};  // for an application that was asked to quit

// The access control list in the platform's notation, or its kind.
std::string AccessList(const fs::path& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    char* text = nullptr;
    if (::GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                nullptr, nullptr, nullptr, &descriptor) != ERROR_SUCCESS ||
        !::ConvertSecurityDescriptorToStringSecurityDescriptorA(
            descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr)) {
        throw std::runtime_error("an access list cannot be read");
    }
    std::string list = text;
    ::LocalFree(text);
    ::LocalFree(descriptor);
    return list;
}

// Its entries, without what precedes them.
std::vector<std::string> Entries(const fs::path& path) {
    const std::string list = AccessList(path);
    std::vector<std::string> entries;
    for (std::size_t begin = list.find('('); begin != list.npos; begin = list.find('(', begin)) {
        const std::size_t end = list.find(')', begin);
        entries.push_back(list.substr(begin + 1, end - begin - 1));
        begin = end;
    }
    return entries;
}

// Runs one of the shell's own commands. Returns its output.
std::string Shell(const std::wstring& command) {
    const fs::path output = fs::temp_directory_path() / L"finaset shell.txt";
    DWORD exitCode = 0;
    {
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
        const KernelHandle file(::CreateFileW(
            output.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
            &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        exitCode = test::RunToEnd(L"cmd.exe /d /c " + command, file.Get());
    }
    std::string printed = test::FileText(output).value();
    test::RemoveAll(output);
    if (exitCode != 0) {
        throw std::runtime_error("a command fails: " + printed);
    }
    return printed;
}

// A link created by the system, while this lives.
class Link {
public:
    // `kind` is the option of mklink: /J, /D or /H.
    Link(const std::wstring& kind, fs::path link, const fs::path& target) : link_(std::move(link)) {
        fs::create_directories(link_.parent_path());
        Shell(L"mklink " + kind + L" \"" + link_.wstring() + L"\" \"" + target.wstring() + L"\"");
    }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    ~Link() {
        if (!::RemoveDirectoryW(link_.c_str())) {
            ::DeleteFileW(link_.c_str());
        }
    }

private:
    fs::path link_;
};

// A directory in the root of the drive, where inherited entries are not the tests' own.
class OtherPlace {
public:
    OtherPlace() { fs::create_directory(Path); }
    OtherPlace(const OtherPlace&) = delete;
    OtherPlace& operator=(const OtherPlace&) = delete;
    ~OtherPlace() { test::RemoveAll(Path); }

    static inline const fs::path Path = L"C:\\Finaset other place";
};

// What its debugger observed of a program.
struct ObservedRun {
    const void* base = nullptr;           // where the program was loaded
    std::vector<std::wstring> libraries;  // the files that the loader has mapped, in order
};

std::wstring FileOf(HANDLE file) {
    wchar_t path[MAX_PATH] = {};
    ::GetFinalPathNameByHandleW(file, path, MAX_PATH, FILE_NAME_NORMALIZED);
    std::wstring name = path;
    constexpr std::wstring_view Prefix = L"\\\\?\\";
    return name.starts_with(Prefix) ? name.substr(Prefix.size()) : name;
}

ObservedRun Observe(const fs::path& program, const std::wstring& arguments,
                    const fs::path& currentDirectory) {
    std::wstring command = L"\"" + program.wstring() + L"\" " + arguments;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE,
                          DEBUG_ONLY_THIS_PROCESS | DETACHED_PROCESS, nullptr,
                          currentDirectory.c_str(), &startup, &info)) {
        throw std::runtime_error("a program cannot be started");
    }
    const KernelHandle process(info.hProcess);
    const KernelHandle thread(info.hThread);
    ObservedRun run;
    for (bool running = true; running;) {
        DEBUG_EVENT event = {};
        if (!::WaitForDebugEvent(&event, INFINITE)) {
            throw std::runtime_error("a program cannot be observed");
        }
        DWORD answer = DBG_CONTINUE;
        switch (event.dwDebugEventCode) {
            case CREATE_PROCESS_DEBUG_EVENT:
                run.base = event.u.CreateProcessInfo.lpBaseOfImage;
                ::CloseHandle(event.u.CreateProcessInfo.hFile);
                break;
            case LOAD_DLL_DEBUG_EVENT:
                run.libraries.push_back(FileOf(event.u.LoadDll.hFile));
                ::CloseHandle(event.u.LoadDll.hFile);
                break;
            case EXCEPTION_DEBUG_EVENT:
                if (event.u.Exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT) {
                    answer = DBG_EXCEPTION_NOT_HANDLED;
                }
                break;
            case EXIT_PROCESS_DEBUG_EVENT:
                running = false;
                break;
            default:
                break;
        }
        ::ContinueDebugEvent(event.dwProcessId, event.dwThreadId, answer);
    }
    return run;
}

// The headers of a program's file.
IMAGE_NT_HEADERS64 HeadersOf(const fs::path& program) {
    const std::string file = test::FileText(program).value();
    IMAGE_DOS_HEADER begin = {};
    std::memcpy(&begin, file.data(), sizeof(begin));
    IMAGE_NT_HEADERS64 headers = {};
    std::memcpy(&headers, file.data() + begin.e_lfanew, sizeof(headers));
    return headers;
}

DWORD Now() {
    return static_cast<DWORD>(std::chrono::duration_cast<std::chrono::seconds>(
                                  std::chrono::system_clock::now().time_since_epoch())
                                  .count());
}

// The entries of the application log since a second, as source and text, newest first.
std::vector<std::pair<std::wstring, std::wstring>> EventsSince(DWORD second) {
    std::vector<std::pair<std::wstring, std::wstring>> events;
    const HANDLE log = ::OpenEventLogW(nullptr, L"Application");
    std::vector<std::byte> buffer(0x10000);
    DWORD read = 0;
    DWORD needed = 0;
    bool recent = true;
    while (recent &&
           ::ReadEventLogW(log, EVENTLOG_SEQUENTIAL_READ | EVENTLOG_BACKWARDS_READ, 0,
                           buffer.data(), static_cast<DWORD>(buffer.size()), &read, &needed)) {
        for (std::size_t at = 0; at < read && recent;) {
            const auto* record = reinterpret_cast<const EVENTLOGRECORD*>(buffer.data() + at);
            recent = record->TimeGenerated >= second;
            if (recent) {
                events.emplace_back(reinterpret_cast<const wchar_t*>(record + 1),
                                    record->NumStrings == 0
                                        ? L""
                                        : reinterpret_cast<const wchar_t*>(buffer.data() + at +
                                                                           record->StringOffset));
            }
            at += record->Length;
        }
    }
    ::CloseEventLog(log);
    return events;
}

fs::path SystemDirectory() {
    wchar_t path[MAX_PATH] = {};
    ::GetSystemDirectoryW(path, MAX_PATH);
    return path;
}

std::wstring LowerCase(std::wstring text) {
    for (wchar_t& character : text) {
        character = static_cast<wchar_t>(std::towlower(character));
    }
    return text;
}

const fs::path& Nimbus() {
    static const fs::path path = Machine::DataDirectory() / L"Nimbus";
    return path;
}

TEST(OnWindows, TheDirectoriesHaveTheRequestedAccessControlListsAndInheritNothing) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine makes access lists up from the file's mode";
    }
    Machine machine;
    machine.InstallProduct();
    test::PutFile(Machine::ConfigurationDirectory() / L"below" / L"file", "");
    ASSERT_THAT(machine.Run(L"/CONFIGURE").log, Not(HasSubstr("Uninstalling Product")));
    EXPECT_THAT(AccessList(Nimbus()), StartsWith("D:P"));
    EXPECT_THAT(Entries(Nimbus()), UnorderedElementsAre("A;OICI;FA;;;BA", "A;OICI;FA;;;SY"));
    const fs::path images = Machine::DataDirectory() / L"ImageCache";
    EXPECT_THAT(AccessList(images), StartsWith("D:P"));
    EXPECT_THAT(Entries(images),
                UnorderedElementsAre("A;OICI;FA;;;BA", "A;OICI;FA;;;SY", "A;OICI;0x1200a9;;;BU"));
    EXPECT_THAT(Entries(Machine::ConfigurationDirectory() / L"user.xml"),
                UnorderedElementsAre("A;ID;FA;;;BA", "A;ID;FA;;;SY"));
    EXPECT_THAT(Entries(Machine::ConfigurationDirectory() / L"below"),
                UnorderedElementsAre("A;OICIID;FA;;;BA", "A;OICIID;FA;;;SY"));
    EXPECT_THAT(Entries(Machine::ConfigurationDirectory() / L"below" / L"file"),
                UnorderedElementsAre("A;ID;FA;;;BA", "A;ID;FA;;;SY"));
}

// While it lives, this thread has the rights of a user who is not an administrator.
class AsAUser {
public:
    AsAUser() {
        HANDLE own = nullptr;
        ::OpenProcessToken(::GetCurrentProcess(), TOKEN_ALL_ACCESS, &own);
        const KernelHandle owner(own);
        DWORD size = SECURITY_MAX_SID_SIZE;
        std::vector<std::byte> administrators(size);
        ::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators.data(), &size);
        SID_AND_ATTRIBUTES disabled = {administrators.data(), 0};
        HANDLE restricted = nullptr;
        if (!::CreateRestrictedToken(own, DISABLE_MAX_PRIVILEGE, 1, &disabled, 0, nullptr, 0,
                                     nullptr, &restricted) ||
            !::ImpersonateLoggedOnUser(restricted)) {
            throw std::runtime_error("no user's rights can be taken on");
        }
        ::CloseHandle(restricted);
    }
    AsAUser(const AsAUser&) = delete;
    AsAUser& operator=(const AsAUser&) = delete;
    ~AsAUser() { ::RevertToSelf(); }
};

TEST(OnWindows, NoUserCanCreateOrRedirectAnythingBelowASecuredDirectory) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine makes access lists up, and knows no user beside the administrator";
    }
    Machine machine;
    machine.InstallProduct();
    ASSERT_THAT(machine.Run(L"/CONFIGURE").log, Not(HasSubstr("Uninstalling Product")));
    const AsAUser user;
    for (const fs::path& directory :
         {Nimbus(), Machine::DataDirectory() / L"ImageCache", Machine::ConfigurationDirectory()}) {
        EXPECT_FALSE(::CreateDirectoryW((directory / L"a user's").c_str(), nullptr)) << directory;
        EXPECT_EQ(::GetLastError(), DWORD{ERROR_ACCESS_DENIED}) << directory;
        // A junction is created by writing to the directory itself.
        const Utils::FileHandle opened(::CreateFileW(
            directory.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
            OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        EXPECT_FALSE(opened) << directory;
    }
}

class OnWindowsLinks : public testing::TestWithParam<const wchar_t*> {};

TEST_P(OnWindowsLinks, InPlaceOfTheDataDirectoryEndTheRunAndLeaveTheirTargetUnchanged) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine's mklink makes no junction and no symbolic link";
    }
    Machine machine;
    machine.InstallProduct();
    const OtherPlace target;
    test::PutFile(OtherPlace::Path / L"file", "");
    const std::string before = AccessList(OtherPlace::Path);
    const std::string fileBefore = AccessList(OtherPlace::Path / L"file");
    test::RemoveAll(Machine::DataDirectory());
    const Link link(GetParam(), Machine::DataDirectory(), OtherPlace::Path);
    EXPECT_THAT(machine.Run().log,
                AllOf(HasSubstr("Uninstalling Product"), Not(HasSubstr("Starting Processes"))));
    EXPECT_EQ(AccessList(OtherPlace::Path), before);
    EXPECT_EQ(AccessList(OtherPlace::Path / L"file"), fileBefore);
}

INSTANTIATE_TEST_SUITE_P(Kinds, OnWindowsLinks, testing::Values(L"/J", L"/D"));

TEST(OnWindows, ASecondNameOfAFileEndsTheRunUnlessTheFileIsInUse) {
    Machine machine;
    machine.InstallProduct();
    const OtherPlace elsewhere;
    const fs::path file = OtherPlace::Path / L"file";
    test::PutFile(file, "");
    const Link link(L"/H", Machine::ConfigurationDirectory() / L"second name", file);
    {
        const Utils::FileHandle inUse(::CreateFileW(
            file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        ASSERT_TRUE(inUse);
        EXPECT_THAT(machine.Run(L"/CONFIGURE").log, Not(HasSubstr("Uninstalling Product")));
    }
    EXPECT_THAT(machine.Run(L"/CONFIGURE").log, HasSubstr("Uninstalling Product"));
}

// Like a virus scanner, which shares everything with others.
TEST(OnWindows, AnOpenFileChangesNoVerdict) {
    Machine machine;
    machine.InstallProduct();
    ASSERT_EQ(machine.Run(L"/CONFIGURE").exitCode, 0U);
    const std::string before = machine.Run(L"/CONFIGURE").log;
    std::vector<Utils::FileHandle> held;
    for (const auto& entry : fs::recursive_directory_iterator(Machine::DataDirectory())) {
        held.emplace_back(::CreateFileW(entry.path().c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                        nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                                        nullptr));
    }
    // A deleted file stays until it is closed, so the copy in its place may fail.
    const std::string after = machine.Run(L"/CONFIGURE").log;
    EXPECT_THAT(after, Not(HasSubstr("Uninstalling Product")));
    EXPECT_THAT(after.substr(after.find("SecureFilesDirectories")),
                before.substr(before.find("SecureFilesDirectories")));
}

TEST(OnWindows, TheEventLogHasTheEntriesOfBothSources) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine's event log stores nothing";
    }
    Machine machine;
    machine.InstallProduct();
    const OtherPlace target;
    test::RemoveAll(Machine::DataDirectory());
    const Link link(L"/J", Machine::DataDirectory(), OtherPlace::Path);
    const DWORD begin = Now();
    ASSERT_THAT(machine.Run().log, HasSubstr("Uninstalling Product"));
    const auto events = EventsSince(begin);
    EXPECT_THAT(events, Contains(testing::Pair(L"Tarsel Nimbus Network Service",
                                               L"First Run - StartingC:\\Program "
                                               L"Files\\Tarsel\\Lumetra\\Unfinaset.exeProcess")));
    EXPECT_THAT(events, Contains(testing::Pair(L"Tarsel Nimbus CInstall",
                                               testing::EndsWith(L" - Uninstalling"))));
}

TEST(OnWindows, NoLibraryIsLoadedFromBesideTheProgramOrTheCurrentDirectory) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine has no list of known libraries; see PlantedLibrariesTest";
    }
    Machine machine;
    machine.InstallProduct();
    const OtherPlace current;
    const fs::path program = machine.ProgramDirectory() / L"Finaset.exe";
    // What a run loads, and what careless programs are known to load.
    std::set<std::wstring> names = {
        L"apphelp.dll", L"cryptbase.dll", L"cryptsp.dll",  L"dwmapi.dll",  L"iphlpapi.dll",
        L"nsi.dll",     L"ntmarta.dll",   L"profapi.dll",  L"propsys.dll", L"rpcrtremote.dll",
        L"secur32.dll", L"sspicli.dll",   L"taskschd.dll", L"uxtheme.dll", L"version.dll",
        L"winnsi.dll",  L"wldp.dll",      L"xmllite.dll",  L"clbcatq.dll"};
    const ObservedRun clean = Observe(program, L"", current.Path);
    ASSERT_THAT(clean.libraries, Not(IsEmpty()));
    for (const std::wstring& library : clean.libraries) {
        names.insert(LowerCase(fs::path(library).filename()));
    }
    for (const std::wstring& name : names) {
        for (const fs::path& directory : {machine.ProgramDirectory(), OtherPlace::Path}) {
            fs::copy_file(test::BesideThisProgram(L"stand_in_planted_library.dll"),
                          directory / name, fs::copy_options::overwrite_existing);
        }
    }
    std::vector<std::wstring> elsewhere;
    const std::wstring windows = LowerCase(SystemDirectory().parent_path()) + L"\\";
    for (const std::wstring& library : Observe(program, L"", current.Path).libraries) {
        if (!LowerCase(library).starts_with(windows)) {
            elsewhere.push_back(library);
        }
    }
    EXPECT_THAT(elsewhere, IsEmpty());
}

// The system chooses an address for each file, not for each start.
TEST(OnWindows, TwoCopiesOfTheProgramAreAtTwoAddresses) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine loads a program where its file asks for";
    }
    const Machine machine;
    const fs::path program = machine.ProgramDirectory() / L"Finaset.exe";
    const fs::path copy = machine.ProgramDirectory() / L"Copy.exe";
    fs::copy_file(program, copy);
    const void* first = Observe(program, L"/?", machine.ProgramDirectory()).base;
    const void* second = Observe(copy, L"/?", machine.ProgramDirectory()).base;
    EXPECT_NE(first, second);
    const auto preferred =
        reinterpret_cast<const void*>(HeadersOf(program).OptionalHeader.ImageBase);
    EXPECT_NE(first, preferred);
    EXPECT_NE(second, preferred);
}

TEST(OnWindows, TheProgramsFileRequestsEveryProtection) {
    const DWORD has =
        HeadersOf(test::BesideThisProgram(L"Finaset.exe")).OptionalHeader.DllCharacteristics;
    for (const int flag :
         {IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA, IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE,
          IMAGE_DLLCHARACTERISTICS_NX_COMPAT}) {
        EXPECT_NE(has & static_cast<DWORD>(flag), 0U) << flag;
    }
}

TEST(OnWindows, TheSchedulerReturnsTheIdleTaskAndHasLostTheObsoleteOne) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine's Task Scheduler loses the program of a task";
    }
    Machine machine;
    machine.InstallProduct();
    Machine::ScheduleTask(StartupTask);
    EXPECT_THAT(machine.Run(L"/CONFIGURE").log, Not(HasSubstr("====> FAILED")));
    EXPECT_THAT(machine.Describe().tasks, ElementsAre(IdleTask));
    EXPECT_THAT(
        Shell(L"schtasks.exe /query /xml /tn \"" + std::wstring(IdleTask) + L"\""),
        AllOf(HasSubstr("<Command>C:\\Program Files\\Tarsel\\Lumetra\\VxIdleTask.exe</Command>"),
              HasSubstr("<GroupId>S-1-5-32-544</GroupId>"), HasSubstr("<IdleTrigger>")));
}

TEST(OnWindows, TheSchedulerRefusesATaskFromADirectoryWithAnAmpersand) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine takes XML that is not well formed";
    }
    const Machine machine(L"C:\\R & D");
    EXPECT_THAT(machine.Run(L"/CONFIGURE").log, HasSubstr("====> FAILED"));
    EXPECT_THAT(machine.Describe().tasks, IsEmpty());
}

// Denies administrators one right to a service, while it lives.
class RefusedRight {
public:
    // `right` is in the platform's notation.
    RefusedRight(const std::wstring& service, const std::wstring& right) : service_(service) {
        Set(L"(D;;" + right + L";;;BA)");
    }
    RefusedRight(const RefusedRight&) = delete;
    RefusedRight& operator=(const RefusedRight&) = delete;
    ~RefusedRight() { Set(L""); }

private:
    void Set(const std::wstring& refusal) const {
        const std::wstring list = L"D:" + refusal +
                                  L"(A;;CCDCLCSWRPWPDTLOCRSDRCWDWO;;;BA)"
                                  L"(A;;CCDCLCSWRPWPDTLOCRSDRCWDWO;;;SY)";
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ::ConvertStringSecurityDescriptorToSecurityDescriptorW(list.c_str(), SDDL_REVISION_1,
                                                               &descriptor, nullptr);
        const Utils::ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
        const Utils::ServiceHandle service(
            ::OpenServiceW(manager.Get(), service_.c_str(), WRITE_DAC));
        ::SetServiceObjectSecurity(service.Get(), DACL_SECURITY_INFORMATION, descriptor);
        ::LocalFree(descriptor);
    }

    std::wstring service_;
};

TEST(OnWindows, AServiceThatRefusesToBeStoppedFailsAndKeepsRunning) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine's services have no access lists";
    }
    Machine machine;
    machine.InstallProduct();
    machine.Service(L"Corvo").Start();
    const RefusedRight refused(L"Corvo", L"WP");
    EXPECT_THAT(machine.Run(L"/STOP").log, HasSubstr("Stopping Corvo....stop failed!\r\n"));
    EXPECT_EQ(machine.Service(L"Corvo").Describe().state, DWORD{SERVICE_RUNNING});
}

TEST(OnWindows, AServiceThatRefusesToBeStartedFailsAndTheNextOneIsStarted) {
    if (test::OnWine()) {
        GTEST_SKIP() << "Wine's services have no access lists";
    }
    Machine machine;
    machine.InstallProduct();
    const std::wstring name = L"Tarsel Nimbus Network Service";
    const RefusedRight refused(name, L"RP");
    const std::string log = machine.Run(L"/START").log;
    EXPECT_THAT(log, HasSubstr("Starting Tarsel Nimbus Network Service....start failed!\r\n"));
    EXPECT_EQ(machine.Service(name).Describe().state, DWORD{SERVICE_STOPPED});
    EXPECT_THAT(log, HasSubstr("....started\r\n"));
}

bool IsLocalSystem() {
    DWORD size = SECURITY_MAX_SID_SIZE;
    std::vector<std::byte> system(size);
    BOOL member = FALSE;
    return ::CreateWellKnownSid(WinLocalSystemSid, nullptr, system.data(), &size) &&
           ::CheckTokenMembership(nullptr, system.data(), &member) && member;
}

TEST(OnWindows, AnElevatedAdministratorCannotAskTheApplicationToQuit) {
    if (test::OnWine()) {
        GTEST_SKIP() << "on Wine everybody may start a program with another's token";
    }
    if (IsLocalSystem()) {
        GTEST_SKIP() << "this is Local System, who can";
    }
    Machine machine;
    machine.InstallProduct();
    const KernelHandle application = machine.StartProduct();
    EXPECT_THAT(machine.Run(L"/STOP").log, HasSubstr("Success=False"));
    EXPECT_FALSE(test::Ended(application, std::chrono::milliseconds(0)));
}

// Three runs for the report: their logs, and the output of finaset-verify after each.
TEST(RealRuns, LeaveTheirLogs) {
    const wchar_t* report = _wgetenv(L"FINASET_REPORT");
    if (report == nullptr) {
        GTEST_SKIP() << "FINASET_REPORT does not say where to";
    }
    const fs::path logs = fs::path(report) / L"logs";
    Machine machine;
    const auto keep = [&](const std::wstring& name) {
        std::string log = machine.Run().log;
        test::PutFile(logs / (name + L".log"), log);
        const fs::path verifier = test::BesideThisProgram(L"finaset-verify.exe");
        if (fs::exists(verifier)) {
            const fs::path answer = logs / (name + L".verify.txt");
            SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
            const KernelHandle file(::CreateFileW(answer.c_str(), GENERIC_WRITE, FILE_SHARE_READ,
                                                  &inheritable, CREATE_ALWAYS,
                                                  FILE_ATTRIBUTE_NORMAL, nullptr));
            fs::copy_file(verifier, machine.ProgramDirectory() / L"finaset-verify.exe",
                          fs::copy_options::overwrite_existing);
            test::RunToEnd(
                L"\"" + (machine.ProgramDirectory() / L"finaset-verify.exe").wstring() + L"\"",
                file.Get());
        }
        return log;
    };
    machine.InstallProduct();
    const KernelHandle application = machine.StartProduct();
    EXPECT_THAT(keep(L"first-installation"), testing::EndsWith("FIRST RUN - FINISHED\r\n"));
    test::Ended(application, QuitLimit);
    EXPECT_THAT(keep(L"reinstallation"), testing::EndsWith("FIRST RUN - FINISHED\r\n"));
    test::RemoveAll(Machine::DataDirectory());
    const OtherPlace target;
    const test::DirectoryLink link(Machine::DataDirectory(), OtherPlace::Path);
    EXPECT_THAT(keep(L"insecure-machine"), HasSubstr("Uninstalling Product"));
}

}  // namespace
