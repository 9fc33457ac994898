// What the example installers do beside installing files, in one place: finaset-actions.dll.
// CHANGE: the names and the texts below.
//
// Windows Installer calls an action by its name (DllEntry), deferred and not impersonated, with its
// argument as CustomActionData. Its lines go to the installation's own log (msiexec /l*v).
//
// Any other installer, NSIS with its System plug-in for instance, calls
//
//   RunAction(name, argument)   0, or ERROR_INSTALL_FAILURE (1603): the last line says why
//   NextLine(buffer)            the next line of the action, in a buffer of 1,024 characters; 0
//                               after the last one
//
// What an action takes, and what it does:
//
//   SecureDirectory  the directory of the product's data. Creates it, with an access control list
//                    of its own, or closes an existing one. Fails if it is a link or not trusted.
//   RunFinaset       the programs' directory. Runs Finaset there. Fails if it did not run to its
//                    end; what its log says is for VerifyMachine, or a person, to judge.
//   VerifyMachine    the same. Fails unless finaset-verify finds the machine configured.
//   StopProduct      the same. Runs Finaset with /STOP if it is there, ends the companion, and
//                    waits for both it and the application, 30 seconds each. Never fails: files
//                    that are still in use are the installer's to report.
//   StartProduct     the same. Runs Finaset with /START.
//   RemoveTask       nothing. Removes the idle task, if there is one.
//   RemoveLogs       the programs' directory. Removes the logs, and then the directory and the one
//                    above, if they are empty. Never fails.
//
// The programs run without a window, one after another, each with a log of its own in their
// directory: finaset.log, finaset-stop.log, finaset-start.log and finaset-verify.log.

#include "shared/find_function.h"
#include "shared/owner.h"

#include <windows.h>

#include <aclapi.h>
#include <msi.h>
#include <msiquery.h>
#include <psapi.h>
#include <sddl.h>

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <deque>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr wchar_t Program[] = L"Finaset.exe";
constexpr wchar_t Verifier[] = L"finaset-verify.exe";
constexpr wchar_t Companion[] = L"BriskoLU.exe";
constexpr wchar_t Application[] = L"ZEFIR.exe";
constexpr wchar_t DeleteTask[] = L"/delete /f /tn \"VxIdle Task\"";

// Nothing inherited: full access for Administrators, who own it, and Local System; Users read.
constexpr wchar_t ClosedDirectory[] =
    L"O:BAG:BAD:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)(A;OICI;0x1200a9;;;BU)";

constexpr DWORD ProgramLimitMs = 30 * 60'000;  // several times what Finaset's own limits add up to
constexpr DWORD EndLimitMs = 30'000;           // for the companion, and for the application
constexpr int OldLogs = 5;                     // of each name
constexpr std::size_t LineLimit = 1024;        // NSIS's own, with the terminator
constexpr std::size_t MaxProcesses = 4096;
constexpr std::size_t PieceSize = 4096;  // of a log that is read

// Why an action has failed.
struct Failure {
    std::wstring text;
};

[[noreturn]] void FailWithLastError(const std::wstring& text) {
    const DWORD error = ::GetLastError();
    throw Failure{text + L": error " + std::to_wstring(error)};
}

// Where an action's lines go.
class Listener {
public:
    Listener() = default;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    virtual ~Listener() = default;
    virtual void Say(const std::wstring& line) = 0;
    virtual void Complain(const std::wstring& line) = 0;
};

struct LocalMemoryPolicy {
    using Handle = void*;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { ::LocalFree(handle); }
};
using LocalMemory = Utils::Owner<LocalMemoryPolicy>;

// --- The directory of the product's data

// The owner of an open directory, while `memory` lives.
PSID OwnerOf(HANDLE directory, std::optional<LocalMemory>& memory) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error = ::GetSecurityInfo(
        directory, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
        /*ppsidGroup=*/nullptr, /*ppDacl=*/nullptr, /*ppSacl=*/nullptr, &descriptor);
    memory.emplace(descriptor);
    return error == ERROR_SUCCESS ? owner : nullptr;
}

