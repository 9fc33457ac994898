#include "machine/machine.h"

#include "config/settings_tables.h"
#include "fs/file_table.h"
#include "fs/path_helpers.h"
#include "machine/stand_ins/stand_in.h"
#include "proc/process_lists.h"
#include "support/call_log.h"
#include "support/end_process.h"
#include "support/expected_log.h"
#include "support/file_contents.h"
#include "support/on_wine.h"
#include "support/registry_contents.h"
#include "tasks/task_table.h"

#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace test {

namespace {

using Utils::KernelHandle;

constexpr wchar_t ServiceKey[] =
    L"SYSTEM\\CurrentControlSet\\Services\\Tarsel Nimbus Network Service";
constexpr wchar_t StaleKey[] = L"SOFTWARE\\Halvane\\SAP";
constexpr wchar_t ResultKey[] = L"SOFTWARE\\Tarsel\\Nimbus";
constexpr wchar_t ResultVendorKey[] = L"SOFTWARE\\Tarsel";
constexpr wchar_t StaleVendorKey[] = L"SOFTWARE\\Halvane";
constexpr wchar_t TaskServiceKey[] =
    L"SOFTWARE\\Classes\\CLSID\\{0F87369F-A4E5-4CFC-BD3E-73E6154572DD}";
constexpr wchar_t TaskServiceServerKey[] =
    L"SOFTWARE\\Classes\\CLSID\\{0F87369F-A4E5-4CFC-BD3E-73E6154572DD}\\InprocServer32";
constexpr wchar_t TaskServiceLibraryName[] = L"stand_in_task_service.dll";
constexpr DWORD RunTimeoutMs = 180'000;  // no run takes this long
constexpr DWORD ReadyLimitMs = 30'000;   // no stand-in needs this long to be ready

// The running processes whose program is in `directory`, by the program's file name.
std::multimap<std::wstring, DWORD> ProcessesFrom(const std::filesystem::path& directory) {
    std::multimap<std::wstring, DWORD> found;
    std::vector<DWORD> ids(1024);
    DWORD bytes = 0;
    ::K32EnumProcesses(ids.data(), static_cast<DWORD>(ids.size() * sizeof(DWORD)), &bytes);
    ids.resize(bytes / sizeof(DWORD));
    for (const DWORD id : ids) {
        const KernelHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
        wchar_t image[MAX_PATH] = {};
        DWORD size = std::size(image);
        if (process && ::QueryFullProcessImageNameW(process.Get(), 0, image, &size) &&
            std::filesystem::path(image).parent_path() == directory) {
            found.emplace(std::filesystem::path(image).filename(), id);
        }
    }
    return found;
}

struct StartedProcess {
    KernelHandle process;
    DWORD id = 0;
};

StartedProcess StartProcess(std::wstring commandLine, HANDLE output, DWORD flags,
                            HANDLE errors = nullptr) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    if (output != nullptr) {
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = output;
        startup.hStdError = errors != nullptr ? errors : output;
    }
    PROCESS_INFORMATION info = {};
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, output != nullptr, flags,
                          nullptr, nullptr, &startup, &info)) {
        throw std::runtime_error("a program cannot be started, error " +
                                 std::to_string(::GetLastError()));
    }
    const KernelHandle thread(info.hThread);
    return {KernelHandle(info.hProcess), info.dwProcessId};
}

void WaitUntilReady(DWORD id) {
    const KernelHandle ready(stand_in::ReadyEvent(id));
    if (::WaitForSingleObject(ready.Get(), ReadyLimitMs) != WAIT_OBJECT_0) {
        throw std::runtime_error("a stand-in is not ready");
    }
}

// The path in the system below Wine.
std::string UnixPath(const std::filesystem::path& path) {
    using ToUnixPath = char*(CDECL*)(const wchar_t*);
    const auto toUnixPath = reinterpret_cast<ToUnixPath>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
    // The last part may be a link, or missing.
    return std::string(toUnixPath(path.parent_path().c_str())) + "/" + path.filename().string();
}

// Starts a program of the system below Wine. There is no handle to wait for.
void RunBelowWine(std::string command) {
    const std::string program = "Z:" + command.substr(0, command.find(' '));
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    ::CreateProcessA(program.c_str(), command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                     &startup, &info);
}

std::filesystem::path FromEnvironment(const wchar_t* variable) {
    wchar_t value[MAX_PATH] = {};
    ::GetEnvironmentVariableW(variable, value, MAX_PATH);
    return value;
}

