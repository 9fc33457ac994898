#include "support/fake_adapters.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace test {

namespace {

// Far from any module that is loaded.
const auto Library = reinterpret_cast<HMODULE>(0x7200'0000);

constexpr int Garbage = 0xEE;

std::string Given(const void* pointer) {
    return pointer == nullptr ? "null" : "given";
}

std::string Place(const IP_ADAPTER_ADDRESSES* buffer) {
    if (buffer == nullptr) {
        return "null";
    }
    return reinterpret_cast<std::uintptr_t>(buffer) % alignof(IP_ADAPTER_ADDRESSES) == 0
               ? "aligned"
               : "misaligned";
}

std::string Name(HMODULE module) {
    return module == Library ? "library" : "other";
}

std::size_t RecordsSize(const std::vector<FakeAdapter>& adapters) {
    std::size_t size = adapters.size() * sizeof(IP_ADAPTER_ADDRESSES);
    for (const FakeAdapter& adapter : adapters) {
        size += (adapter.description.size() + 1) * sizeof(wchar_t);
    }
    return size;
}

void PutRecords(const std::vector<FakeAdapter>& adapters, std::byte* to) {
    std::memset(to, Garbage, RecordsSize(adapters));
    auto* records = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(to);
    auto* text = reinterpret_cast<wchar_t*>(records + adapters.size());
    // The first one is at the beginning, the others follow from the end.
    const auto place = [&](std::size_t index) {
        return index == 0 ? records : records + (adapters.size() - index);
    };
    for (std::size_t index = 0; index < adapters.size(); ++index) {
        const auto& [description, status] = adapters[index];
        IP_ADAPTER_ADDRESSES& record = *place(index);
        record.Next = index + 1 == adapters.size() ? nullptr : place(index + 1);
        record.OperStatus = status;
        record.Description = text;
        text = std::copy_n(description.c_str(), description.size() + 1, text);
    }
}

std::wstring Lowered(std::wstring text) {
    std::ranges::transform(text, text.begin(), [](wchar_t character) {
        return character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character + 32)
                                                      : character;
    });
    return text;
}

// What stands before, between and behind the ".*" of a pattern.
std::vector<std::wstring> PiecesOf(std::wstring pattern) {
    std::vector<std::wstring> pieces;
    for (std::size_t at = pattern.find(L".*"); at != std::wstring::npos; at = pattern.find(L".*")) {
        pieces.push_back(pattern.substr(0, at));
        pattern.erase(0, at + 2);
    }
    pieces.push_back(pattern);
    return pieces;
}

// Whether the text has the first piece at its beginning, the last at its end, and the others
// between in this order, with no line end anywhere.
bool HasPieces(std::wstring_view text, const std::vector<std::wstring>& pieces) {
    if (text.find_first_of(L"\r\n") != std::wstring::npos) {
        return false;
    }
    for (const std::wstring& each : pieces) {
        const std::wstring piece = Lowered(each);
        const std::size_t at = &each == &pieces.back() && text.ends_with(piece)
                                   ? text.size() - piece.size()
                                   : text.find(piece);
        if (at == std::wstring::npos || (&each == &pieces.front() && at != 0)) {
            return false;
        }
        text.remove_prefix(at + piece.size());
    }
    return text.empty();
}

}  // namespace

std::vector<std::byte> AdapterRecords(const std::vector<FakeAdapter>& adapters) {
    std::vector<std::byte> records(RecordsSize(adapters));
    if (!adapters.empty()) {
        PutRecords(adapters, records.data());
    }
    return records;
}

std::optional<std::uint32_t> MaskOf(const std::wstring& description) {
    for (const AdapterPattern& row : HardwarePatternTable) {
        if (HasPieces(Lowered(description), PiecesOf(row.pattern))) {
            return row.mask;
        }
    }
    return std::nullopt;
}

std::wstring DescriptionFor(const AdapterPattern& row) {
    std::wstring description;
    for (const std::wstring& piece : PiecesOf(row.pattern)) {
        description += description.empty() || piece.empty() ? piece : L" " + piece;
    }
    return description;
}

FakeAdapters::FakeAdapters()
    : load_([this](LPCWSTR name, HANDLE file, DWORD flags) {
          if (std::wstring(name) != L"iphlpapi.dll") {
              return load_.Forward(name, file, flags);
          }
          calls.Add("LoadLibraryExW", std::wstring(name), Given(file), flags);
          return libraryLoads ? Library : nullptr;
      }),
      free_([this](HMODULE module) {
          if (module != Library) {
              return free_.Forward(module);
          }
          calls.Add("FreeLibrary", Name(module));
          return TRUE;
      }),
      find_([this](HMODULE module, LPCSTR name) {
          if (module != Library) {
              return find_.Forward(module, name);
          }
          calls.Add("GetProcAddress", Name(module), std::string(name));
          return functionIsThere ? reinterpret_cast<FARPROC>(
                                       reinterpret_cast<void*>(&FakeAdapters::GetAdapters))
                                 : nullptr;
      }) {
    instance_ = this;
}

ULONG WINAPI FakeAdapters::GetAdapters(ULONG family, ULONG flags, PVOID reserved,
                                       PIP_ADAPTER_ADDRESSES buffer, PULONG size) {
    instance_->calls.Add("GetAdaptersAddresses", family, flags, Given(reserved), Place(buffer),
                         *size);
    return buffer == nullptr ? instance_->Size(size) : instance_->List(buffer, size);
}

ULONG FakeAdapters::Size(PULONG size) {
    const auto needed = static_cast<ULONG>(RecordsSize(adapters));
    *size = reportedSize.value_or(needed);
    const ULONG result = adapters.empty() ? ERROR_NO_DATA : ERROR_BUFFER_OVERFLOW;
    betweenQueries();
    return sizeResult.value_or(result);
}

ULONG FakeAdapters::List(PIP_ADAPTER_ADDRESSES buffer, PULONG size) {
    if (listResult) {
        return *listResult;
    }
    if (adapters.empty()) {
        return ERROR_NO_DATA;
    }
    const auto needed = static_cast<ULONG>(RecordsSize(adapters));
    if (*size < needed) {
        *size = needed;
        return ERROR_BUFFER_OVERFLOW;
    }
    PutRecords(adapters, reinterpret_cast<std::byte*>(buffer));
    return ERROR_SUCCESS;
}

}  // namespace test
