#include "bare.h"

#include "config/path_resolvers.h"
#include "config/settings_tables.h"
#include "fs/file_table.h"
#include "fs/secured_directories.h"
#include "hw/adapter_patterns.h"
#include "hw/feature_table.h"
#include "proc/process_lists.h"
#include "tasks/task_table.h"

#include <winsock2.h>

#include <aclapi.h>
#include <iphlpapi.h>
#include <objbase.h>
#include <psapi.h>
#include <taskschd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr wchar_t Parameters[] =
    L"SYSTEM\\CurrentControlSet\\Services\\Tarsel Nimbus Network Service\\Parameters";

// If what follows would fault or never end after a failed call, ends the run instead.
void Require(bool succeeded, const char* call) {
    if (!succeeded) {
        throw std::runtime_error(call);
    }
}

void Require(HRESULT result, const char* call) {
    Require(SUCCEEDED(result), call);
}

// Every path has its own buffer.
constexpr std::size_t PathCapacity = 2048;
using Path = wchar_t[PathCapacity];

void Append(Path& path, const wchar_t* text) {
    std::wcsncat(path, text, PathCapacity - 1 - std::wcslen(path));
}

void Join(Path& path, const wchar_t* name) {
    const std::size_t length = std::wcslen(path);
    if (length != 0 && path[length - 1] != L'\\') {
        Append(path, L"\\");
    }
    Append(path, name);
}

void Expand(const wchar_t* path, Path& expanded) {
    *expanded = L'\0';
    ::ExpandEnvironmentStringsW(path, expanded, PathCapacity);
}

// A path expanded only for the log.
void Show(const wchar_t* path) {
    Path expanded;
    Expand(path, expanded);
}

// Services

void Request(const wchar_t* name, DWORD access) {
    SC_HANDLE manager =
        ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE);
    SC_HANDLE service = ::OpenServiceW(manager, name, access);
    SERVICE_STATUS status = {};
    if (access == SERVICE_STOP) {
        ::ControlService(service, SERVICE_CONTROL_STOP, &status);
    } else if (access == SERVICE_START) {
        ::StartServiceW(service, 0, nullptr);
    } else {
        ::ChangeServiceConfigW(service, SERVICE_NO_CHANGE, SERVICE_DISABLED, SERVICE_NO_CHANGE,
                               nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    }
    ::CloseServiceHandle(service);
    ::CloseServiceHandle(manager);
}

void Await(const wchar_t* name, DWORD target) {
    SC_HANDLE manager =
        ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE);
    SC_HANDLE service = ::OpenServiceW(manager, name, SERVICE_QUERY_STATUS);
    SERVICE_STATUS status = {};
    int polls = 0;
    while (::QueryServiceStatus(service, &status) && status.dwCurrentState != target) {
        Require(++polls <= 60, "QueryServiceStatus, for 30 seconds");
        ::Sleep(500);
    }
    ::CloseServiceHandle(service);
    ::CloseServiceHandle(manager);
}

// Applications

void QuitApplication(std::wstring name, const std::wstring& title) {
    ::_wcslwr(name.data());
    std::vector<DWORD> ids(4096);
    DWORD bytes = 0;
    ::K32EnumProcesses(ids.data(), static_cast<DWORD>(ids.size() * sizeof(DWORD)), &bytes);
    ids.resize(bytes / sizeof(DWORD));
    for (const DWORD id : ids) {
        HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id);
        if (process == nullptr) {
            continue;
        }
        wchar_t image[MAX_PATH] = {};
        DWORD size = MAX_PATH;
        ::QueryFullProcessImageNameW(process, 0, image, &size);
        if (std::wcsstr(::_wcslwr(image), name.c_str()) != nullptr) {
            HANDLE token = nullptr;
            ::OpenProcessToken(
                process, TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY,
                &token);
            std::wstring commandLine = L"Quitline.exe " + title;
            STARTUPINFOW startup = {};
            PROCESS_INFORMATION info = {};
            ::CreateProcessAsUserW(token, nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0,
                                   nullptr, nullptr, &startup, &info);
            ::WaitForSingleObject(info.hProcess, 30'000);
            ::CloseHandle(info.hProcess);
            ::CloseHandle(info.hThread);
            ::CloseHandle(token);
            ::CloseHandle(process);
            return;
        }
        ::CloseHandle(process);
    }
}