std::map<std::wstring, std::string> ReadDataFiles() {
    std::map<std::wstring, std::string> files;
    const std::filesystem::path top = Machine::DataDirectory();
    std::error_code none;  // no such directory, no files
    for (const auto& entry : std::filesystem::recursive_directory_iterator(top, none)) {
        if (entry.is_regular_file()) {
            files[entry.path().lexically_relative(top)] = FileText(entry.path()).value();
        }
    }
    return files;
}

std::vector<std::string> ReadLines(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        line.pop_back();  // the carriage return
        lines.push_back(line);
    }
    return lines;
}

std::filesystem::path TaskDirectory() {
    return FromEnvironment(L"systemroot") / L"system32\\tasks";
}

// Windows has tasks of its own, and more come with other programs.
bool IsTheProducts(const std::wstring& task) {
    return OnWine() || task.starts_with(L"VxIdle") || task.starts_with(L"Tarsel");
}

std::vector<std::wstring> ReadTasks() {
    std::vector<std::wstring> tasks;
    std::error_code none;  // no such directory, no tasks
    for (const auto& entry : std::filesystem::directory_iterator(TaskDirectory(), none)) {
        if (entry.is_regular_file() && IsTheProducts(entry.path().filename())) {
            tasks.push_back(entry.path().filename());
        }
    }
    std::ranges::sort(tasks);
    return tasks;
}

std::filesystem::path TaskServiceLibrary() {
    return FromEnvironment(L"systemroot") / L"system32" / TaskServiceLibraryName;
}

// The library that has the task service's object.
void SetTaskServiceLibrary(const std::filesystem::path& library) {
    PutValue(HKEY_LOCAL_MACHINE, TaskServiceServerKey, L"", TextValue(library));
    PutValue(HKEY_LOCAL_MACHINE, TaskServiceServerKey, L"ThreadingModel", TextValue(L"Both"));
}

std::optional<DWORD> HardwareBitmask() {
    DWORD bitmask = 0;
    DWORD size = sizeof(bitmask);
    return ::RegGetValueW(HKEY_LOCAL_MACHINE, ResultKey, L"Tarsel_HWConfig", RRF_RT_REG_DWORD,
                          nullptr, &bitmask, &size) == ERROR_SUCCESS
               ? std::optional(bitmask)
               : std::nullopt;
}

std::wstring SettingText(DWORD type, const std::vector<BYTE>& data) {
    if (type == REG_DWORD && data.size() == sizeof(DWORD)) {
        DWORD number = 0;
        std::memcpy(&number, data.data(), sizeof(number));
        return std::to_wstring(number);
    }
    if (type == REG_SZ || type == REG_EXPAND_SZ) {
        std::wstring text(data.size() / sizeof(wchar_t), L'\0');
        std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
        return text.substr(0, text.find(L'\0'));
    }
    return std::to_wstring(data.size()) + L" bytes of type " + std::to_wstring(type);
}

std::map<std::wstring, std::wstring> ReadSettings() {
    std::map<std::wstring, std::wstring> settings;
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, ParametersKey.c_str(), 0, KEY_READ, &key) !=
        ERROR_SUCCESS) {
        return settings;
    }
    for (DWORD index = 0;; ++index) {
        wchar_t name[256] = {};
        DWORD nameLength = std::size(name);
        std::vector<BYTE> data(65'536);
        DWORD type = 0;
        DWORD size = static_cast<DWORD>(data.size());
        if (::RegEnumValueW(key, index, name, &nameLength, nullptr, &type, data.data(), &size) !=
            ERROR_SUCCESS) {
            break;
        }
        data.resize(size);
        settings[name] = SettingText(type, data);
    }
    ::RegCloseKey(key);
    return settings;
}

std::string ShippedText(const FileOperation& file) {
    return "shipped " + Narrow(file.fileName);
}

}  // namespace

const std::vector<std::wstring>& ProductServices() {
    static const std::vector<std::wstring> services = [] {
        std::vector<std::wstring> names;
        for (const auto* list : {&StopList, &StartList, &DisableList}) {
            for (const ProcessEntry& entry : *list) {
                if (entry.kind == EntryKind::Service &&
                    std::ranges::count(names, entry.name) == 0) {
                    names.push_back(entry.name);
                }
            }
        }
        return names;
    }();
    return services;
}

bool IsStarted(const std::wstring& service) {
    return std::ranges::count(StartList, service, &ProcessEntry::name) > 0;
}

