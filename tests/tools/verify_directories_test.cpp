#include "support/access_lists.h"
#include "support/file_contents.h"
#include "support/import_hook.h"
#include "support/temporary_directory.h"
#include "tools/verify_rows.h"
#include "verify/access_list.h"
#include "verify/directories.h"

#include <windows.h>

#include <sddl.h>

#include <cwchar>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using verify::CheckDirectories;
using verify::Row;
using verify::Verdict;

constexpr SecurityId Administrators = {SID_REVISION, 2, SECURITY_NT_AUTHORITY, {32, 544}};
constexpr SecurityId Users = {SID_REVISION, 2, SECURITY_NT_AUTHORITY, {32, 545}};
constexpr DWORD Inherited = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;

const std::vector<AceSpec> Entries = {{Inherited, GENERIC_ALL, Administrators},
                                      {Inherited, GENERIC_READ | GENERIC_EXECUTE, Users}};

// The list of these entries, as requested.
constexpr wchar_t AsAskedFor[] = L"D:P(A;OICI;GA;;;BA)(A;OICI;GXGR;;;BU)";

class VerifiedDirectories : public testing::Test {
protected:
    VerifiedDirectories() { lists_.lists[top_] = AsAskedFor; }

    Row Check() { return CheckDirectories({&directory_, 1}).front(); }

    std::wstring Found(Verdict verdict) {
        const Row row = Check();
        EXPECT_EQ(row.finding.verdict, verdict) << testing::PrintToString(row.finding.text);
        return row.finding.text;
    }

    // The entry in the directory.
    [[nodiscard]] std::wstring In(const std::wstring& name) const { return top_ + L'\\' + name; }

    test::TemporaryDirectory temporary_;
    std::wstring top_ = temporary_.Path();
    SecuredDirectory directory_ = {Entries, true, top_, {}};
    test::AccessLists lists_;
};

TEST_F(VerifiedDirectories, HaveTheRequestedList) {
    test::PutFile(In(L"file"), "");
    test::PutFile(In(L"below\\deeper\\file"), "");
    const Row row = Check();
    EXPECT_STREQ(row.kind, "directory");
    EXPECT_EQ(row.name, top_);
    EXPECT_EQ(row.expected,
              std::wstring(L"without links, ") + AsAskedFor + L", inherited below it");
    EXPECT_EQ(row.finding.verdict, Verdict::Ok);
    EXPECT_EQ(row.finding.text, AsAskedFor);
}

// What the platform makes of the list when it stores it.
TEST_F(VerifiedDirectories, HaveItInAnyFormInWhichItIsStored) {
    for (const wchar_t* const form : {
             // the generic rights as those of files
             L"D:PAI(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)",
             L"D:PAI(A;OICI;0x1f01ff;;;BA)(A;OICI;FRFX;;;BU)",
             // one entry for the directory and one that is inherited only
             L"D:PAI(A;;FA;;;BA)(A;OICIIO;GA;;;BA)(A;;0x1200a9;;;BU)(A;OICIIO;GXGR;;;BU)",
             L"D:PAI(A;;FA;;;BA)(A;OICIIO;FA;;;BA)(A;;FRFX;;;BU)(A;OICIIO;FRFX;;;BU)",
             // one for files, one for directories, in another order
             L"D:P(A;OI;FRFX;;;BU)(A;CIIO;GRGX;;;BU)(A;OIIO;GA;;;BA)(A;CI;FA;;;BA)",
             // what is there twice is there
             L"D:P(A;OICI;GA;;;BA)(A;OICI;GXGR;;;BU)(A;OICINP;FR;;;BU)",
         }) {
        lists_.lists[top_] = form;
        SCOPED_TRACE(testing::PrintToString(form));
        Found(Verdict::Ok);
    }
}

