#include "tasks/scheduled_tasks.h"

#include "driver/console_log.h"
#include "fs/path_helpers.h"
#include "proc/process.h"
#include "tasks/com.h"
#include "tasks/task_table.h"

#include <windows.h>

#include <taskschd.h>

#include <cstddef>

namespace {

using Utils::Check;
using Utils::ComError;
using Utils::ComPointer;
using Utils::ComString;
using Utils::Existing;
using Utils::MakeComString;

// The service's object, not connected yet. Returns why it cannot be created.
HRESULT CreateTaskService(ITaskService*& service) {
    IUnknown* object = nullptr;
    HRESULT result = ::CoCreateInstance(__uuidof(TaskScheduler), /*pUnkOuter=*/nullptr, CLSCTX_ALL,
                                        __uuidof(IUnknown), reinterpret_cast<void**>(&object));
    if (FAILED(result)) {
        return result;
    }
    const ComPointer<IUnknown> owner(object);
    result = ::OleRun(&Existing(owner));
    if (FAILED(result)) {
        return result;
    }
    return object->QueryInterface(__uuidof(ITaskService), reinterpret_cast<void**>(&service));
}

// To this machine's service, as the current user.
void Connect(ITaskService& service) {
    VARIANT missing = {};
    missing.vt = VT_ERROR;                 // NOLINT(*-union-access): that is what a VARIANT is
    missing.scode = DISP_E_PARAMNOTFOUND;  // NOLINT(*-union-access)
    Check(service.Connect(missing, missing, missing, missing), service);
}

ComPointer<ITaskFolder> RootFolder(ITaskService& service) {
    const ComString path = MakeComString(L"\\");
    ITaskFolder* folder = nullptr;
    Check(service.GetFolder(path.Get(), &folder), service);
    return ComPointer<ITaskFolder>(folder);
}

void RegisterTask(ITaskService& service, const std::wstring& name, const std::wstring& xml) {
    ITaskDefinition* newTask = nullptr;
    Check(service.NewTask(/*flags=*/0, &newTask), service);
    const ComPointer<ITaskDefinition> owner(newTask);
    ITaskDefinition& definition = Existing(owner);
    const ComString definitionXml = MakeComString(xml);
    Check(definition.put_XmlText(definitionXml.Get()), definition);

    const ComPointer<ITaskFolder> root = RootFolder(service);
    ITaskFolder& folder = Existing(root);
    const ComString path = MakeComString(name);
    const VARIANT empty = {};  // VT_EMPTY: the definition names the group that runs the task
    IRegisteredTask* registered = nullptr;
    Check(folder.RegisterTaskDefinition(path.Get(), &definition, TASK_CREATE_OR_UPDATE,
                                        /*user=*/empty, /*password=*/empty, TASK_LOGON_GROUP,
                                        /*sddl=*/empty, &registered),
          folder);
    const ComPointer<IRegisteredTask> unused(registered);
}

void DeleteTask(ITaskService& service, const std::wstring& name) {
    const ComPointer<ITaskFolder> root = RootFolder(service);
    const ComString path = MakeComString(name);
    if (FAILED(Existing(root).DeleteTask(path.Get(), /*flags=*/0))) {
        // The thread's last error on purpose, not the result. Not a failure: most often there is
        // no such task.
        ConsolePrint(L"     ====> DeleteScheduledTask:[ERROR] %s GetLastError 0x%08x\n",
                     name.c_str(), ::GetLastError());
    }
}

// Hands `work` the connected task service and ends the routine's lines in the log. Returns whether
// no COM error came up.
template <typename Work>
bool WithTaskService(const wchar_t* routine, const Work& work) {
    bool success = true;
    try {
        ITaskService* service = nullptr;
        if (SUCCEEDED(CreateTaskService(service))) {
            const ComPointer<ITaskService> owner(service);
            Connect(Existing(owner));
            work(*service);
        }
    } catch (const ComError& error) {
        ConsolePrint(L"     ====> %s:[_com_error] Exception 0x%08x, %s, %s\n", routine,
                     static_cast<unsigned>(error.Result()), error.Description(),
                     error.MessageText());
        success = false;
    }
    ConsolePrint("     ====> %ls\n", success ? L"SUCCESS" : L"FAILED");
    return success;
}

}  // namespace

bool ScheduleTasks() {
    return ScheduleTasks(ScheduledTaskTable);
}

bool ScheduleTasks(std::span<const ScheduledTaskEntry> tasks) {
    bool result = true;
    for (const ScheduledTaskEntry& task : tasks) {
        const std::wstring processPath = ProcessPathOf(task);
        std::wstring xml = task.taskXml;
        // Only the first one, and as it stands: a path with an & makes the XML invalid.
        if (const std::size_t position = xml.find(ProcessPlaceholder);
            position != std::wstring::npos) {
            xml.replace(position, ProcessPlaceholder.size(), processPath);
        }
        result = CreateScheduledTask(task.taskName, xml, processPath);
    }
    DeleteScheduledTask(ObsoleteTask);
    return result;
}

std::wstring ProcessPathOf(const ScheduledTaskEntry& task) {
    return task.resolveInOwnFolder
               ? JoinPath(ParentDirectoryOf(GetProcessImagePath(::GetCurrentProcess())),
                          task.processName)
               : task.processName;
}

bool CreateScheduledTask(const std::wstring& taskName, const std::wstring& taskXml,
                         const std::wstring& processPath) {
    ConsolePrint("   Creating Task Name [%ls] for Process [%ls]....\n", taskName.c_str(),
                 processPath.c_str());
    return WithTaskService(L"CreateScheduledTask", [&](ITaskService& service) {
        RegisterTask(service, taskName, taskXml);
    });
}

void DeleteScheduledTask(const std::wstring& taskName) {
    ConsolePrint("   Deleting Task Name [%ls]....\n", taskName.c_str());
    WithTaskService(L"DeleteScheduledTask",
                    [&](ITaskService& service) { DeleteTask(service, taskName); });
}