void Launch(const std::wstring& name, const std::wstring& arguments) {
    Path commandLine = {};
    DWORD size = MAX_PATH;
    ::QueryFullProcessImageNameW(::GetCurrentProcess(), 0, commandLine, &size);
    std::wcscpy(std::wcsrchr(commandLine, L'\\') + 1, (name + L" " + arguments).c_str());
    STARTUPINFOW startup = {};
    PROCESS_INFORMATION info = {};
    ::CreateProcessW(nullptr, commandLine, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                     &info);
    ::CloseHandle(info.hProcess);
    ::CloseHandle(info.hThread);
}

// Registry

DWORD ReadNumber(const wchar_t* name, DWORD otherwise) {
    HKEY key = nullptr;
    DWORD number = 0;
    DWORD bytes = sizeof(number);
    DWORD type = REG_NONE;
    ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, Parameters, 0, KEY_READ, &key);
    const LSTATUS error =
        ::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&number), &bytes);
    ::RegCloseKey(key);
    return error == ERROR_SUCCESS ? number : otherwise;
}

void WriteNumber(const wchar_t* path, const wchar_t* name, DWORD number) {
    HKEY key = nullptr;
    DWORD disposition = 0;
    ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                      &disposition);
    ::RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                     sizeof(number));
    ::RegCloseKey(key);
}

void DeleteKey(HKEY parent, const wchar_t* name) {
    HKEY key = nullptr;
    ::RegOpenKeyExW(parent, name, 0, KEY_READ | KEY_WRITE, &key);
    wchar_t subKey[256] = {};
    DWORD length = std::size(subKey);
    while (::RegEnumKeyExW(key, 0, subKey, &length, nullptr, nullptr, nullptr, nullptr) ==
           ERROR_SUCCESS) {
        DeleteKey(key, subKey);
        length = std::size(subKey);
    }
    ::RegCloseKey(key);
    static const auto deleteKeyEx =
        reinterpret_cast<decltype(&::RegDeleteKeyExW)>(reinterpret_cast<void*>(
            ::GetProcAddress(::GetModuleHandleW(L"Advapi32.dll"), "RegDeleteKeyExW")));
    Require(deleteKeyEx(parent, name, 0, 0) == ERROR_SUCCESS, "RegDeleteKeyExW");
}

void DeleteSettings() {
    for (const RegistrySetting& setting : DeleteList) {
        HKEY key = nullptr;
        DWORD disposition = 0;
        ::RegCreateKeyExW(setting.root, setting.keyPath.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr,
                          &key, &disposition);
        if (setting.valueName.empty()) {
            DeleteKey(key, L"");
        } else {
            ::RegDeleteValueW(key, setting.valueName.c_str());
        }
        ::RegCloseKey(key);
    }
}

// Files

void Resolve(const std::function<std::wstring(const std::wstring&)>& resolve, const wchar_t* name,
             Path& resolved) {
    const auto* resolver = resolve.target<PathResolver>();
    if (resolver == nullptr) {
        std::wcscpy(resolved, name);
        return;
    }
    Path text = {};
    HKEY key = nullptr;
    ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, Parameters, 0, KEY_READ, &key);
    DWORD bytes = 0;
    DWORD type = REG_NONE;
    ::RegQueryValueExW(key, resolver->directoryName, nullptr, nullptr, nullptr, &bytes);
    bytes = sizeof(text);
    if (::RegQueryValueExW(key, resolver->directoryName, nullptr, &type,
                           reinterpret_cast<BYTE*>(text), &bytes) != ERROR_SUCCESS) {
        std::wcscpy(text, resolver->defaultDirectory);
    }
    ::RegCloseKey(key);
    Append(text, resolver->separatorBeforeEmptyName || *name != L'\0' ? L"\\" : L"");
    Append(text, name);
    Expand(text, resolved);
}

DWORD Attributes(const wchar_t* path) {
    Path expanded;
    Expand(path, expanded);
    return ::GetFileAttributesW(expanded);
}

bool Exists(const wchar_t* path) {
    return Attributes(path) != INVALID_FILE_ATTRIBUTES;
}

// Calls `visit` with each level of an expanded path.
template <typename Visit>
void ForEachLevel(const wchar_t* path, Visit visit) {
    Path expanded;
    Expand(path, expanded);
    for (wchar_t* at = expanded; *at != L'\0'; ++at) {
        if (*at == L'\\') {
            *at = L'\0';
            visit(expanded);
            *at = L'\\';
        } else if (at[1] == L'\0') {
            visit(expanded);
        }
    }
}

