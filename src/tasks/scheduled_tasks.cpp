#include "tasks/scheduled_tasks.h"

#include "driver/console_log.h"
#include "fs/path_helpers.h"
#include "proc/process.h"
#include "tasks/com.h"
#include "tasks/task_table.h"

#include <windows.h>

#include <objbase.h>
#include <taskschd.h>

#include <cstddef>
#include <optional>

const std::wstring ObsoleteTask = L"Tarsel Lumetra Startup Task";

namespace {

using Utils::Check;
using Utils::ComError;
using Utils::ComPointer;
using Utils::ComString;
using Utils::Exists;
using Utils::MakeComString;

// Each of these stops at the first failed call, and sets the error to it.

// The task service object, not connected yet. None if it cannot be created; that is no error.
ComPointer<ITaskService> CreateTaskService(std::optional<ComError>& error) {
    IUnknown* object = nullptr;
    if (FAILED(::CoCreateInstance(__uuidof(TaskScheduler), /*pUnkOuter=*/nullptr, CLSCTX_ALL,
                                  __uuidof(IUnknown), reinterpret_cast<void**>(&object)))) {
        return {};
    }
    const ComPointer<IUnknown> owner(object);
    ITaskService* created = nullptr;
    if (!Exists(owner, error) || FAILED(::OleRun(object)) ||
        FAILED(
            object->QueryInterface(__uuidof(ITaskService), reinterpret_cast<void**>(&created)))) {
        return {};
    }
    ComPointer<ITaskService> service(created);
    Exists(service, error);
    return service;
}

// To the local service, as the current user.
bool Connect(ITaskService& service, std::optional<ComError>& error) {
    VARIANT missing = {};
    missing.vt = VT_ERROR;                 // NOLINT(*-union-access): that is what a VARIANT is
    missing.scode = DISP_E_PARAMNOTFOUND;  // NOLINT(*-union-access)
    return Check(service.Connect(missing, missing, missing, missing), service, error);
}

ComPointer<ITaskFolder> RootFolder(ITaskService& service, std::optional<ComError>& error) {
    const ComString path = MakeComString(L"\\", error);
    ITaskFolder* found = nullptr;
    if (!path || !Check(service.GetFolder(path.Get(), &found), service, error)) {
        return {};
    }
    ComPointer<ITaskFolder> folder(found);
    Exists(folder, error);
    return folder;
}

void RegisterTask(ITaskService& service, const std::wstring& name, const std::wstring& xml,
                  std::optional<ComError>& error) {
    ITaskDefinition* newTask = nullptr;
    if (!Check(service.NewTask(/*flags=*/0, &newTask), service, error)) {
        return;
    }
    const ComPointer<ITaskDefinition> definition(newTask);
    if (!Exists(definition, error)) {
        return;
    }
    const ComString definitionXml = MakeComString(xml.c_str(), error);
    if (!definitionXml || !Check(newTask->put_XmlText(definitionXml.Get()), *newTask, error)) {
        return;
    }

    const ComPointer<ITaskFolder> root = RootFolder(service, error);
    if (!root) {
        return;
    }
    const ComString path = MakeComString(name.c_str(), error);
    if (!path) {
        return;
    }
    ITaskFolder& folder = *root.Get();
    const VARIANT empty = {};  // VT_EMPTY: the definition names the group that runs the task
    IRegisteredTask* registered = nullptr;
    Check(folder.RegisterTaskDefinition(path.Get(), newTask, TASK_CREATE_OR_UPDATE,
                                        /*user=*/empty, /*password=*/empty, TASK_LOGON_GROUP,
                                        /*sddl=*/empty, &registered),
          folder, error);
    const ComPointer<IRegisteredTask> unused(registered);
}

void DeleteTask(ITaskService& service, const std::wstring& name, std::optional<ComError>& error) {
    const ComPointer<ITaskFolder> root = RootFolder(service, error);
    if (!root) {
        return;
    }
    const ComString path = MakeComString(name.c_str(), error);
    if (path && FAILED(root.Get()->DeleteTask(path.Get(), /*flags=*/0))) {
        // The thread's last error on purpose, not the result. Not a failure: usually there is no
        // such task.
        ConsolePrint(L"     ====> DeleteScheduledTask:[ERROR] %ls GetLastError 0x%08x\n",
                     name.c_str(), ::GetLastError());
    }
}

// Passes `work` the connected task service and ends the routine's lines in the log. Returns whether
// there was no COM error.
template <typename Work>
bool WithTaskService(const wchar_t* routine, const Work& work) {
    std::optional<ComError> error;
    {
        const ComPointer<ITaskService> service = CreateTaskService(error);
        if (service && Connect(*service.Get(), error)) {
            work(*service.Get(), error);
        }
    }
    if (error) {
        ConsolePrint(L"     ====> %ls:[_com_error] Exception 0x%08x, %ls, %ls\n", routine,
                     static_cast<unsigned>(error->Result()), error->Description(),
                     error->MessageText());
    }
    ConsolePrint("     ====> %ls\n", error ? L"FAILED" : L"SUCCESS");
    return !error;
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
        // Only the first one, and unescaped: an & in the path makes the XML invalid.
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
    return WithTaskService(L"CreateScheduledTask",
                           [&](ITaskService& service, std::optional<ComError>& error) {
                               RegisterTask(service, taskName, taskXml, error);
                           });
}

void DeleteScheduledTask(const std::wstring& taskName) {
    ConsolePrint("   Deleting Task Name [%ls]....\n", taskName.c_str());
    WithTaskService(L"DeleteScheduledTask",
                    [&](ITaskService& service, std::optional<ComError>& error) {
                        DeleteTask(service, taskName, error);
                    });
}
