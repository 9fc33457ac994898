#include "verify/access_list.h"

#include "shared/owner.h"

#include <sddl.h>

#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <string>

namespace verify {

namespace {

struct LocalTextPolicy {
    using Handle = wchar_t*;
    static constexpr Handle None = nullptr;
    static void Release(Handle handle) noexcept { ::LocalFree(handle); }
};

using LocalText = Utils::Owner<LocalTextPolicy>;

// A protected access control list of the table's entries, in the platform's form. As in a run,
// entries without a valid trustee are left out.
class TableList {
public:
    explicit TableList(std::span<const AceSpec> entries)
        : storage_((sizeof(ACL) + entries.size() * EntryBytes) / sizeof(DWORD)) {
        auto* const list = reinterpret_cast<PACL>(storage_.data());
        ::InitializeAcl(list, static_cast<DWORD>(storage_.size() * sizeof(DWORD)), ACL_REVISION);
        for (const AceSpec& entry : entries) {
            SecurityId sid = entry.sid;
            if (sid.subAuthorityCount <= std::size(sid.subAuthorities) && ::IsValidSid(&sid)) {
                ::AddAccessAllowedAceEx(list, ACL_REVISION, static_cast<BYTE>(entry.aceFlags),
                                        entry.accessMask, &sid);
            }
        }
        ::InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION);
        ::SetSecurityDescriptorDacl(&descriptor_, TRUE, list, FALSE);
        ::SetSecurityDescriptorControl(&descriptor_, SE_DACL_PROTECTED, SE_DACL_PROTECTED);
    }

    PSECURITY_DESCRIPTOR Get() { return &descriptor_; }

private:
    static constexpr std::size_t EntryBytes =
        sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD) + sizeof(SecurityId);

    std::vector<DWORD> storage_;  // DWORDs, for the alignment that a list needs
    SECURITY_DESCRIPTOR descriptor_ = {};
};

struct View {
    bool isProtected;
    PACL list;  // null if everyone has full access
};

View ViewOf(PSECURITY_DESCRIPTOR descriptor) {
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    ::GetSecurityDescriptorControl(descriptor, &control, &revision);
    BOOL present = FALSE;
    PACL list = nullptr;
    BOOL defaulted = FALSE;
    ::GetSecurityDescriptorDacl(descriptor, &present, &list, &defaulted);
    return {(control & SE_DACL_PROTECTED) != 0, present ? list : nullptr};
}

// Calls `visit` with each entry. Returns whether all of them could be read.
bool ForEachEntry(PACL list, const std::function<void(ACCESS_ALLOWED_ACE&)>& visit) {
    for (DWORD index = 0; index < list->AceCount; ++index) {
        void* entry = nullptr;
        if (!::GetAce(list, index, &entry)) {
            return false;
        }
        visit(*static_cast<ACCESS_ALLOWED_ACE*>(entry));
    }
    return true;
}

// A trustee's rights.
struct Rights {
    DWORD here = 0;
    DWORD files = 0;  // in the files below
    DWORD directories = 0;

    bool operator==(const Rights&) const = default;
};

struct Effect {
    std::map<std::wstring, Rights> granted;  // by trustee
    bool grantsOnly = true;                  // no entry has another type
};

DWORD OfFiles(DWORD mask) {
    GENERIC_MAPPING mapping = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
                               FILE_ALL_ACCESS};
    ::MapGenericMask(&mask, &mapping);
    return mask;
}

// The trustee of an entry.
std::wstring TextOf(ACCESS_ALLOWED_ACE& entry) {
    wchar_t* text = nullptr;
    const bool converted = ::ConvertSidToStringSidW(&entry.SidStart, &text) != FALSE;
    const LocalText owner(text);
    return converted ? text : L"a trustee that is none";
}

Effect EffectOf(PACL list) {
    Effect effect;
    const bool allRead = ForEachEntry(list, [&](ACCESS_ALLOWED_ACE& entry) {
        if (entry.Header.AceType != ACCESS_ALLOWED_ACE_TYPE) {
            effect.grantsOnly = false;
            return;
        }
        const DWORD flags = entry.Header.AceFlags;
        const DWORD mask = OfFiles(entry.Mask);
        Rights& rights = effect.granted[TextOf(entry)];
        rights.here |= (flags & INHERIT_ONLY_ACE) == 0 ? mask : 0;
        if ((flags & NO_PROPAGATE_INHERIT_ACE) == 0) {  // otherwise it ends one level below
            rights.files |= (flags & OBJECT_INHERIT_ACE) != 0 ? mask : 0;
            rights.directories |= (flags & CONTAINER_INHERIT_ACE) != 0 ? mask : 0;
        }
    });
    effect.grantsOnly = effect.grantsOnly && allRead;
    return effect;
}

}  // namespace

std::vector<std::wstring> Deviations(PSECURITY_DESCRIPTOR descriptor,
                                     std::span<const AceSpec> entries) {
    std::vector<std::wstring> deviations;
    const View view = ViewOf(descriptor);
    if (view.list == nullptr) {
        deviations.emplace_back(L"no access list, so that everybody may do everything");
        return deviations;
    }
    if (!view.isProtected) {
        deviations.emplace_back(L"a list that is not protected");
    }
    const Effect found = EffectOf(view.list);
    if (!found.grantsOnly) {
        deviations.emplace_back(L"an entry that does not allow");
    }
    TableList table(entries);
    const Effect expected = EffectOf(ViewOf(table.Get()).list);
    for (const auto& [trustee, rights] : expected.granted) {
        const auto granted = found.granted.find(trustee);
        if (granted == found.granted.end()) {
            deviations.push_back(L"nothing for " + trustee);
        } else if (granted->second != rights) {
            deviations.push_back(L"other rights for " + trustee);
        }
    }
    for (const auto& [trustee, rights] : found.granted) {
        if (!expected.granted.contains(trustee)) {
            deviations.push_back(L"an entry for " + trustee);
        }
    }
    return deviations;
}

bool HasItsOwn(PSECURITY_DESCRIPTOR descriptor) {
    const View view = ViewOf(descriptor);
    if (view.isProtected || view.list == nullptr) {
        return true;
    }
    bool own = false;
    const bool allRead = ForEachEntry(view.list, [&](ACCESS_ALLOWED_ACE& entry) {
        if ((entry.Header.AceFlags & INHERITED_ACE) == 0) {
            own = true;
        }
    });
    return own || !allRead;
}

std::wstring Notation(PSECURITY_DESCRIPTOR descriptor) {
    wchar_t* text = nullptr;
    const bool converted = ::ConvertSecurityDescriptorToStringSecurityDescriptorW(
                               descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text,
                               /*StringSecurityDescriptorLen=*/nullptr) != FALSE;
    const LocalText owner(text);
    return converted ? text : L"a list that cannot be shown";
}

std::wstring Notation(std::span<const AceSpec> entries) {
    TableList table(entries);
    return Notation(table.Get());
}

}  // namespace verify
