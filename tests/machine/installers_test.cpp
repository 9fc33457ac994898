// The two installers, run silently as in a rollout: they install the product, run the program, and
// remove everything again.

#include "machine/machine.h"
#include "shared/find_function.h"
#include "shared/owner.h"
#include "support/call_log.h"
#include "support/expected_log.h"
#include "support/file_contents.h"
#include "support/installed_service.h"
#include "support/on_wine.h"
#include "support/registry_contents.h"

#include <windows.h>

#include <commctrl.h>
#include <tlhelp32.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace test;  // the expected log
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::SizeIs;

const std::wstring Version = L"" FINASET_VERSION;
const std::wstring NextVersion = L"" FINASET_NEXT_VERSION;

constexpr wchar_t UninstallKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr DWORD Stopped = SERVICE_STOPPED;
constexpr DWORD Running = SERVICE_RUNNING;
constexpr DWORD NotThere = 0;
constexpr std::chrono::seconds QuitLimit{10};      // for an application that was asked to quit
constexpr std::chrono::minutes UninstallLimit{3};  // for an uninstaller that continues by itself

// Waits for all programs with this file name.
void WaitForPrograms(std::wstring_view name) {
    const Utils::FileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = ::Process32FirstW(snapshot.Get(), &entry); more;
         more = ::Process32NextW(snapshot.Get(), &entry)) {
        if (entry.szExeFile == name) {
            const Utils::KernelHandle process(
                ::OpenProcess(SYNCHRONIZE, FALSE, entry.th32ProcessID));
            EXPECT_TRUE(!process || Ended(process, UninstallLimit));
        }
    }
}

// How to call an installer.
struct Installer {
    const char* name;
    DWORD (*install)(const std::wstring& version, const std::wstring& arguments);
    DWORD (*uninstall)(const std::wstring& version);
    std::wstring repair;                 // what turns an installation into a repair
    std::wstring elsewhere;              // what selects another directory, if possible
    std::vector<std::wstring> ownFiles;  // that it leaves among the product's
    std::wstring unverified;             // what installs whatever the machine is like
    DWORD failure;                       // its exit code
    std::string mark;                    // before the actions' lines in its log
};

void PrintTo(const Installer& installer, std::ostream* out) {
    *out << installer.name;
}

// Those for tests, whose verifier knows that Wine makes access control lists up.
std::wstring Package(const std::wstring& version, const std::wstring& ending) {
    return L"\"" + BesideThisProgram(L"Finaset-trial-" + version + ending) + L"\"";
}

// The installer's own log.
constexpr wchar_t InstallerLog[] = L"C:\\installer.log";

DWORD RunMsi(const std::wstring& action, const std::wstring& package,
             const std::wstring& arguments = {}) {
    return RunToEnd(L"msiexec.exe " + action + L' ' + package + L" /qn /norestart /l*v " +
                    InstallerLog + L' ' + arguments);
}

DWORD InstallMsi(const std::wstring& version, const std::wstring& arguments) {
    return RunMsi(L"/i", Package(version, L".msi"), arguments);
}

DWORD UninstallMsi(const std::wstring& version) {
    return RunMsi(L"/x", Package(version, L".msi"));
}

DWORD InstallNsis(const std::wstring& version, const std::wstring& arguments) {
    std::filesystem::remove(InstallerLog);  // it would be continued
    return RunToEnd(Package(version, L"-setup.exe") + L" /S /LOG=" + InstallerLog + L' ' +
                    arguments);
}

DWORD UninstallNsis(const std::wstring& /*version*/) {
    const DWORD exitCode = RunToEnd(L"\"C:\\Program Files\\Tarsel\\Lumetra\\Uninstall.exe\" /S");
    WaitForPrograms(L"Un.exe");  // a copy of itself, in which it continues
    return exitCode;
}

const Installer Msi = {.name = "Msi",
                       .install = &InstallMsi,
                       .uninstall = &UninstallMsi,
                       .repair = L"REINSTALL=ALL REINSTALLMODE=amus",
                       .elsewhere = L"INSTALLDIR=C:\\Elsewhere",
                       .ownFiles = {},
                       .unverified = L"FINASET_VERIFY=0",
                       .failure = ERROR_INSTALL_FAILURE,
                       .mark = "Finaset: "};
const Installer Nsis = {.name = "Nsis",
                        .install = &InstallNsis,
                        .uninstall = &UninstallNsis,
                        .repair = {},
                        .elsewhere = L"/D=C:\\Elsewhere",
                        .ownFiles = {L"Uninstall.exe"},
                        .unverified = L"/VERIFY=0",
                        .failure = 2,
                        .mark = ""};

