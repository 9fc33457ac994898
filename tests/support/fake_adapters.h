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

// The adapters as the platform returns them: records linked in this order but stored in another,
// with garbage in every field that should not be read.
std::vector<std::byte> AdapterRecords(const std::vector<FakeAdapter>& adapters);

// The mask in the product's table for an adapter of this description, if any, decided by the tests'
// own code: a pattern of plain text and ".*", ignoring case, and no line end.
std::optional<std::uint32_t> MaskOf(const std::wstring& description);

// A description that matches a row's pattern.
std::wstring DescriptionFor(const AdapterPattern& row);

// Replaces the library that lists the machine's adapters: answers as configured and records each
// call with its arguments. Other libraries are not affected.
class FakeAdapters {
public:
    std::vector<FakeAdapter> adapters;
    bool canBeLoaded = true;
    bool functionIsThere = true;
    std::optional<ULONG> sizeResult;    // of the query for the size; none: the usual one
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
