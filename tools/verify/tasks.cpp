#include "verify/tasks.h"

#include "shared/find_function.h"
#include "shared/owner.h"
#include "tasks/com.h"

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <taskschd.h>
#include <xmllite.h>

#include <cstddef>
#include <utility>
#include <vector>

namespace verify {

namespace {

using Utils::ComPointer;
using Utils::ComString;

// What COM returns for an error of the system.
HRESULT ResultOf(DWORD error) {
    return HRESULT_FROM_WIN32(error);
}

// An object, or why there is none.
template <typename Interface>
struct Obtained {
    HRESULT result;
    ComPointer<Interface> object;
};

// Calls `obtain` with the address of a pointer for the object.
template <typename Interface, typename Obtain>
Obtained<Interface> ObtainObject(const Obtain& obtain) {
    Interface* object = nullptr;
    const HRESULT result = obtain(&object);
    return {SUCCEEDED(result) && object == nullptr ? E_POINTER : result,
            ComPointer<Interface>(object)};
}

Obtained<ITaskFolder> RootFolder() {
    const auto create = [](ITaskService** object) {
        return ::CoCreateInstance(__uuidof(TaskScheduler), /*pUnkOuter=*/nullptr,
                                  CLSCTX_INPROC_SERVER, __uuidof(ITaskService),
                                  reinterpret_cast<void**>(object));
    };
    const auto service = ObtainObject<ITaskService>(create);
    if (FAILED(service.result)) {
        return {service.result, {}};
    }
    const VARIANT empty = {};  // VT_EMPTY: this machine, the current user
    if (const HRESULT result = service.object.Get()->Connect(empty, empty, empty, empty);
        FAILED(result)) {
        return {result, {}};
    }
    const ComString path(::SysAllocString(L"\\"));
    return ObtainObject<ITaskFolder>(
        [&](ITaskFolder** object) { return service.object.Get()->GetFolder(path.Get(), object); });
}

// Reads a task's definition into `xml`.
HRESULT ReadTask(ITaskFolder& folder, const std::wstring& name, std::wstring& xml) {
    const ComString path(::SysAllocString(name.c_str()));
    const auto task = ObtainObject<IRegisteredTask>(
        [&](IRegisteredTask** object) { return folder.GetTask(path.Get(), object); });
    if (FAILED(task.result)) {
        return task.result;
    }
    BSTR text = nullptr;
    const HRESULT result = task.object.Get()->get_Xml(&text);
    const ComString owner(text);
    if (text != nullptr) {
        xml.assign(text, ::SysStringLen(text));
    }
    return result;
}

// The relevant parts of a definition.
struct Definition {
    std::vector<std::wstring> commands;
    std::vector<std::wstring> principals;  // groups and users
};

// Reads XML with the platform's own reader.
class DefinitionReader {
public:
    explicit DefinitionReader(IXmlReader& reader) : reader_(reader) {}

    HRESULT Read(Definition& definition) {
        XmlNodeType type = XmlNodeType_None;
        HRESULT result = S_OK;
        while ((result = reader_.Read(&type)) == S_OK) {
            Take(type, definition);
        }
        const bool whole = hasRoot_ && path_.empty();
        return FAILED(result) || whole ? result : ResultOf(ERROR_INVALID_DATA);
    }

private:
    void Take(XmlNodeType type, Definition& definition) {
        if (type == XmlNodeType_Element) {
            const wchar_t* name = L"";
            reader_.GetLocalName(&name, nullptr);
            path_ += L'/';
            path_ += name;
            hasRoot_ = true;
            if (std::vector<std::wstring>* const texts = TextsOf(definition)) {
                texts->emplace_back();
            }
            if (reader_.IsEmptyElement()) {
                Leave();
            }
        } else if (type == XmlNodeType_EndElement) {
            Leave();
        } else if (type == XmlNodeType_Text || type == XmlNodeType_CDATA ||
                   type == XmlNodeType_Whitespace) {
            if (std::vector<std::wstring>* const texts = TextsOf(definition)) {
                const wchar_t* text = L"";
                reader_.GetValue(&text, nullptr);
                texts->back() += text;
            }
        }
    }

    void Leave() { path_.erase(path_.rfind(L'/')); }

    // Where the open element's text belongs, or null.
    [[nodiscard]] std::vector<std::wstring>* TextsOf(Definition& definition) const {
        if (path_ == L"/Task/Actions/Exec/Command") {
            return &definition.commands;
        }
        if (path_ == L"/Task/Principals/Principal/GroupId" ||
            path_ == L"/Task/Principals/Principal/UserId") {
            return &definition.principals;
        }
        return nullptr;
    }