void CreateLevels(const wchar_t* path) {
    ForEachLevel(path, [](const wchar_t* level) {
        if (!Exists(level)) {
            ::CreateDirectoryW(level, nullptr);
        }
    });
}

void CopyShippedFile(const FileOperation& file) {
    Path destination;
    Resolve(file.resolveDestination, file.fileName.c_str(), destination);
    const wchar_t* source = file.sourcePath.c_str();
    const bool overwrite = file.overwrite;
    Path expanded;

    if (overwrite) {
        Show(destination);
        if (Exists(destination)) {
            Expand(destination, expanded);
            ::DeleteFileW(expanded);
        }
    }

    wchar_t drive[260] = {};
    wchar_t directory[260] = {};
    Expand(destination, expanded);
    ::_wsplitpath_s(expanded, drive, std::size(drive), directory, std::size(directory), nullptr, 0,
                    nullptr, 0);
    std::wcscpy(expanded, drive);
    Append(expanded, directory);
    Show(expanded);
    CreateLevels(expanded);

    Show(source);
    Show(destination);
    if (overwrite || !Exists(destination)) {
        Path from;
        Expand(source, from);
        Expand(destination, expanded);
        ::CopyFileW(from, expanded, FALSE);
    }
}

bool IsLink(const wchar_t* path) {
    const DWORD attributes = Attributes(path);
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return true;
    }
    Path expanded;
    Expand(path, expanded);
    HANDLE file = ::CreateFileW(expanded, GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_READONLY, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    BY_HANDLE_FILE_INFORMATION information = {};
    ::GetFileInformationByHandle(file, &information);
    ::CloseHandle(file);
    return information.nNumberOfLinks > 1;
}

// Names, each with its terminating zero, one after another.
using Names = std::vector<wchar_t>;

template <typename Visit>
void ForEachName(const Names& names, Visit visit) {
    for (const wchar_t* name = names.data(); name != names.data() + names.size();
         name += std::wcslen(name) + 1) {
        visit(name);
    }
}

// Calls `visit` with the name and attributes of each entry of the directory.
template <typename Visit>
void ForEachEntry(const wchar_t* directory, Visit visit) {
    Path pattern;
    Expand(directory, pattern);
    Join(pattern, L"*");
    WIN32_FIND_DATAW entry;
    HANDLE search = ::FindFirstFileW(pattern, &entry);
    if (search == INVALID_HANDLE_VALUE) {
        return;
    }
    do {
        if (std::wcscmp(entry.cFileName, L".") != 0 && std::wcscmp(entry.cFileName, L"..") != 0) {
            visit(entry.cFileName, entry.dwFileAttributes);
        }
    } while (::FindNextFileW(search, &entry));
    ::FindClose(search);
}

Names ListEntries(const wchar_t* directory) {
    Names names;
    ForEachEntry(directory, [&](const wchar_t* name, DWORD /*attributes*/) {
        names.insert(names.end(), name, name + std::wcslen(name) + 1);
    });
    return names;
}

void CollectSubdirectories(const wchar_t* directory, Names& paths) {
    ForEachEntry(directory, [&](const wchar_t* name, DWORD attributes) {
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            Path path = {};
            Append(path, directory);
            Join(path, name);
            CollectSubdirectories(path, paths);
            paths.insert(paths.end(), path, path + std::wcslen(path) + 1);
        }
    });
}

void SetList(const wchar_t* path, SECURITY_INFORMATION inheritance, PACL list) {
    Path expanded;
    Expand(path, expanded);
    ::SetNamedSecurityInfoW(expanded, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | inheritance,
                            nullptr, nullptr, list, nullptr);
}

void SetProtectedList(const wchar_t* path, const std::vector<AceSpec>& aces) {
    DWORD storage[64] = {};
    auto* list = reinterpret_cast<PACL>(storage);
    ::InitializeAcl(list, sizeof(storage), ACL_REVISION);
    for (AceSpec ace : aces) {
        ::IsValidSid(&ace.sid);
        ::AddAccessAllowedAceEx(list, ACL_REVISION, ace.aceFlags, ace.accessMask, &ace.sid);
    }
    SetList(path, PROTECTED_DACL_SECURITY_INFORMATION, list);
}

// Everything below inherits.
void ResetLists(const wchar_t* directory) {
    const Names names = ListEntries(directory);
    ForEachName(names, [&](const wchar_t* name) {
        Path path = {};
        Append(path, directory);
        Join(path, name);
        ACL empty = {ACL_REVISION, 0, sizeof(ACL), 0, 0};
        SetList(path, UNPROTECTED_DACL_SECURITY_INFORMATION, &empty);
    });
}