std::string NameOf(const testing::TestParamInfo<Installer>& installer) {
    return installer.param.name;
}

// The state of each of the product's services, by its name.
std::map<std::wstring, DWORD> ServiceStates() {
    const Utils::ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    std::map<std::wstring, DWORD> states;
    for (const std::wstring& name : ProductServices()) {
        const Utils::ServiceHandle service(
            ::OpenServiceW(manager.Get(), name.c_str(), SERVICE_QUERY_STATUS));
        SERVICE_STATUS status = {};
        states[name] = service && ::QueryServiceStatus(service.Get(), &status)
                           ? status.dwCurrentState
                           : NotThere;
    }
    return states;
}

// The versions of the product that are listed as installed.
std::vector<std::wstring> InstalledVersions() {
    const auto text = [](const std::wstring& key, const wchar_t* name) -> std::wstring {
        wchar_t buffer[256] = {};
        DWORD size = sizeof(buffer);
        ::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_SZ, nullptr, buffer,
                       &size);
        return buffer;
    };
    std::vector<std::wstring> versions;
    HKEY entries = nullptr;
    ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, UninstallKey, 0, KEY_READ, &entries);
    wchar_t entry[256] = {};
    for (DWORD index = 0; ::RegEnumKeyW(entries, index, entry, std::size(entry)) == ERROR_SUCCESS;
         ++index) {
        const std::wstring key = std::wstring(UninstallKey) + L"\\" + entry;
        if (text(key, L"DisplayName") == L"Tarsel Lumetra") {
            versions.push_back(text(key, L"DisplayVersion"));
        }
    }
    ::RegCloseKey(entries);
    return versions;
}

// The files in a directory, sorted, but for the stand-ins' own records and the logs of other runs.
std::vector<std::wstring> FilesIn(const std::filesystem::path& directory) {
    std::vector<std::wstring> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        const std::wstring name = entry.path().filename();
        if (!name.ends_with(L".started") &&
            (name == L"finaset.log" || !name.starts_with(L"finaset-") ||
             !name.ends_with(L".log"))) {
            files.push_back(name);
        }
    }
    std::ranges::sort(files);
    return files;
}

// What a version installs in the program's directory, with the log.
std::vector<std::wstring> FilesOf(const std::wstring& version,
                                  const std::vector<std::wstring>& others) {
    std::vector<std::wstring> files = {L"BriskoLU.exe",
                                       L"Finaset.exe",
                                       L"ProductService.exe",
                                       L"Quitline.exe",
                                       L"Unfinaset.exe",
                                       L"VxIdleTask.exe",
                                       L"ZEFIR.exe",
                                       L"finaset-verify.exe",
                                       L"finaset.log",
                                       L"ReleaseNotes-" + version + L".txt",
                                       L"THIRD-PARTY-NOTICES.txt"};
    files.insert(files.end(), others.begin(), others.end());
    std::ranges::sort(files);
    return files;
}

// The configuration files that the installers bring.
const std::set<std::wstring> ShippedFiles = {L"oem.xml", L"user.xml", L"vx.stg"};

// The data of a machine that was configured by a version the first time.
std::map<std::wstring, std::string> ConfigurationOf(const std::wstring& version) {
    std::map<std::wstring, std::string> files;
    for (const std::wstring& name : ShippedFiles) {
        const std::wstring content = name + L" of " + version;
        files[L"Nimbus\\ConfigurationFiles\\" + name] = {content.begin(), content.end()};
    }
    return files;
}

class Installers : public testing::TestWithParam<Installer> {
protected:
    Installers() {
        RemoveAll(VendorDirectory());
        if (OnWine()) {
            SetWindowsBuild(L"19045");  // Wine says 7601, which the installers refuse
        }
    }

