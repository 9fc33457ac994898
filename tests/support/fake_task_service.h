#pragma once

#include "support/call_log.h"
#include "support/import_hook.h"

#include <windows.h>

#include <objbase.h>

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace test {

// Replaces the task service: objects of its own, which COM creates for the real one's class while
// it lives. Answers as configured, records each call with its arguments, and counts the references
// to its objects. COM must be initialised.
class FakeTaskService {
public:
    FakeTaskService();
    FakeTaskService(const FakeTaskService&) = delete;
    FakeTaskService& operator=(const FakeTaskService&) = delete;
    ~FakeTaskService();

    // What a call answers in place of S_OK, by its name: CreateInstance, Run, QueryInterface (for
    // the service's interface), Connect, NewTask, put_XmlText, GetFolder, RegisterTaskDefinition,
    // DeleteTask, GetTask, get_Xml.
    std::map<std::string, HRESULT> results;

    // The definitions of the registered tasks, by name.
    std::map<std::wstring, std::wstring> tasks;

    // Asked first at each call: its answer, if this has one.
    std::function<std::optional<HRESULT>(std::string_view call)> onCall;

    // The calls that succeed without returning an object.
    std::set<std::string> givesNothing;

    // What a failed method leaves for its caller: nothing, or an error object with this
    // description.
    bool leavesErrorInfo = false;
    std::optional<std::wstring> description;

    // Whether the last called object says that it provides error objects.
    bool supportsErrorInfo = true;

    // The thread's last error that a failed method sets.
    DWORD lastError = 0;

    CallLog calls;

    // How many references to the objects there are, except the platform's own.
    [[nodiscard]] std::size_t References() const { return references_ - ownReferences_; }

private:
    template <typename Base, typename Interface>
    class Counted;
    template <typename Stub, typename Interface>
    class TaskObject;
    class Factory;
    class Service;
    class Definition;
    class Folder;
    class RegisteredTask;
    class StoredTask;
    class ErrorInfo;

    // The answer to a call, with the effects of a failure.
    HRESULT Answer(std::string_view call);

    std::size_t references_ = 0;
    std::size_t ownReferences_ = 0;
    const IUnknown* lastCalled_ = nullptr;
    DWORD registration_ = 0;

    ImportHook<&::CoCreateInstance> create_;
};

}  // namespace test