    IXmlReader& reader_;
    std::wstring path_;  // of the open element, from the root
    bool hasRoot_ = false;
};

HRESULT ReadDefinition(const std::wstring& xml, Definition& definition) {
    // From the system directory only: an import would load a file of that name from the program's
    // own directory.
    const Utils::Library library(
        ::LoadLibraryExW(L"xmllite.dll", /*hFile=*/nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
    const auto createXmlReader =
        Utils::FindFunction<decltype(::CreateXmlReader)>(library.Get(), "CreateXmlReader");
    if (createXmlReader == nullptr) {
        return ResultOf(ERROR_PROC_NOT_FOUND);
    }
    const auto createStream = [](IStream** object) {
        return ::CreateStreamOnHGlobal(/*hGlobal=*/nullptr, /*fDeleteOnRelease=*/TRUE, object);
    };
    const auto stream = ObtainObject<IStream>(createStream);
    const auto createReader = [&](IXmlReader** object) {
        return createXmlReader(__uuidof(IXmlReader), reinterpret_cast<void**>(object),
                               /*pMalloc=*/nullptr);
    };
    const auto reader = ObtainObject<IXmlReader>(createReader);
    if (FAILED(stream.result) || FAILED(reader.result)) {
        return FAILED(stream.result) ? stream.result : reader.result;
    }
    // The XML declares its encoding, but not its byte order. A failure here shows as a definition
    // that ends too early.
    const std::wstring marked = L'\uFEFF' + xml;
    stream.object.Get()->Write(marked.data(), static_cast<ULONG>(marked.size() * sizeof(wchar_t)),
                               /*pcbWritten=*/nullptr);
    stream.object.Get()->Seek({}, STREAM_SEEK_SET, /*plibNewPosition=*/nullptr);
    reader.object.Get()->SetInput(stream.object.Get());
    return DefinitionReader(*reader.object.Get()).Read(definition);
}

std::wstring TextOf(const Definition& definition) {
    return Joined(definition.commands, L", ") + L" for " + Joined(definition.principals, L", ");
}

// The task as in the table, with its program's path in place of the placeholder.
std::wstring Expected(const ScheduledTaskEntry& task) {
    Definition definition;
    ReadDefinition(task.taskXml, definition);
    std::wstring text = TextOf(definition);
    if (const std::size_t position = text.find(ProcessPlaceholder);
        position != std::wstring::npos) {
        text.replace(position, ProcessPlaceholder.size(), ProcessPathOf(task));
    }
    return text;
}

bool IsAbsent(HRESULT result) {
    return result == ResultOf(ERROR_FILE_NOT_FOUND) || result == ResultOf(ERROR_PATH_NOT_FOUND);
}

Finding OfTask(const Obtained<ITaskFolder>& root, const ScheduledTaskEntry& task,
               const std::wstring& expected) {
    if (FAILED(root.result)) {
        return CannotTell(L"the Task Scheduler: " + ErrorText(static_cast<DWORD>(root.result)));
    }
    std::wstring xml;
    HRESULT result = ReadTask(*root.object.Get(), task.taskName, xml);
    if (IsAbsent(result)) {
        return Found(/*asExpected=*/false, L"absent");
    }
    Definition definition;
    if (SUCCEEDED(result)) {
        result = ReadDefinition(xml, definition);
    }
    if (FAILED(result)) {
        return CannotTell(static_cast<DWORD>(result));
    }
    std::wstring text = TextOf(definition);
    const bool same = ::CompareStringOrdinal(text.c_str(), -1, expected.c_str(), -1,
                                             /*bIgnoreCase=*/TRUE) == CSTR_EQUAL;
    return Found(same, std::move(text));
}

Finding OfObsoleteTask(const Obtained<ITaskFolder>& root, const std::wstring& name) {
    if (FAILED(root.result)) {
        return CannotTell(L"the Task Scheduler: " + ErrorText(static_cast<DWORD>(root.result)));
    }
    std::wstring xml;
    const HRESULT result = ReadTask(*root.object.Get(), name, xml);
    if (IsAbsent(result)) {
        return Found(/*asExpected=*/true, L"absent");
    }
    if (FAILED(result)) {
        return CannotTell(static_cast<DWORD>(result));
    }
    return Found(/*asExpected=*/false, L"registered");
}

}  // namespace

Rows CheckTasks(std::span<const ScheduledTaskEntry> tasks, const std::wstring& obsoleteTask) {
    const Obtained<ITaskFolder> root = RootFolder();
    Rows rows;
    for (const ScheduledTaskEntry& task : tasks) {
        std::wstring expected = Expected(task);
        Finding finding = OfTask(root, task, expected);
        rows.push_back({"task", task.taskName, std::move(expected), std::move(finding)});
    }
    rows.push_back({"task", obsoleteTask, L"absent", OfObsoleteTask(root, obsoleteTask)});
    return rows;
}

}  // namespace verify