    static void SetWindowsBuild(const std::wstring& build) {
        PutValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion",
                 L"CurrentBuildNumber", TextValue(build));
    }

    void TearDown() override {
        for (const std::wstring& version : InstalledVersions()) {
            GetParam().uninstall(version);
        }
    }

    [[nodiscard]] std::filesystem::path VendorDirectory() const {
        return machine.ProgramDirectory().parent_path();
    }

    static DWORD Install(const std::wstring& version, const std::wstring& arguments = {}) {
        return GetParam().install(version, arguments);
    }

    [[nodiscard]] std::string Log() const {
        return FileText(machine.ProgramDirectory() / L"finaset.log").value();
    }

    // The product is installed in this version, once, and runs.
    void ExpectInstalled(const std::wstring& version) const {
        EXPECT_THAT(InstalledVersions(), ElementsAre(version));
        EXPECT_EQ(FilesIn(machine.ProgramDirectory()), FilesOf(version, GetParam().ownFiles));
        EXPECT_THAT(FilesIn(Machine::DriverDirectory()), ElementsAreArray(ShippedFiles));
        std::vector<std::wstring> running = {L"BriskoLU.exe"};
        for (const auto& [name, serviceState] : ServiceStates()) {
            EXPECT_EQ(serviceState, IsStarted(name) ? Running : Stopped)
                << testing::PrintToString(name);
            running.resize(running.size() + (IsStarted(name) ? 1 : 0), L"ProductService.exe");
        }
        const MachineState state = machine.Describe();
        EXPECT_EQ(state.applications, running);
        EXPECT_EQ(state.settings, Configured({}));
        EXPECT_EQ(state.tasks, ProductTasks());
        EXPECT_EQ(state.hardwareBitmask, 0U);
    }

    // The product is not installed, and nothing of it runs. Its logs and data stay.
    void ExpectNotInstalled() const {
        EXPECT_THAT(InstalledVersions(), IsEmpty());
        EXPECT_THAT(ServiceStates(), Each(testing::Pair(testing::_, NotThere)));
        EXPECT_FALSE(std::filesystem::exists(machine.ProgramDirectory() / L"ZEFIR.exe"));
        EXPECT_THAT(machine.Describe().applications, IsEmpty());
        EXPECT_THAT(machine.Describe().tasks, Not(Contains(L"VxIdle Task")));
    }

    // The lines of the installer's log that the product's actions have written.
    [[nodiscard]] static std::vector<std::string> LinesOfActions() {
        // In UTF-16; Wine's Windows Installer writes bytes.
        std::string text = FileText(InstallerLog).value();
        if (text.starts_with("\xFF\xFE")) {
            text.erase(0, 2);
        }
        std::erase_if(text, [](char character) { return character == '\0'; });
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            std::size_t start = line.find(GetParam().mark);
            if (start != std::string::npos) {
                start += GetParam().mark.size();
                lines.push_back(line.substr(start, line.find('\r') - start));
            }
        }
        return lines;
    }

    Machine machine;
};

// All services exist, and none of them runs.
Course Installation(bool first) {
    return {.verdicts = NothingRuns,
            .staleSettings = false,
            .configured = !first,
            .shipped = ShippedFiles};
}

TEST_P(Installers, RunTheProgramAsTheirLastStepAndKeepItsLog) {
    EXPECT_EQ(Install(Version), 0U);
    EXPECT_EQ(Log(), LogOf(Installation(/*first=*/true)));
    ExpectInstalled(Version);
    EXPECT_EQ(machine.Describe().dataFiles, ConfigurationOf(Version));
    const std::wstring verifier = machine.ProgramDirectory() / L"finaset-verify.exe";
    EXPECT_EQ(::_wsystem((L"\"\"" + verifier + L"\" /START > NUL\"").c_str()), 0);
}

TEST_P(Installers, ReplaceAnOlderVersionThatIsInUseAndKeepItsUsersConfiguration) {
    ASSERT_EQ(Install(Version), 0U);
    const Utils::KernelHandle application = machine.StartApplication(L"ZEFIR.exe");
    PutFile(Machine::ConfigurationDirectory() / L"user.xml", "the user's own");

    EXPECT_EQ(Install(NextVersion), 0U);
    EXPECT_TRUE(Ended(application, QuitLimit));
    // The older version was asked to stop before it was removed.
    EXPECT_EQ(Log(), LogOf(Installation(/*first=*/false)));
    ExpectInstalled(NextVersion);
    auto expected = ConfigurationOf(NextVersion);
    expected[L"Nimbus\\ConfigurationFiles\\user.xml"] = "the user's own";
    EXPECT_EQ(machine.Describe().dataFiles, expected);
}

// The companion is running, and has the log of the installation open.
TEST_P(Installers, RepairAnInstallationThatIsInUse) {
    ASSERT_EQ(Install(Version), 0U);
    machine.RemoveProgram(L"ZEFIR.exe");

    EXPECT_EQ(Install(Version, GetParam().repair), 0U);
    EXPECT_EQ(Log(), LogOf(Installation(/*first=*/false)));
    ExpectInstalled(Version);
}

TEST_P(Installers, InstallNowhereElse) {
    EXPECT_EQ(Install(Version, GetParam().elsewhere), 0U);
    EXPECT_FALSE(std::filesystem::exists(L"C:\\Elsewhere"));
    ExpectInstalled(Version);
}