// Opens a directory itself, not what it leads to if it is a link. Only listed and read by others,
// so that nobody can rename or delete it, or one above it, as long as it is open.
Utils::FileHandle OpenDirectory(const std::wstring& path, DWORD access) {
    Utils::FileHandle directory(::CreateFileW(
        path.c_str(), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES | READ_CONTROL | access,
        FILE_SHARE_READ | FILE_SHARE_WRITE, /*lpSecurityAttributes=*/nullptr, OPEN_EXISTING,
        FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS,
        /*hTemplateFile=*/nullptr));
    if (!directory) {
        FailWithLastError(path + L" cannot be opened");
    }
    return directory;
}

// Fails unless the directory is a real one that belongs to Administrators, to Local System, or to
// the owner of the system's directory that it is in, who could exchange it anyhow.
void ExpectTrusted(HANDLE directory, const std::wstring& path, PSID systemOwner) {
    BY_HANDLE_FILE_INFORMATION information = {};
    if (!::GetFileInformationByHandle(directory, &information)) {
        FailWithLastError(path + L" cannot be read");
    }
    // By the path, too: on Wine, the handle is always that of what a link leads to.
    const DWORD attributes = information.dwFileAttributes | ::GetFileAttributesW(path.c_str());
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        throw Failure{path + L" is a link"};
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        throw Failure{path + L" is not a directory"};
    }
    std::optional<LocalMemory> memory;
    const PSID owner = OwnerOf(directory, memory);
    if (owner == nullptr ||
        (!::IsWellKnownSid(owner, WinBuiltinAdministratorsSid) &&
         !::IsWellKnownSid(owner, WinLocalSystemSid) && !::EqualSid(owner, systemOwner))) {
        throw Failure{path + L" belongs neither to Administrators nor to Local System"};
    }
}

// The same for each directory below one that stays open meanwhile.
void ExpectTrustedBelow(const std::wstring& path, PSID systemOwner) {
    WIN32_FIND_DATAW entry = {};
    const Utils::SearchHandle search(::FindFirstFileW((path + L"\\*").c_str(), &entry));
    if (!search) {
        FailWithLastError(path + L" cannot be listed");
    }
    do {
        const std::wstring_view name = entry.cFileName;
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && name != L"." &&
            name != L"..") {
            const std::wstring below = path + L'\\' + entry.cFileName;
            const Utils::FileHandle directory = OpenDirectory(below, 0);
            ExpectTrusted(directory.Get(), below, systemOwner);
            ExpectTrustedBelow(below, systemOwner);
        }
    } while (::FindNextFileW(search.Get(), &entry) != FALSE);
    if (::GetLastError() != ERROR_NO_MORE_FILES) {
        FailWithLastError(path + L" cannot be listed");
    }
}

void SecureTheDirectory(const std::wstring& path, Listener& listener) {
    const std::wstring system = path.substr(0, path.rfind(L'\\'));
    const Utils::FileHandle systemDirectory = OpenDirectory(system, 0);
    std::optional<LocalMemory> memory;
    const PSID systemOwner = OwnerOf(systemDirectory.Get(), memory);
    if (systemOwner == nullptr) {
        throw Failure{L"nobody owns " + system};
    }

    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(ClosedDirectory, SDDL_REVISION_1,
                                                                &descriptor, nullptr)) {
        FailWithLastError(L"the access control list cannot be made");
    }
    const LocalMemory descriptorMemory(descriptor);
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), descriptor, /*bInheritHandle=*/FALSE};
    if (::CreateDirectoryW(path.c_str(), &attributes)) {
        listener.Say(path + L" is created, with its access control list");
        return;
    }
    if (::GetLastError() != ERROR_ALREADY_EXISTS) {
        FailWithLastError(path + L" cannot be created");
    }
    // Anyone may have created it. Its list only counts if the owner, who may change it again, is
    // trusted; and what is below only if it was not somebody's before.
    const Utils::FileHandle directory = OpenDirectory(path, WRITE_DAC);
    ExpectTrusted(directory.Get(), path, systemOwner);
    // Only this directory's: SetSecurityInfo would change what is below too, and follow links.
    if (!::SetKernelObjectSecurity(directory.Get(),
                                   DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                   descriptor)) {
        FailWithLastError(L"the access control list of " + path + L" cannot be set");
    }
    ExpectTrustedBelow(path, systemOwner);
    listener.Say(path + L" exists and has its access control list now");
}

