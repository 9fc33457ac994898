#include "support/fake_adapters.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace test {

namespace {

// Far from any module that is loaded.
const auto Library = reinterpret_cast<HMODULE>(0x7200'0000);

constexpr int Garbage = 0xEE;

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
    // The first is at the beginning; the others follow from the end.
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

// Whether a pattern of plain text and ".*" matches a whole text.
bool Fits(std::wstring_view text, std::wstring_view pattern) {
    if (pattern.starts_with(L".*")) {
        return Fits(text, pattern.substr(2)) || (!text.empty() && Fits(text.substr(1), pattern));
    }
    return text.empty() || pattern.empty()
               ? text == pattern
               : text[0] == pattern[0] && Fits(text.substr(1), pattern.substr(1));
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
    const bool oneLine = description.find_first_of(L"\r\n") == std::wstring::npos;
    const auto row = std::ranges::find_if(HardwarePatternTable, [&](const AdapterPattern& each) {
        return oneLine && Fits(Lowered(description), Lowered(each.pattern));
    });
    return row == HardwarePatternTable.end() ? std::nullopt : std::optional(row->mask);
}

std::wstring DescriptionFor(const AdapterPattern& row) {
    std::wstring description = row.pattern;
    for (std::size_t at = 0; (at = description.find(L".*", at)) != std::wstring::npos;) {
        description.replace(at, 2, L" ");
    }
    return description.substr(0, description.find_last_not_of(L' ') + 1);
}

FakeAdapters::FakeAdapters()
    : load_([this](LPCWSTR name, HANDLE file, DWORD flags) {
          if (std::wstring(name) != L"iphlpapi.dll") {
              return load_.Forward(name, file, flags);
          }
          calls.Add("LoadLibraryExW", name, file, flags);
          return canBeLoaded ? Library : nullptr;
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
          calls.Add("GetProcAddress", Name(module), name);
          return functionIsThere ? reinterpret_cast<FARPROC>(
                                       reinterpret_cast<void*>(&FakeAdapters::GetAdapters))
                                 : nullptr;
      }) {
    instance_ = this;
}

ULONG WINAPI FakeAdapters::GetAdapters(ULONG family, ULONG flags, PVOID reserved,
                                       PIP_ADAPTER_ADDRESSES buffer, PULONG size) {
    instance_->calls.Add("GetAdaptersAddresses", family, flags, reserved, Place(buffer), *size);
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