TEST_P(Installers, RemoveWhatTheyInstalledAndLeaveTheProductsData) {
    ASSERT_EQ(Install(Version), 0U);
    ASSERT_THAT(machine.StartsOf(L"BriskoLU.exe"), SizeIs(1));
    machine.RemoveProgram(L"BriskoLU.exe.started");  // the stand-in's own record

    EXPECT_EQ(GetParam().uninstall(Version), 0U);
    EXPECT_THAT(InstalledVersions(), IsEmpty());
    EXPECT_THAT(ServiceStates(), Each(testing::Pair(testing::_, NotThere)));
    EXPECT_FALSE(std::filesystem::exists(VendorDirectory()));
    EXPECT_FALSE(std::filesystem::exists(Machine::DriverDirectory().parent_path()));
    const MachineState state = machine.Describe();
    EXPECT_THAT(state.applications, IsEmpty());
    EXPECT_THAT(state.settings, IsEmpty());
    EXPECT_THAT(state.tasks, Not(Contains(L"VxIdle Task")));  // they own its program
    EXPECT_EQ(state.dataFiles, ConfigurationOf(Version));
}

TEST_P(Installers, RefuseToReplaceALaterVersion) {
    ASSERT_EQ(Install(NextVersion), 0U);
    EXPECT_EQ(Install(Version), GetParam().failure);
    ExpectInstalled(NextVersion);
}

TEST_P(Installers, WriteEachLineOfTheLogIntoTheirOwn) {
    ASSERT_EQ(Install(Version), 0U);
    std::vector<std::string> expected;
    std::istringstream log(Log());
    for (std::string line; std::getline(log, line);) {
        line.erase(line.find_last_not_of("\r\n") + 1);
        // Wine's Windows Installer takes them for names of properties, though they are in a field.
        const bool cut = OnWine() && GetParam().install == &InstallMsi;
        for (std::size_t open = 0; cut && (open = line.find('[')) != std::string::npos;) {
            line.erase(open, line.find(']', open) - open + 1);
        }
        if (!line.empty()) {
            expected.push_back(line);
        }
    }
    const std::vector<std::string> lines = LinesOfActions();
    const auto first = std::ranges::find(lines, "FIRST RUN - START");
    const auto last = std::ranges::find(lines, "FIRST RUN - FINISHED");
    ASSERT_NE(last, lines.end());
    // In it a byte that is not ASCII is another one.
    std::vector<std::string> found(first, last + 1);
    for (std::vector<std::string>* each : {&expected, &found}) {
        for (std::string& line : *each) {
            std::ranges::replace_if(
                line, [](char character) { return character < 0; }, '?');
        }
    }
    EXPECT_THAT(found, ElementsAreArray(expected));
}

// A companion of a version whose log nobody else could rename.
TEST_P(Installers, RunTheProgramThoughAnEarlierCompanionHasTheLogOpen) {
    std::filesystem::create_directories(machine.ProgramDirectory());
    machine.InstallProgram(L"Finaset.exe", L"Finaset.exe");
    machine.InstallProgram(L"stand_in_companion.exe", L"BriskoLU.exe");
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    {
        const Utils::FileHandle log(
            ::CreateFileW((machine.ProgramDirectory() / L"finaset.log").c_str(), GENERIC_WRITE,
                          FILE_SHARE_READ, &inheritable, CREATE_ALWAYS, 0, nullptr));
        ASSERT_EQ(machine.Run(L"/START", log.Get()), 0U);
    }
    ASSERT_THAT(machine.Describe().applications, ElementsAre(L"BriskoLU.exe"));

    EXPECT_EQ(Install(Version), 0U);
    EXPECT_EQ(Log(), LogOf(Installation(/*first=*/true)));
    ExpectInstalled(Version);
}

TEST_P(Installers, FailOnAnInsecureMachineUnlessToldNotToVerify) {
    PutFile(L"C:\\victim", "victim");
    const std::filesystem::path link = Machine::DataDirectory() / L"Nimbus\\link";
    std::filesystem::create_directories(link.parent_path());
    ASSERT_TRUE(::CreateHardLinkW(link.c_str(), L"C:\\victim", nullptr));

    EXPECT_EQ(Install(Version), GetParam().failure);
    ExpectNotInstalled();
    EXPECT_THAT(
        LinesOfActions(),
        Contains(testing::AllOf(testing::HasSubstr("DIFFERS  directory"),
                                testing::HasSubstr("C:\\ProgramData\\Tarsel\\Nimbus\\link"))));
    EXPECT_EQ(Install(Version, GetParam().unverified), 0U);
    EXPECT_THAT(InstalledVersions(), ElementsAre(Version));
    std::filesystem::remove(L"C:\\victim");
}

