#pragma once

#include <windows.h>

#include <taskschd.h>

// COM interfaces have no virtual destructor: an object destroys itself.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace test {

// An object with one interface that counts its references and is destroyed with the last. `Base`
// implements what is needed of the interface.
template <typename Base, typename Interface = Base>
class ComObject : public Base {
public:
    ComObject() = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;
    virtual ~ComObject() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        const bool known = iid == __uuidof(IUnknown) || iid == __uuidof(Interface);
        *object = known ? static_cast<Interface*>(this) : nullptr;
        if (!known) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) {
            delete this;
        }
        return left;
    }

private:
    ULONG references_ = 1;
};

// The task service's interfaces with nothing implemented: enough for what nobody calls.

template <typename Interface>
class DispatchStub : public Interface {
public:
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                     UINT*) override {
        return E_NOTIMPL;
    }
};

class TaskServiceStub : public DispatchStub<ITaskService> {
public:
    HRESULT STDMETHODCALLTYPE GetFolder(BSTR, ITaskFolder**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetRunningTasks(LONG, IRunningTaskCollection**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE NewTask(DWORD, ITaskDefinition**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Connect(VARIANT, VARIANT, VARIANT, VARIANT) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_Connected(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_TargetServer(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_ConnectedUser(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_ConnectedDomain(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_HighestVersion(DWORD*) override { return E_NOTIMPL; }
};

class TaskDefinitionStub : public DispatchStub<ITaskDefinition> {
public:
    HRESULT STDMETHODCALLTYPE get_RegistrationInfo(IRegistrationInfo**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE put_RegistrationInfo(IRegistrationInfo*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_Triggers(ITriggerCollection**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Triggers(ITriggerCollection*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Settings(ITaskSettings**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Settings(ITaskSettings*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Data(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Data(BSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Principal(IPrincipal**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Principal(IPrincipal*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Actions(IActionCollection**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Actions(IActionCollection*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_XmlText(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_XmlText(BSTR) override { return E_NOTIMPL; }
};

class TaskFolderStub : public DispatchStub<ITaskFolder> {
public:
    HRESULT STDMETHODCALLTYPE get_Name(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Path(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFolder(BSTR, ITaskFolder**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFolders(LONG, ITaskFolderCollection**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CreateFolder(BSTR, VARIANT, ITaskFolder**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DeleteFolder(BSTR, LONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTask(BSTR, IRegisteredTask**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTasks(LONG, IRegisteredTaskCollection**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DeleteTask(BSTR, LONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RegisterTask(BSTR, BSTR, LONG, VARIANT, VARIANT, TASK_LOGON_TYPE,
                                           VARIANT, IRegisteredTask**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE RegisterTaskDefinition(BSTR, ITaskDefinition*, LONG, VARIANT, VARIANT,
                                                     TASK_LOGON_TYPE, VARIANT,
                                                     IRegisteredTask**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetSecurityDescriptor(LONG, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetSecurityDescriptor(BSTR, LONG) override { return E_NOTIMPL; }
};

class RegisteredTaskStub : public DispatchStub<IRegisteredTask> {
public:
    HRESULT STDMETHODCALLTYPE get_Name(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Path(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_State(TASK_STATE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Enabled(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE put_Enabled(VARIANT_BOOL) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Run(VARIANT, IRunningTask**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RunEx(VARIANT, LONG, LONG, BSTR, IRunningTask**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetInstances(LONG, IRunningTaskCollection**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE get_LastRunTime(DATE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_LastTaskResult(LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_NumberOfMissedRuns(LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_NextRunTime(DATE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Definition(ITaskDefinition**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_Xml(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSecurityDescriptor(LONG, BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetSecurityDescriptor(BSTR, LONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Stop(LONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetRunTimes(const LPSYSTEMTIME, const LPSYSTEMTIME, DWORD*,
                                          SYSTEMTIME**) override {
        return E_NOTIMPL;
    }
};

}  // namespace test