void Secure(const SecuredDirectory& directory) {
    Path target;
    Resolve(directory.resolvePath, directory.path.c_str(), target);
    Show(target);
    CreateLevels(target);
    ForEachLevel(target, &IsLink);
    const Names names = ListEntries(target);
    ForEachName(names, [&](const wchar_t* name) {
        Path path = {};
        Append(path, target);
        Join(path, name);
        IsLink(path);
    });
    SetProtectedList(target, directory.aces);
    if (!directory.applyToChildren || Attributes(target) != FILE_ATTRIBUTE_DIRECTORY) {
        return;
    }
    Names subdirectories;
    CollectSubdirectories(target, subdirectories);
    ResetLists(target);
    ForEachName(subdirectories, &ResetLists);
}

// Adapters

// Whether the pieces between the ".*" of a pattern stand in a lowered text, in their order.
bool Matches(const wchar_t* text, std::wstring pattern) {
    ::_wcslwr(pattern.data());
    while (text != nullptr && !pattern.empty()) {
        const std::size_t end = std::min(pattern.find(L".*"), pattern.size());
        text = std::wcsstr(text, pattern.substr(0, end).c_str());
        pattern.erase(0, end + 2);
    }
    return text != nullptr;
}

DWORD PresentAdapters() {
    HMODULE library = ::LoadLibraryExW(L"iphlpapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const auto getAdapters = reinterpret_cast<decltype(&::GetAdaptersAddresses)>(
        reinterpret_cast<void*>(::GetProcAddress(library, "GetAdaptersAddresses")));
    ULONG size = 0;
    getAdapters(AF_UNSPEC, GAA_FLAG_INCLUDE_ALL_INTERFACES, nullptr, nullptr, &size);
    std::vector<std::byte> storage(size);
    auto* adapters = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(storage.data());
    getAdapters(AF_UNSPEC, GAA_FLAG_INCLUDE_ALL_INTERFACES, nullptr, adapters, &size);
    ::FreeLibrary(library);
    DWORD bitmask = 0;
    for (auto* adapter = adapters; adapter != nullptr; adapter = adapter->Next) {
        const wchar_t* description = ::_wcslwr(adapter->Description);
        const auto row = std::ranges::find_if(HardwarePatternTable, [&](const auto& each) {
            return Matches(description, each.pattern);
        });
        bitmask |= row == HardwarePatternTable.end() ? 0 : row->mask;
    }
    return bitmask;
}

void ConfigureByAdapters() {
    constexpr DWORD MatchTheAdapters = 1;
    const DWORD present = PresentAdapters();
    DWORD bitmask = ReadNumber(L"Tarsel_HWConfigDefault", MatchTheAdapters);
    if (bitmask == MatchTheAdapters) {
        bitmask = present;
    }
    WriteNumber(L"SOFTWARE\\Tarsel\\Nimbus", L"Tarsel_HWConfig", bitmask);
    for (const FeatureRule& rule : FeatureRuleTable) {
        const RegistrySetting& setting = (rule.mask & bitmask) != 0 ? rule.whenSet : rule.whenClear;
        if (setting.root != nullptr) {
            WriteNumber(setting.keyPath.c_str(), setting.valueName.c_str(), setting.number);
        }
    }
}

// Tasks

ITaskService* ConnectTaskService() {
    IUnknown* object = nullptr;
    Require(::CoCreateInstance(__uuidof(TaskScheduler), nullptr, CLSCTX_ALL, __uuidof(IUnknown),
                               reinterpret_cast<void**>(&object)),
            "CoCreateInstance");
    ::OleRun(object);
    ITaskService* service = nullptr;
    Require(object->QueryInterface(__uuidof(ITaskService), reinterpret_cast<void**>(&service)),
            "IUnknown::QueryInterface");
    object->Release();
    VARIANT missing = {};
    missing.vt = VT_ERROR;                 // NOLINT(*-union-access): that is what a VARIANT is
    missing.scode = DISP_E_PARAMNOTFOUND;  // NOLINT(*-union-access)
    Require(service->Connect(missing, missing, missing, missing), "ITaskService::Connect");
    return service;
}

ITaskFolder* RootFolder(ITaskService* service) {
    BSTR path = ::SysAllocString(L"\\");
    ITaskFolder* folder = nullptr;
    Require(service->GetFolder(path, &folder), "ITaskService::GetFolder");
    ::SysFreeString(path);
    return folder;
}