TEST_P(Installers, RunNothingIfTheDataDirectoryIsALink) {
    std::filesystem::create_directory(L"C:\\elsewhere");
    {
        const DirectoryLink link(Machine::DataDirectory(), L"C:\\elsewhere");
        EXPECT_EQ(Install(Version), GetParam().failure);
    }
    ExpectNotInstalled();
    EXPECT_THAT(LinesOfActions(), Contains("C:\\ProgramData\\Tarsel is a link"));
    EXPECT_FALSE(std::filesystem::exists(machine.ProgramDirectory() / L"finaset.log"));
    EXPECT_TRUE(std::filesystem::is_empty(L"C:\\elsewhere"));
    std::filesystem::remove(L"C:\\elsewhere");
}

TEST_P(Installers, RunNothingIfADataDirectoryBelongsToSomebodyElse) {
    for (const std::filesystem::path& directory :
         {Machine::DataDirectory(), Machine::DataDirectory() / L"Nimbus"}) {
        std::filesystem::create_directories(directory);
        if (!GiveToSomebodyElse(directory)) {
            GTEST_SKIP() << "no directory can be given to somebody else here";
        }
        EXPECT_EQ(Install(Version), GetParam().failure);
        EXPECT_THAT(LinesOfActions(),
                    Contains(Narrow(directory.wstring()) +
                             " belongs neither to Administrators nor to Local System"));
        EXPECT_FALSE(std::filesystem::exists(machine.ProgramDirectory() / L"finaset.log"));
        std::filesystem::remove_all(Machine::DataDirectory());
    }
    ExpectNotInstalled();
}

TEST_P(Installers, RefuseAnOlderWindows) {
    if (!OnWine()) {
        GTEST_SKIP() << "this Windows is not an older one";
    }
    SetWindowsBuild(L"9600");
    EXPECT_EQ(Install(Version), GetParam().failure);
    ExpectNotInstalled();
}

TEST_P(Installers, RegisterTheSourcesOfEventsAndLeaveThem) {
    constexpr wchar_t Application[] = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application";
    ASSERT_EQ(Install(Version), 0U);
    ASSERT_EQ(GetParam().uninstall(Version), 0U);
    for (const wchar_t* name : {L"Tarsel Nimbus Network Service", L"Tarsel Nimbus CInstall"}) {
        const std::wstring key = std::wstring(Application) + L'\\' + name;
        EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, key, L"EventMessageFile"),
                  TextValue(L"%SystemRoot%\\System32\\EventCreate.exe", REG_EXPAND_SZ));
        EXPECT_EQ(ValueOf(HKEY_LOCAL_MACHINE, key, L"TypesSupported"), DwordValue(7));
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
    }
}

INSTANTIATE_TEST_SUITE_P(All, Installers, testing::Values(Msi, Nsis), NameOf);

class MsiInstaller : public Installers {};

TEST_P(MsiInstaller, LeavesNothingBehindWhenItFailsAndSucceedsTheNextTime) {
    EXPECT_EQ(Install(Version, L"FAIL=1"), DWORD{ERROR_INSTALL_FAILURE});
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"), SizeIs(1));  // it had come as far as that
    ExpectNotInstalled();

    EXPECT_EQ(Install(Version), 0U);
    ExpectInstalled(Version);
    EXPECT_EQ(Log(), LogOf(Installation(/*first=*/false)));
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"), SizeIs(2));
}

TEST_P(MsiInstaller, StartsWhatRanAgainWhenARepairFails) {
    if (OnWine()) {
        GTEST_SKIP() << "Wine does not roll a repair back";
    }
    ASSERT_EQ(Install(Version), 0U);
    EXPECT_EQ(Install(Version, GetParam().repair + L" FAIL=1"), DWORD{ERROR_INSTALL_FAILURE});
    ExpectInstalled(Version);
}

TEST_P(MsiInstaller, KeepsTheLogsOfEarlierRuns) {
    ASSERT_EQ(Install(Version), 0U);
    const std::string first = Log();
    ASSERT_EQ(Install(Version, GetParam().repair), 0U);
    EXPECT_EQ(FileText(machine.ProgramDirectory() / L"finaset-1.log"), first);
    EXPECT_TRUE(std::filesystem::exists(machine.ProgramDirectory() / L"finaset-stop.log"));
    EXPECT_TRUE(std::filesystem::exists(machine.ProgramDirectory() / L"finaset-verify.log"));
}