std::map<std::wstring, std::string> WithShippedFiles(std::map<std::wstring, std::string> files) {
    for (const FileOperation& file : FileTable) {
        const std::filesystem::path path =
            std::filesystem::path(DestinationOf(file)).lexically_relative(Machine::DataDirectory());
        if (!path.empty() && *path.begin() != L".." && (file.overwrite || !files.contains(path))) {
            files[path] = ShippedText(file);
        }
    }
    return files;
}

std::map<std::wstring, std::wstring> Configured(std::map<std::wstring, std::wstring> settings,
                                                std::uint32_t bitmask) {
    for (const RegistrySetting& setting : DeleteList) {
        if (setting.keyPath == ParametersKey) {
            settings.erase(setting.valueName);
        }
    }
    for (const RegistrySetting& setting : FeaturesOf(bitmask)) {
        if (setting.keyPath == ParametersKey) {
            settings[setting.valueName] =
                setting.type == REG_DWORD ? std::to_wstring(setting.number) : setting.text;
        }
    }
    settings[L"FirstRun"] = L"0";
    return settings;
}

std::vector<std::wstring> ProductTasks() {
    std::vector<std::wstring> names(ScheduledTaskTable.size());
    std::ranges::transform(ScheduledTaskTable, names.begin(), &ScheduledTaskEntry::taskName);
    std::ranges::sort(names);
    return names;
}

Machine::Machine(std::filesystem::path programDirectory) : directory_(std::move(programDirectory)) {
    std::filesystem::create_directories(directory_);
    std::filesystem::copy_file(BesideThisProgram(L"Finaset.exe"), directory_ / L"Finaset.exe");
    if (OnWine()) {
        std::filesystem::copy_file(BesideThisProgram(TaskServiceLibraryName), TaskServiceLibrary());
        SetTaskServiceLibrary(TaskServiceLibrary());
    }
}

Machine::~Machine() {
    services_.clear();
    for (const auto& [name, id] : ProcessesFrom(directory_)) {
        EndProcess(id);
    }
    std::error_code ignored;  // a leftover shows in the next machine's constructor
    std::filesystem::remove(TaskServiceLibrary(), ignored);
    std::filesystem::remove(TaskServiceLibrary() += L".definitions", ignored);
    for (const std::wstring& task : ReadTasks()) {
        if (OnWine()) {
            std::filesystem::remove(TaskDirectory() / task, ignored);
        } else {
            try {
                RunToEnd(L"schtasks.exe /delete /f /tn \"" + task + L"\"");
            } catch (const std::exception&) {
                continue;  // as above
            }
        }
    }
    RemoveAll(directory_);
    std::filesystem::remove(directory_.parent_path(), ignored);  // if nothing else is there
    RemoveAll(DriverDirectory().parent_path());
    RemoveAll(DataDirectory());
    for (const FileOperation& file : FileTable) {  // wherever they are
        std::filesystem::remove(ExpandEnvironmentPath(file.sourcePath), ignored);
        std::filesystem::remove(DestinationOf(file), ignored);
    }
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, StaleVendorKey);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, ResultVendorKey);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, ParametersKey.c_str());
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, ServiceKey);
}

void Machine::InstallProduct(const std::wstring& ways) {
    for (const ProcessEntry& entry : StopList) {
        if (entry.kind == EntryKind::QuitApp) {
            InstallProgram(L"stand_in_application.exe", entry.name);
        }
    }
    InstallProgram(L"stand_in_quit_helper.exe", L"Quitline.exe");
    for (const ProcessEntry& entry : StartList) {
        if (entry.kind == EntryKind::LaunchApp) {
            InstallProgram(L"stand_in_companion.exe", entry.name);
        }
    }
    for (const std::wstring& name : ProductServices()) {
        InstallService(name, ways);
    }
    InstallProgram(L"stand_in_uninstaller.exe", L"Unfinaset.exe");
    InstallShippedFiles();
    WriteStaleSettings();
    WriteSetting(L"FirstRun", 1);
}

void Machine::InstallShippedFiles() {
    for (const FileOperation& file : FileTable) {
        PutFile(ExpandEnvironmentPath(file.sourcePath), ShippedText(file));
    }
}

void Machine::WriteStaleSettings() {
    WriteTextSetting(L"ConfigFileDirectory", L"C:\\Stale");
    PutValue(HKEY_LOCAL_MACHINE, std::wstring(StaleKey) + L"\\Below", L"value", TextValue(L""));
}

void Machine::InstallProgram(const std::wstring& standIn, const std::wstring& fileName) {
    std::filesystem::copy_file(BesideThisProgram(standIn), directory_ / fileName,
                               std::filesystem::copy_options::overwrite_existing);
}

