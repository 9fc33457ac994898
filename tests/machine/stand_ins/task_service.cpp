// The task service of a Windows machine: Wine's own, with two differences. Wine's treats a
// connection with missing arguments as one to another machine, and forgets a task's action; so this
// translates the one, returns definitions unchanged, and appends the definition of each task to the
// file named like this library with ".definitions" appended.

#include "stand_in.h"
#include "support/com_object.h"

#include <windows.h>

#include <oleauto.h>
#include <taskschd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

namespace {

// Wine's objects, each owned by this library's object in front of it.
template <typename Interface>
class Inner {
public:
    explicit Inner(Interface* object) : object_(object) {}
    Inner(const Inner&) = delete;
    Inner& operator=(const Inner&) = delete;
    ~Inner() { object_->Release(); }
    Interface* operator->() const { return object_; }

private:
    Interface* object_;
};

std::wstring OwnPath() {
    HMODULE own = nullptr;
    ::GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<const wchar_t*>(&OwnPath), &own);
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(own, path, MAX_PATH);
    return path;
}

class Definition : public test::ComObject<test::TaskDefinitionStub, ITaskDefinition> {
public:
    explicit Definition(ITaskDefinition* inner) : inner_(inner) {}

    HRESULT STDMETHODCALLTYPE put_XmlText(BSTR xml) override {
        stand_in::AppendLine(OwnPath() + L".definitions", xml);
        xml_ = xml;
        return inner_->put_XmlText(xml);
    }
    HRESULT STDMETHODCALLTYPE get_XmlText(BSTR* xml) override {
        *xml = ::SysAllocString(xml_.c_str());
        return S_OK;
    }

private:
    Inner<ITaskDefinition> inner_;
    std::wstring xml_;
};

class RegisteredTask : public test::ComObject<test::RegisteredTaskStub, IRegisteredTask> {
public:
    explicit RegisteredTask(std::wstring xml) : xml_(std::move(xml)) {}

    HRESULT STDMETHODCALLTYPE get_Xml(BSTR* xml) override {
        *xml = ::SysAllocString(xml_.c_str());
        return S_OK;
    }

private:
    std::wstring xml_;
};

class Folder : public test::ComObject<test::TaskFolderStub, ITaskFolder> {
public:
    explicit Folder(ITaskFolder* inner) : inner_(inner) {}

    HRESULT STDMETHODCALLTYPE RegisterTaskDefinition(BSTR path, ITaskDefinition* definition,
                                                     LONG flags, VARIANT user, VARIANT password,
                                                     TASK_LOGON_TYPE logon, VARIANT sddl,
                                                     IRegisteredTask** task) override {
        return inner_->RegisterTaskDefinition(path, definition, flags, user, password, logon, sddl,
                                              task);
    }
    HRESULT STDMETHODCALLTYPE DeleteTask(BSTR name, LONG flags) override {
        return inner_->DeleteTask(name, flags);
    }
    // From Wine's file of it.
    HRESULT STDMETHODCALLTYPE GetTask(BSTR name, IRegisteredTask** task) override {
        wchar_t directory[MAX_PATH] = {};
        ::GetSystemDirectoryW(directory, MAX_PATH);
        std::ifstream file(std::filesystem::path(directory) / L"tasks" / name, std::ios::binary);
        *task = nullptr;
        if (!file) {
            return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
        }
        const std::string stored(std::istreambuf_iterator<char>(file), {});
        std::wstring xml(stored.size(), L'\0');
        const int length =
            ::MultiByteToWideChar(CP_UTF8, 0, stored.data(), static_cast<int>(stored.size()),
                                  xml.data(), static_cast<int>(xml.size()));
        xml.resize(static_cast<std::size_t>(length));
        // Its declaration says UTF-8.
        const std::size_t root = xml.find(L"<Task");
        xml = L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>" +
              xml.substr(root == std::wstring::npos ? 0 : root);
        *task = new RegisteredTask(xml);
        return S_OK;
    }

private:
    Inner<ITaskFolder> inner_;
};

class Service : public test::ComObject<test::TaskServiceStub, ITaskService> {
public:
    explicit Service(ITaskService* inner) : inner_(inner) {}

    HRESULT STDMETHODCALLTYPE Connect(VARIANT server, VARIANT user, VARIANT domain,
                                      VARIANT password) override {
        for (VARIANT* argument : {&server, &user, &domain, &password}) {
            if (argument->vt == VT_ERROR && argument->scode == DISP_E_PARAMNOTFOUND) {
                *argument = {};
            }
        }
        return inner_->Connect(server, user, domain, password);
    }
    HRESULT STDMETHODCALLTYPE NewTask(DWORD flags, ITaskDefinition** definition) override {
        const HRESULT result = inner_->NewTask(flags, definition);
        if (SUCCEEDED(result)) {
            *definition = new Definition(*definition);
        }
        return result;
    }
    HRESULT STDMETHODCALLTYPE GetFolder(BSTR path, ITaskFolder** folder) override {
        const HRESULT result = inner_->GetFolder(path, folder);
        if (SUCCEEDED(result)) {
            *folder = new Folder(*folder);
        }
        return result;
    }

private:
    Inner<ITaskService> inner_;
};

// Wine's own service object.
HRESULT CreateInner(ITaskService** service) {
    const HMODULE library =
        ::LoadLibraryExW(L"taskschd.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const auto getClassObject = reinterpret_cast<decltype(&::DllGetClassObject)>(
        reinterpret_cast<void*>(::GetProcAddress(library, "DllGetClassObject")));
    IClassFactory* factory = nullptr;
    HRESULT result = getClassObject(__uuidof(TaskScheduler), __uuidof(IClassFactory),
                                    reinterpret_cast<void**>(&factory));
    if (SUCCEEDED(result)) {
        result = factory->CreateInstance(nullptr, __uuidof(ITaskService),
                                         reinterpret_cast<void**>(service));
        factory->Release();
    }
    return result;
}

class Factory : public test::ComObject<IClassFactory> {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        *object = nullptr;
        ITaskService* inner = nullptr;
        const HRESULT result = outer != nullptr ? CLASS_E_NOAGGREGATION : CreateInner(&inner);
        if (FAILED(result)) {
            return result;
        }
        auto* const service = new Service(inner);
        const HRESULT found = service->QueryInterface(iid, object);
        service->Release();
        return found;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

}  // namespace

STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, void** object) {
    *object = nullptr;
    if (classId != __uuidof(TaskScheduler)) {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    auto* const factory = new Factory;
    const HRESULT found = factory->QueryInterface(iid, object);
    factory->Release();
    return found;
}

STDAPI DllCanUnloadNow() {
    return S_FALSE;
}