// On Wine, none is: it makes up the access control lists that are read.
TEST_P(MsiInstaller, ShippedAsItIsInstallsOnAMachineThatItsVerifierFindsInOrder) {
    const std::wstring package = L'"' + BesideThisProgram(L"Finaset-" + Version + L".msi") + L'"';
    if (OnWine()) {
        EXPECT_EQ(RunMsi(L"/i", package), DWORD{ERROR_INSTALL_FAILURE});
        ExpectNotInstalled();
        EXPECT_THAT(LinesOfActions(), Contains(testing::HasSubstr(" 4 DIFFERS, 0 UNKNOWN")));
        EXPECT_EQ(RunMsi(L"/i", package, L"FINASET_VERIFY=0"), 0U);
    } else {
        EXPECT_EQ(RunMsi(L"/i", package), 0U);
    }
    ExpectInstalled(Version);
    EXPECT_EQ(RunMsi(L"/x", package), 0U);
}

TEST_P(MsiInstaller, DoesNotWaitForEverForAnApplicationThatDoesNotQuit) {
    ASSERT_EQ(Install(Version), 0U);
    const Utils::KernelHandle application =
        machine.StartApplication(L"ZEFIR.exe", L"not the title to which a request to quit goes");
    // Its file cannot be replaced, except on Wine.
    EXPECT_EQ(Install(Version, GetParam().repair),
              OnWine() ? ERROR_SUCCESS : DWORD{ERROR_SUCCESS_REBOOT_REQUIRED});
    EXPECT_FALSE(Ended(application, 0ms));
    EXPECT_THAT(LinesOfActions(), Contains("ZEFIR.exe does not quit"));
    EXPECT_THAT(Log(), testing::EndsWith("FIRST RUN - FINISHED\r\n"));
    ::TerminateProcess(application.Get(), 0);
}

TEST_P(MsiInstaller, EndsNobodyElsesCompanion) {
    std::filesystem::create_directory(L"C:\\other");
    std::filesystem::copy_file(BesideThisProgram(L"stand_in_companion.exe"),
                               L"C:\\other\\BriskoLU.exe");
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    ASSERT_TRUE(::CreateProcessW(L"C:\\other\\BriskoLU.exe", nullptr, nullptr, nullptr, FALSE,
                                 DETACHED_PROCESS, nullptr, nullptr, &startup, &info));
    const Utils::KernelHandle thread(info.hThread);
    const Utils::KernelHandle other(info.hProcess);
    EXPECT_EQ(Install(Version), 0U);
    EXPECT_EQ(GetParam().uninstall(Version), 0U);
    EXPECT_FALSE(Ended(other, 0ms));
    ::TerminateProcess(other.Get(), 0);
    EXPECT_TRUE(Ended(other, QuitLimit));
    std::filesystem::remove_all(L"C:\\other");
}

TEST_P(MsiInstaller, ReplacesTheSameVersionOfAnotherPackage) {
    ASSERT_EQ(Install(Version), 0U);
    const std::wstring package = L'"' + BesideThisProgram(L"Finaset-" + Version + L".msi") + L'"';
    EXPECT_EQ(RunMsi(L"/i", package, OnWine() ? L"FINASET_VERIFY=0" : L""), 0U);
    ExpectInstalled(Version);
    EXPECT_EQ(RunMsi(L"/x", package), 0U);
}

// The installers' actions, called as NSIS does.
class Actions : public testing::Test {
protected:
    Actions() { machine.InstallProduct(); }

    // Returns the action's result; its lines are in `lines`.
    UINT Run(const wchar_t* name) { return Run(name, machine.ProgramDirectory()); }

    UINT Run(const wchar_t* name, const std::wstring& directory) {
        const auto run = Utils::FindFunction<UINT WINAPI(const wchar_t*, const wchar_t*)>(
            library_.Get(), "RunAction");
        const auto next = Utils::FindFunction<UINT WINAPI(wchar_t*)>(library_.Get(), "NextLine");
        const UINT result = run(name, directory.c_str());
        wchar_t line[1024] = {};
        for (lines.clear(); next(line) != 0;) {
            lines.push_back(Narrow(line));
        }
        return result;
    }

    Machine machine;
    std::vector<std::string> lines;

private:
    const Utils::Library library_{
        ::LoadLibraryW(BesideThisProgram(L"finaset-actions.dll").c_str())};
};

