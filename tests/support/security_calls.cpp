#include "support/security_calls.h"

#include <sddl.h>

namespace test {

namespace {

// Revision and entries of an access control list.
std::string ShownList(PACL list) {
    if (list == nullptr) {
        return Shown(nullptr);
    }
    SECURITY_DESCRIPTOR descriptor = {};
    LPSTR text = nullptr;
    if (!::IsValidAcl(list) ||
        !::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !::SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE) ||
        !::ConvertSecurityDescriptorToStringSecurityDescriptorA(
            &descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr)) {
        return "not an access list";
    }
    std::string shown = "revision " + std::to_string(list->AclRevision) + " " + text;
    ::LocalFree(text);
    return shown;
}

std::string SecurityCall(const std::wstring& path, DWORD information, const std::string& entries) {
    return Call(path, 1, information, nullptr, nullptr) + ", revision 2 D:" + entries + ", null";
}

}  // namespace

SecurityCalls::SecurityCalls()
    : hook_([this](LPWSTR path, SE_OBJECT_TYPE type, SECURITY_INFORMATION information, PSID owner,
                   PSID group, PACL list, PACL systemList) -> DWORD {
          calls_.push_back(
              Call(LPCWSTR{path}, static_cast<DWORD>(type), information, owner, group) + ", " +
              ShownList(list) + ", " + Shown(systemList));
          ::SetLastError(ERROR_INVALID_FUNCTION);
          const auto error = errors.find(path);
          return error == errors.end() ? DWORD{ERROR_SUCCESS} : error->second;
      }) {}

std::string ProtectedDacl(const std::wstring& path, const std::string& entries) {
    return SecurityCall(path, 0x8000'0004, entries);
}

std::string InheritedDacl(const std::wstring& path) {
    return SecurityCall(path, 0x2000'0004, {});
}

}  // namespace test
