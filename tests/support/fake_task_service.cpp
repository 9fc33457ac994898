#include "support/fake_task_service.h"

#include "support/com_object.h"

#include <oleauto.h>
#include <taskschd.h>

#include <stdexcept>
#include <utility>

namespace test {

namespace {

std::string Text(const VARIANT& value) {
    if (value.vt == VT_ERROR && value.scode == DISP_E_PARAMNOTFOUND) {
        return "missing";
    }
    return value.vt == VT_EMPTY ? "empty" : "of type " + std::to_string(value.vt);
}

std::string Text(REFIID iid) {
    wchar_t text[40] = {};
    ::StringFromGUID2(iid, text, 40);
    return Narrow(text);
}

std::string NullOrOther(const void* pointer) {
    return pointer == nullptr ? "null" : "other";
}

}  // namespace

// Its references count as the fake's.
template <typename Base, typename Interface>
class FakeTaskService::Counted : public ComObject<Base, Interface> {
public:
    explicit Counted(FakeTaskService& fake) : fake_(fake) { ++fake_.references_; }

    ULONG STDMETHODCALLTYPE AddRef() override {
        ++fake_.references_;
        return ComObject<Base, Interface>::AddRef();
    }
    ULONG STDMETHODCALLTYPE Release() override {
        --fake_.references_;
        return ComObject<Base, Interface>::Release();
    }

protected:
    FakeTaskService& Fake() const { return fake_; }

    template <typename... Arguments>
    HRESULT Answer(std::string_view call, const Arguments&... arguments) {
        fake_.calls.Add(call, arguments...);
        fake_.lastCalled_ = static_cast<Interface*>(this);
        return fake_.Answer(call);
    }

    // What a call with this answer returns.
    template <typename Given, typename Wanted>
    void Give(const char* call, HRESULT answer, Wanted** object) {
        const bool gives = SUCCEEDED(answer) && !fake_.givesNothing.contains(call);
        *object = gives ? new Given(fake_) : nullptr;
    }

private:
    FakeTaskService& fake_;
};

// A task service object, which says whether it provides error objects.
template <typename Stub, typename Interface>
class FakeTaskService::TaskObject : public Counted<Stub, Interface>, public ISupportErrorInfo {
public:
    using Counted<Stub, Interface>::Counted;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (iid != __uuidof(ISupportErrorInfo)) {
            return Counted<Stub, Interface>::QueryInterface(iid, object);
        }
        *object = static_cast<ISupportErrorInfo*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return Counted<Stub, Interface>::AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return Counted<Stub, Interface>::Release(); }

    HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override {
        const bool supported =
            this->Fake().supportsErrorInfo && iid == __uuidof(Interface) &&
            this->Fake().lastCalled_ == static_cast<IUnknown*>(static_cast<Interface*>(this));
        return supported ? S_OK : S_FALSE;
    }
};

class FakeTaskService::ErrorInfo : public Counted<IErrorInfo, IErrorInfo> {
public:
    using Counted::Counted;

    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* text) override {
        const std::optional<std::wstring>& left = Fake().description;
        *text = left ? ::SysAllocString(left->c_str()) : nullptr;
        return left ? S_OK : E_FAIL;
    }

    HRESULT STDMETHODCALLTYPE GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD*) override { return E_NOTIMPL; }
};

// Code that registers a task only releases the result, so this is no more than an object.
class FakeTaskService::RegisteredTask : public Counted<IUnknown, IUnknown> {
public:
    using Counted::Counted;
};

// A task that was registered before.
class FakeTaskService::StoredTask : public Counted<RegisteredTaskStub, IRegisteredTask> {
public:
    StoredTask(FakeTaskService& fake, std::wstring xml) : Counted(fake), xml_(std::move(xml)) {}

    HRESULT STDMETHODCALLTYPE get_Xml(BSTR* xml) override {
        const HRESULT answer = Answer("get_Xml");
        *xml = SUCCEEDED(answer) ? ::SysAllocString(xml_.c_str()) : nullptr;
        return answer;
    }

private:
    std::wstring xml_;
};

class FakeTaskService::Definition : public TaskObject<TaskDefinitionStub, ITaskDefinition> {
public:
    using TaskObject::TaskObject;

    HRESULT STDMETHODCALLTYPE put_XmlText(BSTR xml) override {
        return Answer("put_XmlText", std::wstring(xml));
    }
};

class FakeTaskService::Folder : public TaskObject<TaskFolderStub, ITaskFolder> {
public:
    using TaskObject::TaskObject;