TEST_F(Actions, StartTheProductAfterAnInstallationWasRolledBack) {
    EXPECT_EQ(Run(L"StartProduct"), 0U);
    EXPECT_EQ(lines.back(), "FIRST RUN - FINISHED");
    EXPECT_THAT(machine.Describe().applications, Contains(L"BriskoLU.exe"));
    EXPECT_EQ(FileText(machine.ProgramDirectory() / L"finaset-start.log"), LogOf({.actions = 8}));
}

TEST_F(Actions, FailIfTheProgramWasNotRun) {
    machine.InstallProgram(L"stand_in_quit_helper.exe", L"Finaset.exe");
    EXPECT_EQ(Run(L"RunFinaset"), UINT{ERROR_INSTALL_FAILURE});
    EXPECT_EQ(lines.back(), "Finaset.exe has ended with code 1");

    machine.RemoveProgram(L"Finaset.exe");
    EXPECT_EQ(Run(L"RunFinaset"), UINT{ERROR_INSTALL_FAILURE});
    EXPECT_EQ(lines.back(),
              "C:\\Program Files\\Tarsel\\Lumetra\\Finaset.exe cannot be started: error 2");

    EXPECT_EQ(Run(L"RunFinaset", L"C:\\nowhere\\"), UINT{ERROR_INSTALL_FAILURE});
    EXPECT_EQ(lines.back(), "C:\\nowhere\\finaset.log cannot be created: error 3");
}

TEST_F(Actions, KeepAtMostFiveOlderLogs) {
    const std::filesystem::path logs = machine.ProgramDirectory();
    for (const wchar_t* name : {L"", L"-1", L"-2", L"-3", L"-4", L"-5"}) {
        PutFile(logs / (std::wstring(L"finaset-start") + name + L".log"), Narrow(name));
    }
    ASSERT_EQ(Run(L"StartProduct"), 0U);
    EXPECT_EQ(FileText(logs / L"finaset-start-1.log"), "");
    EXPECT_EQ(FileText(logs / L"finaset-start-5.log"), "-4");
    EXPECT_FALSE(std::filesystem::exists(logs / L"finaset-start-6.log"));
}

INSTANTIATE_TEST_SUITE_P(All, MsiInstaller, testing::Values(Msi), NameOf);

// The texts of another process's list.
std::vector<std::wstring> TextsOf(HWND list, HANDLE process) {
    // The list fills in a record in its own process.
    struct Row {
        LVITEMW item;
        wchar_t text[1024];
    };
    void* const there = ::VirtualAllocEx(process, nullptr, sizeof(Row), MEM_COMMIT, PAGE_READWRITE);
    std::vector<std::wstring> texts;
    const auto count = static_cast<WPARAM>(::SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
    for (WPARAM index = 0; index < count; ++index) {
        Row row = {};
        row.item.pszText = static_cast<Row*>(there)->text;
        row.item.cchTextMax = std::size(row.text);
        ::WriteProcessMemory(process, there, &row, sizeof(row), nullptr);
        ::SendMessageW(list, LVM_GETITEMTEXTW, index, reinterpret_cast<LPARAM>(there));
        ::ReadProcessMemory(process, there, &row, sizeof(row), nullptr);
        texts.emplace_back(row.text);
    }
    return texts;
}

class NsisInstaller : public Installers {};

TEST_P(NsisInstaller, ShowsTheLogAmongItsDetails) {
    std::wstring commandLine = Package(Version, L"-setup.exe");
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    ASSERT_TRUE(::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE,
                                 DETACHED_PROCESS, nullptr, nullptr, &startup, &info));
    const Utils::KernelHandle thread(info.hThread);
    const Utils::KernelHandle setup(info.hProcess);
    constexpr int MostTries = 6000;  // 5 min
    HWND window = nullptr;
    for (int tries = 0; window == nullptr && tries < MostTries && !Ended(setup, 50ms); ++tries) {
        window = ::FindWindowW(nullptr, L"Tarsel Lumetra Setup: Completed");
    }
    if (window == nullptr) {
        ::TerminateProcess(setup.Get(), 1);  // it may ask for something that nobody answers
        FAIL() << "the setup does not complete";
    }
    const HWND page = ::FindWindowExW(window, nullptr, L"#32770", nullptr);
    const HWND list = ::FindWindowExW(page, nullptr, L"SysListView32", nullptr);
    std::vector<std::wstring> details = TextsOf(list, setup.Get());
    ::PostMessageW(window, WM_COMMAND, IDOK, 0);
    EXPECT_TRUE(Ended(setup, QuitLimit));

    EXPECT_THAT(details,
                IsSupersetOf({L"C:\\ProgramData\\Tarsel is created, with its access control list",
                              L"FIRST RUN - START", L"FIRST RUN - FINISHED"}));
}