TEST_F(VerifiedDirectories, HaveNoOtherList) {
    const std::vector<std::pair<std::wstring, std::wstring>> lists = {
        {L"D:P(A;OICI;GA;;;BA)", L"nothing for S-1-5-32-545"},
        {L"D:P(A;OICI;GXGR;;;BU)", L"nothing for S-1-5-32-544"},
        {L"D:P(A;OICI;GA;;;BA)(A;OICI;GXGR;;;BU)(A;;GR;;;WD)", L"an entry for S-1-1-0"},
        {L"D:P(D;OICI;GA;;;BU)(A;OICI;GA;;;BA)(A;OICI;GXGR;;;BU)", L"an entry that does not allow"},
        {L"D:P(D;;GW;;;WD)(A;OICI;GA;;;BA)(A;OICI;GXGR;;;BU)", L"an entry that does not allow"},
        {L"D:(A;OICI;GA;;;BA)(A;OICI;GXGR;;;BU)", L"a list that is not protected"},
        {L"D:AI(A;OICIID;FA;;;BA)(A;OICIID;FRFX;;;BU)", L"a list that is not protected"},
        // a part that is missing
        {L"D:P(A;;GA;;;BA)(A;OICI;GXGR;;;BU)", L"other rights for S-1-5-32-544"},
        {L"D:P(A;OICIIO;GA;;;BA)(A;OICI;GXGR;;;BU)", L"other rights for S-1-5-32-544"},
        {L"D:P(A;OI;GA;;;BA)(A;OICI;GXGR;;;BU)", L"other rights for S-1-5-32-544"},
        {L"D:P(A;CI;GA;;;BA)(A;OICI;GXGR;;;BU)", L"other rights for S-1-5-32-544"},
        {L"D:P(A;OICINP;GA;;;BA)(A;OICI;GXGR;;;BU)", L"other rights for S-1-5-32-544"},
        // a wrong mask
        {L"D:P(A;OICI;GA;;;BA)(A;OICI;GR;;;BU)", L"other rights for S-1-5-32-545"},
        {L"D:P(A;OICI;GA;;;BA)(A;OICI;0x1301bf;;;BU)", L"other rights for S-1-5-32-545"},
        {L"D:P(A;OICI;GA;;;BA)(A;OICI;FRFX;;;BU)(A;OICIIO;FW;;;BU)",
         L"other rights for S-1-5-32-545"},
    };
    for (const auto& [list, deviation] : lists) {
        lists_.lists[top_] = list;
        EXPECT_THAT(Found(Verdict::Differs), StartsWith(deviation + L" in D:")) << list.c_str();
    }
    lists_.lists[top_] = L"D:P";
    EXPECT_EQ(Found(Verdict::Differs),
              L"nothing for S-1-5-32-544, nothing for S-1-5-32-545 in D:P");
    lists_.lists[top_] = L"O:BA";
    EXPECT_THAT(Found(Verdict::Differs),
                StartsWith(L"no access list, so that everybody may do everything in "));
}

TEST_F(VerifiedDirectories, WithALongListAreReadCompletely) {
    std::wstring list = AsAskedFor;
    for (int user = 0; user < 300; ++user) {
        list += L"(A;;FR;;;S-1-5-21-1-2-3-" + std::to_wstring(1000 + user) + L")";
    }
    lists_.lists[top_] = list;
    EXPECT_THAT(Found(Verdict::Differs), HasSubstr(L"an entry for S-1-5-21-1-2-3-1299 in"));
}

TEST_F(VerifiedDirectories, LeaveOutWhatHasNoValidTrustee) {
    SecurityId invalid = Users;
    invalid.revision = 9;
    SecurityId tooLong = Users;
    tooLong.subAuthorityCount = 3;
    directory_.aces = {Entries.front(), {0, GENERIC_ALL, invalid}, {0, GENERIC_ALL, tooLong}};
    lists_.lists[top_] = L"D:P(A;OICI;GA;;;BA)";
    EXPECT_EQ(Found(Verdict::Ok), L"D:P(A;OICI;GA;;;BA)");
}