    HRESULT STDMETHODCALLTYPE GetTask(BSTR name, IRegisteredTask** task) override {
        const HRESULT answer = Answer("GetTask", std::wstring(name));
        *task = nullptr;
        if (FAILED(answer) || Fake().givesNothing.contains("GetTask")) {
            return answer;
        }
        const auto stored = Fake().tasks.find(name);
        if (stored == Fake().tasks.end()) {
            return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
        }
        *task = new StoredTask(Fake(), stored->second);
        return answer;
    }
    HRESULT STDMETHODCALLTYPE DeleteTask(BSTR name, LONG flags) override {
        return Answer("DeleteTask", std::wstring(name), flags);
    }
    HRESULT STDMETHODCALLTYPE RegisterTaskDefinition(BSTR path, ITaskDefinition* definition,
                                                     LONG flags, VARIANT user, VARIANT password,
                                                     TASK_LOGON_TYPE logon, VARIANT sddl,
                                                     IRegisteredTask** task) override {
        constexpr const char* call = "RegisterTaskDefinition";
        const HRESULT answer =
            Answer(call, std::wstring(path), NullOrOther(definition), flags, Text(user),
                   Text(password), static_cast<int>(logon), Text(sddl));
        IUnknown* registered = nullptr;
        Give<RegisteredTask>(call, answer, &registered);
        *task = static_cast<IRegisteredTask*>(registered);
        return answer;
    }
};

class FakeTaskService::Service : public TaskObject<TaskServiceStub, ITaskService> {
public:
    explicit Service(FakeTaskService& fake) : TaskObject(fake), runnable_(*this) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (iid == __uuidof(IRunnableObject)) {
            *object = &runnable_;
            AddRef();
            return S_OK;
        }
        if (iid != __uuidof(ITaskService)) {
            return TaskObject::QueryInterface(iid, object);
        }
        const HRESULT answer = Answer("QueryInterface");
        if (FAILED(answer) || Fake().givesNothing.contains("QueryInterface")) {
            *object = nullptr;
            return answer;
        }
        return TaskObject::QueryInterface(iid, object);
    }

    HRESULT STDMETHODCALLTYPE Connect(VARIANT server, VARIANT user, VARIANT domain,
                                      VARIANT password) override {
        return Answer("Connect", Text(server), Text(user), Text(domain), Text(password));
    }
    HRESULT STDMETHODCALLTYPE NewTask(DWORD flags, ITaskDefinition** definition) override {
        const HRESULT answer = Answer("NewTask", flags);
        Give<Definition>("NewTask", answer, definition);
        return answer;
    }
    HRESULT STDMETHODCALLTYPE GetFolder(BSTR path, ITaskFolder** folder) override {
        const HRESULT answer = Answer("GetFolder", std::wstring(path));
        Give<Folder>("GetFolder", answer, folder);
        return answer;
    }

private:
    // What the platform runs an object by.
    class Runnable : public IRunnableObject {
    public:
        explicit Runnable(Service& service) : service_(service) {}

        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
            return service_.QueryInterface(iid, object);
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return service_.AddRef(); }
        ULONG STDMETHODCALLTYPE Release() override { return service_.Release(); }
        HRESULT STDMETHODCALLTYPE Run(IBindCtx*) override { return service_.Answer("Run"); }

        HRESULT STDMETHODCALLTYPE GetRunningClass(LPCLSID) override { return E_NOTIMPL; }
        BOOL STDMETHODCALLTYPE IsRunning() override { return FALSE; }
        HRESULT STDMETHODCALLTYPE LockRunning(BOOL, BOOL) override { return E_NOTIMPL; }
        HRESULT STDMETHODCALLTYPE SetContainedObject(BOOL) override { return E_NOTIMPL; }

    private:
        Service& service_;
    };

    Runnable runnable_;
};

class FakeTaskService::Factory : public Counted<IClassFactory, IClassFactory> {
public:
    using Counted::Counted;

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        const HRESULT answer = Answer("CreateInstance", NullOrOther(outer));
        *object = nullptr;
        if (FAILED(answer)) {
            return answer;
        }
        auto* const service = new Service(Fake());
        const HRESULT found = service->QueryInterface(iid, object);
        service->Release();
        return found;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

FakeTaskService::FakeTaskService()
    : create_([this](REFCLSID classId, IUnknown* outer, DWORD context, REFIID iid, void** object) {
          calls.Add("CoCreateInstance", Text(classId), NullOrOther(outer), context, Text(iid));
          return create_.Forward(classId, outer, context, iid, object);
      }) {
    auto* const factory = new Factory(*this);
    const HRESULT registered = ::CoRegisterClassObject(
        __uuidof(TaskScheduler), factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &registration_);
    factory->Release();
    if (FAILED(registered)) {
        throw std::runtime_error("COM takes no class object");
    }
    ownReferences_ = references_;
}

FakeTaskService::~FakeTaskService() {
    ::SetErrorInfo(0, nullptr);
    ::CoRevokeClassObject(registration_);
}

HRESULT FakeTaskService::Answer(std::string_view call) {
    HRESULT answer = S_OK;
    if (const auto result = results.find(std::string(call)); result != results.end()) {
        answer = result->second;
    }
    if (onCall) {
        answer = onCall(call).value_or(answer);
    }
    if (SUCCEEDED(answer)) {
        return answer;
    }
    if (leavesErrorInfo) {
        auto* const info = new ErrorInfo(*this);
        ::SetErrorInfo(0, info);
        info->Release();
    }
    ::SetLastError(lastError);
    return answer;
}

}  // namespace test