// --- Programs

// Runs a program of this path without a window and with these handles only, and waits for it, not
// for what it has started. Returns its exit code.
DWORD RunProgram(const std::wstring& program, const std::wstring& arguments, HANDLE output) {
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, /*bInheritHandle=*/TRUE};
    const Utils::FileHandle nothing(::CreateFileW(
        L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
        OPEN_EXISTING, /*dwFlagsAndAttributes=*/0, /*hTemplateFile=*/nullptr));
    if (!nothing) {
        FailWithLastError(L"NUL cannot be opened");
    }
    HANDLE handles[] = {nothing.Get(), output};  // no handle twice
    const DWORD handleCount = output == nullptr ? 1 : 2;

    SIZE_T size = 0;
    ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    std::vector<std::max_align_t> memory(size / sizeof(std::max_align_t) + 1);
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof(startup);
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = nothing.Get();
    startup.StartupInfo.hStdOutput = handles[handleCount - 1];
    startup.StartupInfo.hStdError = handles[handleCount - 1];
    startup.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory.data());
    if (!::InitializeProcThreadAttributeList(startup.lpAttributeList, 1, 0, &size) ||
        !::UpdateProcThreadAttribute(startup.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                                     handles, handleCount * sizeof(HANDLE), nullptr, nullptr)) {
        FailWithLastError(L"the handles of " + program + L" cannot be listed");
    }
    // The system's: the companion keeps it, and would keep another from being removed.
    wchar_t directory[MAX_PATH] = {};
    ::GetSystemDirectoryW(directory, MAX_PATH);
    std::wstring commandLine = L'"' + program + L"\" " + arguments;
    PROCESS_INFORMATION info = {};
    const BOOL started =
        ::CreateProcessW(program.c_str(), commandLine.data(), /*lpProcessAttributes=*/nullptr,
                         /*lpThreadAttributes=*/nullptr, /*bInheritHandles=*/TRUE,
                         CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT, /*lpEnvironment=*/nullptr,
                         directory, &startup.StartupInfo, &info);
    const DWORD error = ::GetLastError();
    ::DeleteProcThreadAttributeList(startup.lpAttributeList);
    if (!started) {
        ::SetLastError(error);
        FailWithLastError(program + L" cannot be started");
    }
    const Utils::KernelHandle thread(info.hThread);
    const Utils::KernelHandle process(info.hProcess);
    if (::WaitForSingleObject(process.Get(), ProgramLimitMs) != WAIT_OBJECT_0) {
        ::TerminateProcess(process.Get(), ERROR_TIMEOUT);
        throw Failure{program + L" has not ended in time and was terminated"};
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(process.Get(), &exitCode);
    return exitCode;
}

// The path of a log: NAME.log for the newest one, NAME-1.log for the one before, and so on.
std::wstring LogPath(const std::wstring& directory, const std::wstring& name, int age) {
    return directory + L'\\' + name + (age == 0 ? L"" : L'-' + std::to_wstring(age)) + L".log";
}

struct Log {
    Utils::FileHandle file;  // inheritable
    std::wstring path;
};

// A new log, after the older ones have become one older each.
Log NewLog(const std::wstring& directory, const std::wstring& name) {
    for (int age = OldLogs; age > 0; --age) {
        ::MoveFileExW(LogPath(directory, name, age - 1).c_str(),
                      LogPath(directory, name, age).c_str(), MOVEFILE_REPLACE_EXISTING);
    }
    // One that somebody has open without sharing it has kept its name, so the next one is free.
    // This one is shared, so that its name can change while the companion keeps it open.
    for (int age = 0; age <= OldLogs; ++age) {
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, /*bInheritHandle=*/TRUE};
        std::wstring path = LogPath(directory, name, age);
        Utils::FileHandle file(::CreateFileW(
            path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
            &inheritable, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, /*hTemplateFile=*/nullptr));
        if (file) {
            return {std::move(file), std::move(path)};
        }
    }
    FailWithLastError(LogPath(directory, name, 0) + L" cannot be created");
}