TEST_F(VerifiedDirectories, ThatAreMissingDiffer) {
    directory_.path = In(L"none");
    EXPECT_EQ(Found(Verdict::Differs), L"absent");
    test::PutFile(In(L"none"), "");
    EXPECT_EQ(Found(Verdict::Differs), L"a file");
}

TEST_F(VerifiedDirectories, HaveNoLinkAmongTheirEntries) {
    test::PutFile(In(L"a"), "");
    test::PutFile(In(L"file"), "");
    ASSERT_TRUE(::CreateHardLinkW(In(L"link").c_str(), In(L"file").c_str(), nullptr));
    EXPECT_EQ(Found(Verdict::Differs), L"a link among its entries: " + In(L"file"));
    // The links of deeper levels do not matter.
    std::filesystem::create_directory(In(L"below"));
    std::filesystem::rename(In(L"link"), In(L"below\\link"));
    EXPECT_EQ(Found(Verdict::Differs), L"a link among its entries: " + In(L"file"));
    std::filesystem::rename(In(L"file"), In(L"below\\file"));
    EXPECT_EQ(Found(Verdict::Ok), AsAskedFor);
}

TEST_F(VerifiedDirectories, SayThatALinkHasDisappeared) {
    test::PutFile(In(L"file"), "");
    int opened = 0;
    test::ImportHook<&::GetFileInformationByHandle> hook(
        [&](HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
            const BOOL success = hook.Forward(file, information);
            information->nNumberOfLinks = ++opened == 1 ? 2 : 1;
            return success;
        });
    EXPECT_EQ(Found(Verdict::Differs), L"a link among its entries: one that has gone again");
}

// A directory is a link if its attributes say so; the one above it is not.
class LinkAt {
public:
    explicit LinkAt(std::wstring path) : path_(std::move(path)) {}

private:
    std::wstring path_;
    test::ImportHook<&::GetFileAttributesW> attributes_{[this](LPCWSTR path) {
        const DWORD link = path == path_ ? FILE_ATTRIBUTE_REPARSE_POINT : 0;
        return attributes_.Forward(path) | link;
    }};
};

TEST_F(VerifiedDirectories, HaveNoLinkOnTheWayToThem) {
    std::filesystem::create_directories(In(L"link\\below"));
    directory_.path = In(L"link\\below");
    const LinkAt link(In(L"link"));
    EXPECT_EQ(Found(Verdict::Differs), L"a link on the way to it: " + In(L"link"));
}

TEST_F(VerifiedDirectories, HaveNothingBelowThemButWhatIsInherited) {
    test::PutFile(In(L"file"), "");
    test::PutFile(In(L"below\\deeper\\file"), "");
    const std::wstring start = L"below it, with an access list of its own: ";
    for (const wchar_t* const list : {
             L"D:AI(A;ID;FA;;;BA)(A;;FR;;;WD)",  // an entry of its own
             L"D:(A;;FA;;;BA)",
             L"D:PAI(A;ID;FA;;;BA)",  // protected
             L"D:P",
             L"O:BA",  // no list
         }) {
        lists_.lists[In(L"below\\deeper\\file")] = list;
        EXPECT_EQ(Found(Verdict::Differs), start + L"below\\deeper\\file");
    }
    for (const wchar_t* const name : {L"below", L"below\\deeper", L"file"}) {
        lists_.lists[In(name)] = L"D:P(A;;FA;;;BA)";
    }
    EXPECT_THAT(Found(Verdict::Differs), HasSubstr(L" and 1 more"));
    for (const wchar_t* const name : {L"below", L"below\\deeper", L"file"}) {
        lists_.lists[In(name)] = L"D:AI";  // nothing is inherited
    }
    lists_.lists[In(L"below\\deeper\\file")] = L"D:AI(A;ID;FA;;;BA)";
    EXPECT_EQ(Found(Verdict::Ok), AsAskedFor);
}