void Machine::RemoveProgram(const std::wstring& fileName) {
    std::filesystem::remove(directory_ / fileName);
}

InstalledService& Machine::InstallService(const std::wstring& name, const std::wstring& ways) {
    RemoveService(name);
    return services_.try_emplace(name, name, ways, SERVICE_AUTO_START).first->second;
}

void Machine::RemoveService(const std::wstring& name) {
    services_.erase(name);
}

void Machine::DisconnectTaskService() {
    // Wine's own treats the program's request as one to another machine.
    SetTaskServiceLibrary(FromEnvironment(L"systemroot") / L"system32\\taskschd.dll");
}

void Machine::RemoveTaskService() {
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, TaskServiceKey);
}

void Machine::ScheduleTask(const std::wstring& name) {
    if (OnWine()) {
        PutFile(TaskDirectory() / name, "");
    } else if (RunToEnd(
                   L"schtasks.exe /create /f /ru SYSTEM /sc once /st 23:59 /tr cmd.exe /tn \"" +
                   name + L"\"") != 0) {
        throw std::runtime_error("a task cannot be scheduled");
    }
}

std::vector<std::string> Machine::TaskDefinitions() {
    return ReadLines(TaskServiceLibrary() += L".definitions");
}

KernelHandle Machine::StartProduct() {
    for (const auto& [name, service] : services_) {
        service.Start();
    }
    std::vector<KernelHandle> applications;
    for (const auto& [kind, name, title] : StopList) {
        if (kind == EntryKind::QuitApp) {
            applications.push_back(StartApplication(name, title));
        }
    }
    return std::move(applications.front());
}

KernelHandle Machine::StartApplication(const std::wstring& fileName, const std::wstring& title) {
    StartedProcess application =
        StartProcess(L"\"" + (directory_ / fileName).wstring() + L"\" " + title, nullptr, 0);
    WaitUntilReady(application.id);
    return std::move(application.process);
}

void Machine::StartBackgroundProgram(const std::wstring& fileName) const {
    StartProcess(L"\"" + (directory_ / fileName).wstring() + L"\"", nullptr, DETACHED_PROCESS);
}

void Machine::WriteSetting(const std::wstring& name, DWORD type, std::string_view bytes) {
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, name, {type, {bytes.begin(), bytes.end()}});
}

void Machine::WriteSetting(const std::wstring& name, std::uint32_t number) {
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, name, DwordValue(number));
}

void Machine::WriteTextSetting(const std::wstring& name, const std::wstring& text, DWORD type) {
    PutValue(HKEY_LOCAL_MACHINE, ParametersKey, name, TextValue(text, type));
}

void Machine::RemoveSetting(const std::wstring& name) {
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, ParametersKey.c_str(), name.c_str());
}