// The file's content; empty if it cannot be read. Through a handle of its own: the log's has the
// position at which the companion would continue.
std::string ContentOf(const std::wstring& path) {
    const Utils::FileHandle file(::CreateFileW(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        /*lpSecurityAttributes=*/nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
        /*hTemplateFile=*/nullptr));
    std::string content;
    char buffer[PieceSize];
    DWORD read = 0;
    while (file && ::ReadFile(file.Get(), buffer, sizeof(buffer), &read, nullptr) && read > 0) {
        content.append(buffer, read);
    }
    return content;
}

// Says each line that is not empty.
void SayLines(const std::string& text, UINT codePage, Listener& listener) {
    const int size = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');  // no longer than that
    wide.resize(static_cast<std::size_t>(
        ::MultiByteToWideChar(codePage, 0, text.data(), size, wide.data(), size)));
    for (std::size_t start = 0; start < wide.size();) {
        const std::size_t end = std::min(wide.find_first_of(L"\r\n", start), wide.size());
        if (end > start) {
            listener.Say(wide.substr(start, end - start));
        }
        start = end + 1;
    }
}

// Runs a program of the directory, with a log of this name, and says the log's lines. Returns the
// program's exit code.
DWORD RunWithLog(const std::wstring& directory, const wchar_t* program,
                 const std::wstring& arguments, const std::wstring& name, UINT codePage,
                 Listener& listener) {
    const Log log = NewLog(directory, name);
    listener.Say(std::wstring(program) + L' ' + arguments + L" > " + log.path);
    const DWORD exitCode = RunProgram(directory + L'\\' + program, arguments, log.file.Get());
    SayLines(ContentOf(log.path), codePage, listener);
    return exitCode;
}

void RunFinasetWith(const std::wstring& directory, const std::wstring& option,
                    const std::wstring& logName, Listener& listener) {
    const DWORD exitCode =
        RunWithLog(directory, Program, option, logName, /*codePage=*/CP_ACP, listener);
    if (exitCode != 0) {  // its own is always 0
        throw Failure{std::wstring(Program) + L" has ended with code " + std::to_wstring(exitCode)};
    }
}

void RunTheProgram(const std::wstring& directory, Listener& listener) {
    RunFinasetWith(directory, L"", L"finaset", listener);
}

void StartTheProduct(const std::wstring& directory, Listener& listener) {
    RunFinasetWith(directory, L"/START", L"finaset-start", listener);
}

void VerifyTheMachine(const std::wstring& directory, Listener& listener) {
    if (RunWithLog(directory, Verifier, L"/CONFIGURE", L"finaset-verify", CP_UTF8, listener) != 0) {
        throw Failure{L"the machine is not configured as it should be; see the lines above"};
    }
}

// The processes that run this file and that can be accessed so.
std::vector<Utils::KernelHandle> ProcessesOf(const std::wstring& program, DWORD access) {
    std::vector<DWORD> ids(MaxProcesses);
    DWORD bytes = 0;
    ::K32EnumProcesses(ids.data(), static_cast<DWORD>(ids.size() * sizeof(DWORD)), &bytes);
    ids.resize(bytes / sizeof(DWORD));
    std::vector<Utils::KernelHandle> processes;
    for (const DWORD id : ids) {
        Utils::KernelHandle process(
            ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE | access, FALSE, id));
        wchar_t path[MAX_PATH] = {};
        DWORD size = MAX_PATH;
        if (process && ::QueryFullProcessImageNameW(process.Get(), 0, path, &size) &&
            ::CompareStringOrdinal(path, -1, program.c_str(), -1, /*bIgnoreCase=*/TRUE) ==
                CSTR_EQUAL) {
            processes.push_back(std::move(process));
        }
    }
    return processes;
}