TEST_F(VerifiedDirectories, LeaveWhatHasARowOfItsOwnToThat) {
    test::PutFile(In(L"Other\\file"), "");
    lists_.lists[In(L"Other")] = L"D:P(A;;FA;;;BA)";
    lists_.lists[In(L"Other\\file")] = L"D:P(A;;FA;;;BA)";
    EXPECT_THAT(Found(Verdict::Differs), HasSubstr(L": Other, Other\\file"));
    const std::vector<SecuredDirectory> rows = {directory_,
                                                {Entries, false, In(L"OTHER") + L'\\', {}}};
    const verify::Rows found = CheckDirectories(rows);
    EXPECT_EQ(found[0].finding.verdict, Verdict::Ok);
    EXPECT_EQ(found[1].name, In(L"OTHER"));
    EXPECT_EQ(found[1].expected, std::wstring(L"without links, ") + AsAskedFor);
}

TEST_F(VerifiedDirectories, DoNotLeadBeyondALink) {
    test::PutFile(In(L"link\\file"), "");
    lists_.lists[In(L"link\\file")] = L"D:P";
    test::ImportHook<&::FindFirstFileExW> hook([&](LPCWSTR pattern, auto... more) {
        EXPECT_NE(pattern, In(L"link\\*"));
        return hook.Forward(pattern, more...);
    });
    test::ImportHook<&::FindNextFileW> next([&](HANDLE search, WIN32_FIND_DATAW* entry) {
        const BOOL found = next.Forward(search, entry);
        if (entry->cFileName == std::wstring(L"link")) {
            entry->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        }
        return found;
    });
    EXPECT_EQ(Found(Verdict::Ok), AsAskedFor);
}

