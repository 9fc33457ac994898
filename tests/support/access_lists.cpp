#include "support/access_lists.h"

#include <sddl.h>

#include <cstring>

namespace test {

AccessLists::AccessLists()
    : create_([this](LPCWSTR path, DWORD access, DWORD share, auto* security, DWORD disposition,
                     DWORD flags, HANDLE pattern) {
          if (access != READ_CONTROL) {
              return create_.Forward(path, access, share, security, disposition, flags, pattern);
          }
          std::wstring key = path;
          if (key.ends_with(L'\\')) {
              key.pop_back();
          }
          if (const auto error = openErrors.find(key); error != openErrors.end()) {
              ::SetLastError(error->second);
              return INVALID_HANDLE_VALUE;
          }
          const HANDLE file =
              create_.Forward(path, access, share, security, disposition, flags, pattern);
          open_[file] = key;
          return file;
      }),
      read_([this](HANDLE file, SECURITY_INFORMATION /*what*/, PSECURITY_DESCRIPTOR buffer,
                   DWORD size, DWORD* needed) { return Answer(file, buffer, size, needed); }) {}

BOOL AccessLists::Answer(HANDLE file, void* buffer, DWORD size, DWORD* needed) {
    const std::wstring& path = open_.at(file);
    if (const auto error = readErrors.find(path); error != readErrors.end()) {
        *needed = 0;
        ::SetLastError(error->second);
        return FALSE;
    }
    const auto entry = lists.find(path);
    const std::wstring text =
        entry == lists.end() ? L"D:AI(A;ID;FA;;;BA)(A;ID;FA;;;SY)" : entry->second;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ::ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1,
                                                           &descriptor, needed);
    const bool fits = *needed <= size;
    if (fits) {
        std::memcpy(buffer, descriptor, *needed);
    }
    ::LocalFree(descriptor);
    ::SetLastError(fits ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER);
    return fits;
}

}  // namespace test