// Waits for all of them together.
bool HaveEnded(const std::vector<Utils::KernelHandle>& processes, DWORD limitMs) {
    const ULONGLONG end = ::GetTickCount64() + limitMs;
    return std::ranges::all_of(processes, [end](const Utils::KernelHandle& process) {
        const ULONGLONG now = ::GetTickCount64();
        const DWORD left = now < end ? static_cast<DWORD>(end - now) : 0;
        return ::WaitForSingleObject(process.Get(), left) == WAIT_OBJECT_0;
    });
}

void StopTheProduct(const std::wstring& directory, Listener& listener) {
    if (::GetFileAttributesW((directory + L'\\' + Program).c_str()) != INVALID_FILE_ATTRIBUTES) {
        try {
            RunFinasetWith(directory, L"/STOP", L"finaset-stop", listener);
        } catch (const Failure& failure) {
            listener.Say(failure.text);
        }
    }
    // Only this product's; and not before it has ended are its files free.
    const auto companions = ProcessesOf(directory + L'\\' + Companion, PROCESS_TERMINATE);
    for (const Utils::KernelHandle& process : companions) {
        ::TerminateProcess(process.Get(), 0);
    }
    if (!HaveEnded(companions, EndLimitMs)) {
        listener.Say(std::wstring(Companion) + L" cannot be ended");
    }
    // It was asked to quit, which Finaset does not wait for.
    if (!HaveEnded(ProcessesOf(directory + L'\\' + Application, 0), EndLimitMs)) {
        listener.Say(std::wstring(Application) + L" does not quit");
    }
}

// --- The end of a removal

void RemoveTheTask(const std::wstring& /*argument*/, Listener& listener) {
    wchar_t system[MAX_PATH] = {};
    ::GetSystemDirectoryW(system, MAX_PATH);
    const DWORD exitCode =
        RunProgram(std::wstring(system) + L"\\schtasks.exe", DeleteTask, nullptr);
    listener.Say(exitCode == 0 ? L"the idle task is removed" : L"there is no idle task");
}

void RemoveTheLogs(const std::wstring& directory, Listener& /*listener*/) {
    for (const wchar_t* name : {L"finaset", L"finaset-stop", L"finaset-start", L"finaset-verify"}) {
        for (int age = 0; age <= OldLogs; ++age) {
            ::DeleteFileW(LogPath(directory, name, age).c_str());
        }
    }
    ::RemoveDirectoryW(directory.c_str());
    ::RemoveDirectoryW(directory.substr(0, directory.rfind(L'\\')).c_str());
}

// --- The two kinds of installers

using Action = void (*)(const std::wstring& argument, Listener& listener);

// Runs an action with the directory, with or without a backslash at its end.
UINT Run(Action action, std::wstring directory, Listener& listener) noexcept {
    try {
        while (directory.ends_with(L'\\')) {
            directory.pop_back();
        }
        try {
            action(directory, listener);
            return ERROR_SUCCESS;
        } catch (const Failure& failure) {
            listener.Complain(failure.text);
        }
    } catch (const std::exception&) {  // out of memory, which cannot even be said
        return ERROR_INSTALL_FAILURE;
    }
    return ERROR_INSTALL_FAILURE;
}

// Its functions are looked up, since other installers must not load its library: it would be
// searched beside them first.
class WindowsInstaller final : public Listener {
public:
    explicit WindowsInstaller(MSIHANDLE session) : session_(session) {}

    void Say(const std::wstring& line) override { Report(INSTALLMESSAGE_INFO, line); }
    void Complain(const std::wstring& line) override { Report(INSTALLMESSAGE_ERROR, line); }

    // The action's argument; empty if there is none.
    [[nodiscard]] std::wstring Argument() const {
        wchar_t text[MAX_PATH] = {};
        DWORD size = MAX_PATH;
        const auto get = Find<decltype(::MsiGetPropertyW)>("MsiGetPropertyW");
        return get != nullptr && get(session_, L"CustomActionData", text, &size) == ERROR_SUCCESS
                   ? text
                   : L"";
    }

private:
    template <typename Function>
    static Function* Find(const char* name) {
        return Utils::FindFunction<Function>(::GetModuleHandleW(L"msi.dll"), name);
    }