TEST_F(VerifiedDirectories, WithAFurtherAttributeHaveTheirOwnListOnly) {
    test::PutFile(In(L"file"), "");
    lists_.lists[In(L"file")] = L"D:P";
    ASSERT_TRUE(::SetFileAttributesW(top_.c_str(), FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(Found(Verdict::Ok), AsAskedFor);
    lists_.lists[top_] = L"D:P";
    Found(Verdict::Differs);
    ::SetFileAttributesW(top_.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(VerifiedDirectories, WhoseChildrenAreIgnoredHaveOnlyTheirOwnList) {
    test::PutFile(In(L"file"), "");
    lists_.lists[In(L"file")] = L"D:P";
    directory_.applyToChildren = false;
    EXPECT_EQ(Found(Verdict::Ok), AsAskedFor);
}

TEST_F(VerifiedDirectories, WhoseListMayNotBeReadAreUnknown) {
    lists_.readErrors[top_] = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Found(Verdict::Unknown), L"its access list: " + test::Denied);
    lists_.openErrors[top_] = ERROR_ACCESS_DENIED;
    EXPECT_EQ(Found(Verdict::Unknown), L"its access list: " + test::Denied);
}

TEST_F(VerifiedDirectories, WhoseListChangesWhileItIsReadAreUnknown) {
    const test::ImportHook<&::GetKernelObjectSecurity> hook(
        [](HANDLE, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR, DWORD size, DWORD* needed) {
            *needed = size + 1;
            ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        });
    EXPECT_EQ(Found(Verdict::Unknown),
              L"its access list: " + verify::ErrorText(ERROR_INSUFFICIENT_BUFFER));
}

TEST_F(VerifiedDirectories, AreUnknownForWhatIsBelowThemAndMayNotBeRead) {
    for (const wchar_t* const name : {L"a", L"b", L"c", L"d"}) {
        test::PutFile(In(name), "");
        lists_.openErrors[In(name)] = ERROR_ACCESS_DENIED;
    }
    lists_.openErrors[In(L"a")] = ERROR_SHARING_VIOLATION;
    EXPECT_EQ(Found(Verdict::Unknown),
              L"below it, a, b, c and 1 more: " + verify::ErrorText(ERROR_SHARING_VIOLATION));
    lists_.lists[top_] = L"D:P";  // what differs counts more
    Found(Verdict::Differs);
}

TEST_F(VerifiedDirectories, IgnoreEntriesThatDisappear) {
    test::PutFile(In(L"file"), "");
    lists_.openErrors[In(L"file")] = ERROR_FILE_NOT_FOUND;
    EXPECT_EQ(Found(Verdict::Ok), AsAskedFor);
}

TEST_F(VerifiedDirectories, AreUnknownIfTheirEntriesCannotBeListed) {
    std::filesystem::create_directory(In(L"below"));
    std::wstring closed = top_;
    test::ImportHook<&::FindFirstFileExW> first([&](LPCWSTR pattern, auto... more) {
        return pattern == closed + L"\\*" ? test::Deny(INVALID_HANDLE_VALUE)
                                          : first.Forward(pattern, more...);
    });
    EXPECT_EQ(Found(Verdict::Unknown), L"below it, its entries: " + test::Denied);
    closed = In(L"below");
    EXPECT_EQ(Found(Verdict::Unknown), L"below it, below: " + test::Denied);
    closed.clear();
    const test::ImportHook<&::FindNextFileW> next([](auto...) { return test::Deny(FALSE); });
    EXPECT_EQ(Found(Verdict::Unknown), L"below it, its entries: " + test::Denied);
}

TEST_F(VerifiedDirectories, OfAHundredThousandEntriesNameTheFirst) {
    int entries = 0;
    test::ImportHook<&::FindFirstFileExW> first([&](auto... arguments) {
        entries = 0;
        return first.Forward(arguments...);
    });
    const test::ImportHook<&::FindNextFileW> next([&](HANDLE, WIN32_FIND_DATAW* entry) {
        *entry = {};
        std::swprintf(entry->cFileName, MAX_PATH, L"entry %d", ++entries);
        ::SetLastError(ERROR_NO_MORE_FILES);
        return entries <= 100'000 ? TRUE : FALSE;
    });
    // Each of them has the directory's protected list.
    test::ImportHook<&::CreateFileW> create([&](LPCWSTR path, DWORD access, auto... more) {
        return create.Forward(access == READ_CONTROL ? top_.c_str() : path, access, more...);
    });
    EXPECT_EQ(
        Found(Verdict::Differs),
        L"below it, with an access list of its own: entry 1, entry 2, entry 3 and 99997 more");
}

TEST_F(VerifiedDirectories, WhosePathCannotBeExpandedAreUnknown) {
    const test::ImportHook<&::ExpandEnvironmentStringsW> hook(
        [](LPCWSTR, LPWSTR, DWORD) { return DWORD{0}; });
    const Row row = Check();
    EXPECT_EQ(row.name, top_);
    EXPECT_EQ(row.finding.verdict, Verdict::Unknown);
    EXPECT_EQ(row.finding.text, L"its path cannot be expanded");
}

TEST_F(VerifiedDirectories, WhoseListHasNoTextAreStillJudged) {
    const test::ImportHook<&::ConvertSecurityDescriptorToStringSecurityDescriptorW> hook(
        [](auto...) { return FALSE; });
    EXPECT_EQ(Found(Verdict::Ok), L"a list that cannot be shown");
}

TEST_F(VerifiedDirectories, WhoseTrusteesHaveNoTextDoNotGoAsOthers) {
    lists_.lists[top_] = L"D:P(A;OICI;GA;;;BA)(A;OICI;GXGR;;;WD)";
    int converted = 0;
    test::ImportHook<&::ConvertSidToStringSidW> hook(
        [&](PSID sid, LPWSTR* text) { return ++converted == 2 ? FALSE : hook.Forward(sid, text); });
    EXPECT_THAT(Found(Verdict::Differs), HasSubstr(L"an entry for a trustee that is none"));
}

TEST_F(VerifiedDirectories, WhoseListHasAnEntryThatCannotBeReadDiffer) {
    test::PutFile(In(L"file"), "");
    const test::ImportHook<&::GetAce> hook([](auto...) { return FALSE; });
    EXPECT_EQ(Found(Verdict::Differs), std::wstring(L"an entry that does not allow in ") +
                                           AsAskedFor +
                                           L"; below it, with an access list of its own: file");
}

}  // namespace
