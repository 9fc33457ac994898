// The two installers, run silently as in a rollout: they install the product, run the program, and
// remove everything again.

#include "machine/machine.h"
#include "shared/owner.h"
#include "support/expected_log.h"
#include "support/file_contents.h"
#include "support/installed_service.h"

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
using testing::Not;
using testing::SizeIs;

const std::wstring Version = L"" FINASET_VERSION;
const std::wstring NextVersion = L"" FINASET_NEXT_VERSION;

constexpr wchar_t UninstallKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr DWORD Stopped = SERVICE_STOPPED;
constexpr DWORD Running = SERVICE_RUNNING;
constexpr DWORD NotThere = 0;
constexpr std::chrono::seconds QuitLimit{10};      // for an application that was asked to quit
constexpr std::chrono::minutes UninstallLimit{1};  // for an uninstaller that continues by itself

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
};

void PrintTo(const Installer& installer, std::ostream* out) {
    *out << installer.name;
}

std::wstring Package(const std::wstring& version, const std::wstring& ending) {
    return L"\"" + BesideThisProgram(L"Finaset-" + version + ending) + L"\"";
}

DWORD InstallMsi(const std::wstring& version, const std::wstring& arguments) {
    return RunToEnd(L"msiexec.exe /i " + Package(version, L".msi") + L" /qn " + arguments);
}

DWORD UninstallMsi(const std::wstring& version) {
    return RunToEnd(L"msiexec.exe /x " + Package(version, L".msi") + L" /qn");
}

DWORD InstallNsis(const std::wstring& version, const std::wstring& arguments) {
    return RunToEnd(Package(version, L"-setup.exe") + L" /S " + arguments);
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
                       .ownFiles = {}};
const Installer Nsis = {.name = "Nsis",
                        .install = &InstallNsis,
                        .uninstall = &UninstallNsis,
                        .repair = {},
                        .elsewhere = L"/D=C:\\Elsewhere",
                        .ownFiles = {L"Uninstall.exe"}};

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

// The files in a directory, sorted, but for the stand-ins' own records.
std::vector<std::wstring> FilesIn(const std::filesystem::path& directory) {
    std::vector<std::wstring> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.path().extension() != L".started") {
            files.push_back(entry.path().filename());
        }
    }
    std::ranges::sort(files);
    return files;
}

// What a version installs in the program's directory, with the log.
std::vector<std::wstring> FilesOf(const std::wstring& version,
                                  const std::vector<std::wstring>& others) {
    std::vector<std::wstring> files = {L"BriskoLU.exe",       L"Finaset.exe",
                                       L"ProductService.exe", L"Quitline.exe",
                                       L"Unfinaset.exe",      L"VxIdleTask.exe",
                                       L"ZEFIR.exe",          L"finaset-verify.exe",
                                       L"finaset.log",        L"ReleaseNotes-" + version + L".txt"};
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
    Installers() { RemoveAll(VendorDirectory()); }

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

INSTANTIATE_TEST_SUITE_P(All, Installers, testing::Values(Msi, Nsis), NameOf);

class MsiInstaller : public Installers {};

TEST_P(MsiInstaller, RefusesToReplaceALaterVersion) {
    ASSERT_EQ(Install(NextVersion), 0U);
    EXPECT_EQ(Install(Version), DWORD{ERROR_INSTALL_FAILURE});
    ExpectInstalled(NextVersion);
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

// The lines of the log, without the empty first one, as the details show them: with blanks for
// tabs, and the one byte that is not ASCII as the machine's code page has it.
std::vector<std::wstring> LinesOf(const std::string& log) {
    const int size = static_cast<int>(log.size());
    std::wstring text(log.size(), L'\0');  // no longer than that
    text.resize(static_cast<std::size_t>(
        ::MultiByteToWideChar(CP_ACP, 0, log.data(), size, text.data(), size)));
    std::vector<std::wstring> lines(1);
    for (const wchar_t character : text) {
        if (character == L'\n') {
            lines.emplace_back();
        } else if (character == L'\t') {
            lines.back().append(8, L' ');
        } else if (character != L'\r') {
            lines.back() += character;
        }
    }
    lines.erase(lines.begin());
    lines.pop_back();  // what follows the last line end
    return lines;
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

    const auto first = std::ranges::find(details, L"FIRST RUN - START");
    const auto last = std::find(first, details.end(), L"Completed");
    EXPECT_EQ(std::vector(first, last), LinesOf(Log()));
}

INSTANTIATE_TEST_SUITE_P(All, NsisInstaller, testing::Values(Nsis), NameOf);

}  // namespace