TEST_P(NsisInstaller, RefusesToRunWithoutAnAdministratorsRights) {
    if (!OnWine()) {
        GTEST_SKIP() << "Windows does not even start it then";
    }
    HANDLE token = nullptr;
    ASSERT_TRUE(::OpenProcessToken(::GetCurrentProcess(), MAXIMUM_ALLOWED, &token));
    const Utils::KernelHandle own(token);
    BYTE administrators[SECURITY_MAX_SID_SIZE] = {};
    DWORD size = sizeof(administrators);
    ASSERT_TRUE(::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &size));
    SID_AND_ATTRIBUTES disabled = {administrators, 0};
    ASSERT_TRUE(
        ::CreateRestrictedToken(own.Get(), 0, 1, &disabled, 0, nullptr, 0, nullptr, &token));
    const Utils::KernelHandle restricted(token);

    std::wstring commandLine = Package(Version, L"-setup.exe") + L" /S /LOG=" + InstallerLog;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    ASSERT_TRUE(::CreateProcessAsUserW(restricted.Get(), nullptr, commandLine.data(), nullptr,
                                       nullptr, FALSE, DETACHED_PROCESS, nullptr, nullptr, &startup,
                                       &info));
    const Utils::KernelHandle thread(info.hThread);
    const Utils::KernelHandle setup(info.hProcess);
    ASSERT_TRUE(Ended(setup, UninstallLimit));
    DWORD exitCode = 0;
    ::GetExitCodeProcess(setup.Get(), &exitCode);
    EXPECT_EQ(exitCode, GetParam().failure);
    ExpectNotInstalled();
    EXPECT_THAT(LinesOfActions(), Contains("Tarsel Lumetra needs an administrator's rights."));
}

// Open as a virus scanner or a backup may have it.
class OpenFile {
public:
    explicit OpenFile(const std::filesystem::path& path)
        : file_(::CreateFileW(path.c_str(), GENERIC_READ, /*dwShareMode=*/0, nullptr, OPEN_EXISTING,
                              0, nullptr)) {
        EXPECT_TRUE(file_);
    }

private:
    Utils::FileHandle file_;
};

TEST_P(NsisInstaller, RunsNothingIfAFileCannotBeReplaced) {
    const std::filesystem::path path = Machine::DriverDirectory() / L"oem.xml";
    PutFile(path, "older");
    {
        const OpenFile file(path);
        EXPECT_EQ(Install(Version), GetParam().failure);
    }
    EXPECT_FALSE(std::filesystem::exists(machine.ProgramDirectory() / L"finaset.log"));
    ExpectNotInstalled();
    EXPECT_THAT(LinesOfActions(),
                Contains("Not everything could be written. The installation is undone."));
}

// What Finaset has started runs when the verifier says no.
TEST_P(NsisInstaller, LeavesNothingBehindWhenItFailsAndSucceedsTheNextTime) {
    const std::filesystem::path path = Machine::ConfigurationDirectory() / L"oem.xml";
    PutFile(path, "older");
    {
        const OpenFile file(path);
        EXPECT_EQ(Install(Version), GetParam().failure);
    }
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"), SizeIs(1));
    ExpectNotInstalled();
    EXPECT_THAT(LinesOfActions(), Contains(testing::HasSubstr("UNKNOWN  file")));

    EXPECT_EQ(Install(Version), 0U);
    ExpectInstalled(Version);
    EXPECT_THAT(machine.StartsOf(L"BriskoLU.exe"), SizeIs(2));
}

TEST_P(NsisInstaller, StaysInstalledIfTheApplicationDoesNotQuit) {
    ASSERT_EQ(Install(Version), 0U);
    const Utils::KernelHandle application =
        machine.StartApplication(L"ZEFIR.exe", L"not the title to which a request to quit goes");
    EXPECT_EQ(Install(NextVersion), GetParam().failure);
    EXPECT_THAT(LinesOfActions(),
                IsSupersetOf({"ZEFIR.exe does not quit",
                              "The product cannot be stopped, and stays installed.",
                              "The older version cannot be removed: error 2"}));
    ::TerminateProcess(application.Get(), 0);
    ASSERT_TRUE(Ended(application, QuitLimit));
    ExpectInstalled(Version);
}

INSTANTIATE_TEST_SUITE_P(All, NsisInstaller, testing::Values(Nsis), NameOf);

}  // namespace