    void Report(INSTALLMESSAGE kind, const std::wstring& line) const {
        const auto create = Find<decltype(::MsiCreateRecord)>("MsiCreateRecord");
        const auto set = Find<decltype(::MsiRecordSetStringW)>("MsiRecordSetStringW");
        const auto process = Find<decltype(::MsiProcessMessage)>("MsiProcessMessage");
        const auto close = Find<decltype(::MsiCloseHandle)>("MsiCloseHandle");
        if (create == nullptr || set == nullptr || process == nullptr || close == nullptr) {
            return;
        }
        const MSIHANDLE record = create(1);
        set(record, 0, L"Finaset: [1]");  // as a field, the line is not a format itself
        set(record, 1, line.c_str());
        process(session_, kind, record);
        close(record);
    }

    MSIHANDLE session_;
};

UINT RunForWindowsInstaller(MSIHANDLE session, Action action) noexcept {
    try {
        WindowsInstaller installer(session);
        return Run(action, installer.Argument(), installer);
    } catch (const std::exception&) {  // out of memory
        return ERROR_INSTALL_FAILURE;
    }
}

// Keeps the lines until they are asked for.
class LineQueue final : public Listener {
public:
    void Say(const std::wstring& line) override { lines_.push_back(line); }
    void Complain(const std::wstring& line) override { lines_.push_back(line); }

    std::optional<std::wstring> Next() {
        if (lines_.empty()) {
            return std::nullopt;
        }
        std::wstring line = std::move(lines_.front());
        lines_.pop_front();
        return line;
    }

private:
    std::deque<std::wstring> lines_;
};

LineQueue& Lines() {
    static LineQueue lines;
    return lines;
}

constexpr std::pair<std::wstring_view, Action> Actions[] = {
    {L"SecureDirectory", &SecureTheDirectory}, {L"RunFinaset", &RunTheProgram},
    {L"VerifyMachine", &VerifyTheMachine},     {L"StopProduct", &StopTheProduct},
    {L"StartProduct", &StartTheProduct},       {L"RemoveTask", &RemoveTheTask},
    {L"RemoveLogs", &RemoveTheLogs},
};

}  // namespace

#define EXPORTED extern "C" __declspec(dllexport)

EXPORTED UINT WINAPI SecureDirectory(MSIHANDLE session) {
    return RunForWindowsInstaller(session, &SecureTheDirectory);
}
EXPORTED UINT WINAPI RunFinaset(MSIHANDLE session) {
    return RunForWindowsInstaller(session, &RunTheProgram);
}
EXPORTED UINT WINAPI VerifyMachine(MSIHANDLE session) {
    return RunForWindowsInstaller(session, &VerifyTheMachine);
}
EXPORTED UINT WINAPI StopProduct(MSIHANDLE session) {
    return RunForWindowsInstaller(session, &StopTheProduct);
}
EXPORTED UINT WINAPI StartProduct(MSIHANDLE session) {
    return RunForWindowsInstaller(session, &StartTheProduct);
}
EXPORTED UINT WINAPI RemoveTask(MSIHANDLE session) {
    return RunForWindowsInstaller(session, &RemoveTheTask);
}
EXPORTED UINT WINAPI RemoveLogs(MSIHANDLE session) {
    return RunForWindowsInstaller(session, &RemoveTheLogs);
}

EXPORTED UINT WINAPI RunAction(const wchar_t* name, const wchar_t* argument) {
    for (const auto& [each, action] : Actions) {
        if (each == name) {
            return Run(action, argument, Lines());
        }
    }
    return ERROR_INSTALL_FAILURE;
}

EXPORTED UINT WINAPI NextLine(wchar_t* buffer) {
    const std::optional<std::wstring> line = Lines().Next();
    const std::size_t length = line ? line->copy(buffer, LineLimit - 1) : 0;
    buffer[length] = L'\0';
    return line ? 1 : 0;
}