void ScheduleTask(const ScheduledTaskEntry& task) {
    std::wstring process = task.processName;
    if (task.resolveInOwnFolder) {
        wchar_t image[MAX_PATH] = {};
        DWORD size = MAX_PATH;
        ::QueryFullProcessImageNameW(::GetCurrentProcess(), 0, image, &size);
        Path expanded;
        Expand(image, expanded);
        wchar_t drive[260] = {};
        wchar_t directory[260] = {};
        ::_wsplitpath_s(expanded, drive, std::size(drive), directory, std::size(directory), nullptr,
                        0, nullptr, 0);
        process = drive + (directory + process);
    }
    const std::wstring placeholder = L"##PROCESSNAME##";
    std::wstring xml = task.taskXml;
    xml.replace(xml.find(placeholder), placeholder.size(), process);

    ITaskService* service = ConnectTaskService();
    ITaskDefinition* definition = nullptr;
    Require(service->NewTask(0, &definition), "ITaskService::NewTask");
    BSTR text = ::SysAllocString(xml.c_str());
    definition->put_XmlText(text);
    ITaskFolder* folder = RootFolder(service);
    BSTR name = ::SysAllocString(task.taskName.c_str());
    const VARIANT empty = {};
    IRegisteredTask* registered = nullptr;
    Require(folder->RegisterTaskDefinition(name, definition, TASK_CREATE_OR_UPDATE, empty, empty,
                                           TASK_LOGON_GROUP, empty, &registered),
            "ITaskFolder::RegisterTaskDefinition");
    registered->Release();
    ::SysFreeString(name);
    folder->Release();
    ::SysFreeString(text);
    definition->Release();
    service->Release();
}

void DeleteStartupTask() {
    ITaskService* service = ConnectTaskService();
    ITaskFolder* folder = RootFolder(service);
    BSTR name = ::SysAllocString(L"Tarsel Lumetra Startup Task");
    folder->DeleteTask(name, 0);
    ::SysFreeString(name);
    folder->Release();
    service->Release();
}

// Actions

void Stop() {
    for (const auto& [kind, name, title] : StopList) {
        if (kind == EntryKind::QuitApp) {
            QuitApplication(name, title);
        } else {
            Request(name.c_str(), SERVICE_STOP);
            Await(name.c_str(), SERVICE_STOPPED);
        }
    }
}

void Configure() {
    DeleteSettings();
    std::ranges::for_each(FileTable, &CopyShippedFile);
    std::ranges::for_each(SecuredDirectoryTable, &Secure);
    ConfigureByAdapters();
    std::ranges::for_each(ScheduledTaskTable, &ScheduleTask);
    DeleteStartupTask();
    WriteNumber(Parameters, L"FirstRun", 0);
}

void Start() {
    for (const auto& [kind, name, arguments] : StartList) {
        if (kind == EntryKind::LaunchApp) {
            Launch(name, arguments);
        } else {
            Request(name.c_str(), SERVICE_START);
            Await(name.c_str(), SERVICE_RUNNING);
        }
    }
}

void RunOption(int argumentCount, const wchar_t* const* arguments) {
    ReadNumber(L"FinasetAction", 0);
    const wchar_t* option = argumentCount > 1 ? arguments[1] : L"";
    const bool all = *option == L'\0';
    if (all || std::wcscmp(option, L"/STOP") == 0) {
        Stop();
    }
    if (all || std::wcscmp(option, L"/CONFIGURE") == 0) {
        Configure();
    }
    if (all || std::wcscmp(option, L"/START") == 0) {
        Start();
    }
    if (std::wcscmp(option, L"/DISABLE") == 0) {
        for (const ProcessEntry& entry : DisableList) {
            Request(entry.name.c_str(), SERVICE_CHANGE_CONFIG);
        }
    }
    if (std::wcscmp(option, L"/?") == 0) {
        Path expanded;
        Expand(arguments[0], expanded);
        wchar_t title[260] = {};
        ::_wsplitpath_s(expanded, nullptr, 0, nullptr, 0, title, std::size(title), nullptr, 0);
    }
}

}  // namespace

int RunBare(int argumentCount, const wchar_t* const* arguments) {
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    int exitCode = 0;
    try {
        RunOption(argumentCount, arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bare: failed: %s\n", error.what());
        exitCode = 1;
    }
    ::CoUninitialize();
    return exitCode;
}