FinishedRun Machine::Run(const std::wstring& arguments) const {
    // To a file: the companion inherits the handle and outlives the program, and reading a pipe
    // would wait for it. For the same reason each run has its own file.
    static int runs = 0;
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / (L"finaset " + std::to_wstring(++runs) + L".log");
    FinishedRun run;
    {
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
        const KernelHandle file(::CreateFileW(
            path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
            &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        const auto start = std::chrono::steady_clock::now();
        run.exitCode = Run(arguments, file.Get());
        run.duration = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start);
    }
    run.log = FileText(path).value();
    RemoveAll(path);
    return run;
}

DWORD Machine::Run(const std::wstring& arguments, HANDLE output) const {
    return RunToEnd(L"\"" + (directory_ / L"Finaset.exe").wstring() + L"\" " + arguments, output);
}

MachineState Machine::Describe() const {
    MachineState state;
    for (const auto& [name, service] : services_) {
        state.services[name] = service.Describe();
    }
    for (const auto& [name, id] : ProcessesFrom(directory_)) {
        state.applications.push_back(name);
    }
    state.settings = ReadSettings();
    state.dataFiles = ReadDataFiles();
    state.staleKey = KeyExists(HKEY_LOCAL_MACHINE, StaleKey);
    state.tasks = ReadTasks();
    state.hardwareBitmask = HardwareBitmask();
    return state;
}

const InstalledService& Machine::Service(const std::wstring& name) const {
    return services_.at(name);
}

std::vector<std::string> Machine::StartsOf(const std::wstring& fileName) const {
    // A running one may be about to record its start.
    const auto running = ProcessesFrom(directory_);
    for (auto [name, last] = running.equal_range(fileName); name != last; ++name) {
        WaitUntilReady(name->second);
    }
    return ReadLines(directory_ / (fileName + L".started"));
}

std::filesystem::path Machine::DriverDirectory() {
    return FromEnvironment(L"systemroot") / L"system32\\drivers\\Tarsel\\ZEFIR";
}

std::filesystem::path Machine::DataDirectory() {
    return FromEnvironment(L"programdata") / L"Tarsel";
}

std::filesystem::path Machine::ConfigurationDirectory() {
    return DataDirectory() / L"Nimbus\\ConfigurationFiles";
}

DWORD RunToEnd(const std::wstring& commandLine, HANDLE output, HANDLE errors) {
    const StartedProcess started = StartProcess(commandLine, output, DETACHED_PROCESS, errors);
    if (::WaitForSingleObject(started.process.Get(), RunTimeoutMs) != WAIT_OBJECT_0) {
        EndProcess(started.id);
        throw std::runtime_error("the program does not end");
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(started.process.Get(), &exitCode);
    return exitCode;
}

DirectoryLink::DirectoryLink(std::filesystem::path link, const std::filesystem::path& target)
    : link_(std::move(link)) {
    if (!OnWine()) {
        // Not create_directory_symlink, which GCC's library does not have on Windows.
        if (!::CreateSymbolicLinkW(link_.c_str(), target.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY)) {
            throw std::runtime_error("a link cannot be made, error " +
                                     std::to_string(::GetLastError()));
        }
        return;
    }
    RunBelowWine("/bin/ln -s \"" + UnixPath(target) + "\" \"" + UnixPath(link_) + "\"");
    while (::GetFileAttributesW(link_.c_str()) == INVALID_FILE_ATTRIBUTES) {
        ::Sleep(1);
    }
}

DirectoryLink::~DirectoryLink() {
    if (!OnWine()) {
        ::RemoveDirectoryW(link_.c_str());
        return;
    }
    RunBelowWine("/bin/rm \"" + UnixPath(link_) + "\"");
    while (::GetFileAttributesW(link_.c_str()) != INVALID_FILE_ATTRIBUTES) {
        ::Sleep(1);
    }
}

bool GiveToSomebodyElse(const std::filesystem::path& directory) {
    if (!OnWine()) {
        constexpr wchar_t Guests[] = L"*S-1-5-32-546";
        return RunToEnd(L"icacls.exe \"" + directory.wstring() + L"\" /setowner " + Guests) == 0;
    }
    const auto owner = [&] {
        BYTE descriptor[256] = {};
        DWORD size = 0;
        ::GetFileSecurityW(directory.c_str(), OWNER_SECURITY_INFORMATION, descriptor,
                           sizeof(descriptor), &size);
        return std::vector<BYTE>(descriptor,
                                 descriptor + std::min<DWORD>(size, sizeof(descriptor)));
    };
    const std::vector<BYTE> before = owner();
    RunBelowWine("/bin/chown 12345 \"" + UnixPath(directory) + "\"");
    constexpr int MostTries = 2000;
    for (int tries = 0; tries < MostTries; ++tries) {
        if (owner() != before) {
            return true;
        }
        ::Sleep(1);
    }
    return false;
}

Drive::Drive(wchar_t letter, const std::filesystem::path& directory)
    : name_({letter, L':'}), directory_(directory), before_(std::filesystem::current_path()) {
    if (OnWine()) {
        // Its drives are links beside one another, named in lower case.
        const std::string target = UnixPath(directory_);
        link_ =
            target.substr(0, target.find("/c:") + 1) + static_cast<char>(::towlower(letter)) + ":";
        RunBelowWine("/bin/ln -s \"" + target + "\" \"" + link_ + "\"");
        while (::GetFileAttributesW((name_ + L"\\").c_str()) == INVALID_FILE_ATTRIBUTES) {
            ::Sleep(1);
        }
    } else {
        ::DefineDosDeviceW(0, name_.c_str(), directory_.c_str());
    }
    std::filesystem::current_path(name_ + L"\\");
}

Drive::~Drive() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
    if (OnWine()) {
        RunBelowWine("/bin/rm \"" + link_ + "\"");
    } else {
        ::DefineDosDeviceW(DDD_REMOVE_DEFINITION, name_.c_str(), directory_.c_str());
    }
}

bool Ended(const KernelHandle& process, std::chrono::milliseconds limit) {
    return ::WaitForSingleObject(process.Get(), static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
}

}  // namespace test
