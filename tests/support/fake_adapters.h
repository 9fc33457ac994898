#pragma once

#include "hw/adapter_patterns.h"
#include "support/call_log.h"
#include "support/import_hook.h"

#include <winsock2.h>

#include <iphlpapi.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace test {

// A network adapter of the faked machine.
struct FakeAdapter {
    std::wstring description;
    IF_OPER_STATUS status = IfOperStatusUp;
};

// The adapters in the form in which the platform hands them out: records linked in this order,
// which is not that of their places, and nothing of use in any field that is not to be looked at.
std::vector<std::byte> AdapterRecords(const std::vector<FakeAdapter>& adapters);

// The mask that the product's table has for an adapter of this description, or none, in words of
// the tests' own: a pattern of plain text and ".*", in any case, and no line end.
std::optional<std::uint32_t> MaskOf(const std::wstring& description);

// A description that a row's pattern matches.
std::wstring DescriptionFor(const AdapterPattern& row);

// Takes the place of the library that knows the machine's adapters: answers as it is set and enters
// each call, with its arguments, in a log. Other libraries are left alone.
class FakeAdapters {
public:
    std::vector<FakeAdapter> adapters;
    bool libraryLoads = true;
    bool functionIsThere = true;
    std::optional<ULONG> sizeResult;    // of the query for the size; what it is otherwise, if none
    std::optional<ULONG> reportedSize;  // by that query
    std::optional<ULONG> listResult;    // of the query for the adapters

    // What happens on the machine between the two queries.
    std::function<void()> betweenQueries = [] {};

    CallLog calls;

private:
    static ULONG WINAPI GetAdapters(ULONG family, ULONG flags, PVOID reserved,
                                    PIP_ADAPTER_ADDRESSES buffer, PULONG size);
    ULONG Size(PULONG size);
    ULONG List(PIP_ADAPTER_ADDRESSES buffer, PULONG size);

    static inline FakeAdapters* instance_ = nullptr;

    ImportHook<&::LoadLibraryExW> load_;
    ImportHook<&::FreeLibrary> free_;
    ImportHook<&::GetProcAddress> find_;

public:
    FakeAdapters();
    FakeAdapters(const FakeAdapters&) = delete;
    FakeAdapters& operator=(const FakeAdapters&) = delete;
    ~FakeAdapters() { instance_ = nullptr; }
};

}  // namespace test
