#include "verify/verify.h"

#include "config/service_parameters.h"
#include "driver/actions.h"
#include "fs/path_helpers.h"
#include "fs/secured_directories.h"
#include "proc/process_lists.h"
#include "support/access_lists.h"
#include "support/console_capture.h"
#include "support/environment_variable.h"
#include "support/failing_allocation.h"
#include "support/fake_adapters.h"
#include "support/fake_task_service.h"
#include "support/file_contents.h"
#include "support/import_hook.h"
#include "support/initialised_com.h"
#include "support/private_registry.h"
#include "support/registry_contents.h"
#include "support/temporary_directory.h"
#include "tools/verify_rows.h"
#include "verify/access_list.h"
#include "verify/write.h"

#include <windows.h>

#include <objbase.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

// The hooked function's attributes do not belong in the hook's type.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using verify::Report;
using verify::Verdict;

Report ReportOf(const verify::Rows& rows) {
    return {.computer = L"NAME", .version = "1.2.3", .actions = 15, .rows = rows};
}

// Names with everything that a name can contain.
const Report Awkward = {
    .computer = L"\"NAME\\",
    .version = "1.2.3",
    .actions = 0xFFFFFFFF,
    .rows = {{"setting", L"a \"b\" \\ / \x01\t\r\n\x7F", L"\u00E9\u4E2D", {Verdict::Ok, L""}},
             {"file", L"\xD83D\xDE00", L"half a pair: \xD800", {Verdict::Differs, L"\xDC00\xD800"}},
             {"file", L"\xD800x\xD800\xE000\xE000", L"", {Verdict::Ok, L""}},
             {"task", L"", L"", {Verdict::Unknown, L"\uFFFF\u2028"}}}};

TEST(VerdictAsText, HasALineForEachRowAndOneWithTheCounts) {
    EXPECT_EQ(verify::WriteText(ReportOf({
                  {"stop", L"a", L"not running", {Verdict::Ok, L"stopped"}},
                  {"directory", L"b", L"this", {Verdict::Differs, L"that"}},
                  {"task", L"c", L"this", {Verdict::Unknown, L"no reason"}},
              })),
              "ok       stop       a\n"
              "DIFFERS  directory  b: expected this, found that\n"
              "UNKNOWN  task       c: no reason\n"
              "3 rows: 1 ok, 1 DIFFERS, 1 UNKNOWN\n");
    EXPECT_EQ(verify::WriteText(ReportOf({})), "0 rows: 0 ok, 0 DIFFERS, 0 UNKNOWN\n");
}

TEST(VerdictAsText, IsInUtf8WithoutControlCharacters) {
    EXPECT_EQ(
        verify::WriteText(ReportOf(
            {{"file", L"\x1B[1m\u0085\u00A0\u00E9\u4E2D\xD83D\xDE00", L"", {Verdict::Ok, L""}}})),
        "ok       file       ?[1m?\xC2\xA0\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\n"
        "1 rows: 1 ok, 0 DIFFERS, 0 UNKNOWN\n");
}

TEST(VerdictAsJson, IsOneObjectOnOneLine) {
    EXPECT_EQ(verify::WriteJson(ReportOf({
                  {"stop", L"a", L"not running", {Verdict::Ok, L"stopped"}},
                  {"task", L"c", L"this", {Verdict::Unknown, L"no reason"}},
              })),
              R"({"computer":"NAME","version":"1.2.3","actions":15,"ok":1,"differs":0,"unknown":1,)"
              R"("rows":[{"kind":"stop","name":"a","verdict":"ok","expected":"not running",)"
              R"("found":"stopped"},{"kind":"task","name":"c","verdict":"UNKNOWN",)"
              R"("expected":"this","found":"no reason"}]})"
              "\n");
    EXPECT_THAT(verify::WriteJson(ReportOf({})), EndsWith(R"("unknown":0,"rows":[]})"
                                                          "\n"));
}

TEST(VerdictAsJson, EscapesWhatIsNotAscii) {
    const std::string json = verify::WriteJson(Awkward);
    EXPECT_THAT(json, HasSubstr(R"({"computer":"\"NAME\\","version")"));
    EXPECT_THAT(json, HasSubstr(R"("name":"a \"b\" \\ / \u0001\u0009\u000d\u000a\u007f",)"));
    EXPECT_THAT(json, HasSubstr(R"("expected":"\u00e9\u4e2d")"));
    EXPECT_THAT(json, HasSubstr(R"("name":"\ud83d\ude00")"));
    EXPECT_THAT(json, HasSubstr(R"("expected":"half a pair: \\ud800","found":"\\udc00\\ud800")"));
    EXPECT_THAT(json, HasSubstr(R"("name":"\\ud800x\\ud800\ue000\ue000")"));
    // The other half is tests/tools/verify_json_test.sh, in which a parser reads it.
    if (const wchar_t* const file = _wgetenv(L"FINASET_JSON")) {
        test::PutFile(file, json);
    }
}

TEST(ErrorText, HasTheCodeAndTheSystemsMessage) {
    wchar_t text[200] = {};  // in the system's language
    ASSERT_NE(::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, ERROR_ACCESS_DENIED, 0, text,
                               200, nullptr),
              0U);
    const std::wstring start(text, 4);
    EXPECT_THAT(verify::ErrorText(ERROR_ACCESS_DENIED), StartsWith(L"error 5: " + start));
    EXPECT_THAT(verify::ErrorText(static_cast<DWORD>(E_ACCESSDENIED)),
                StartsWith(L"error 0x80070005: " + start));
    EXPECT_EQ(verify::ErrorText(0x2FFFFFFF), L"error 805306367");
}

// A machine of the tests' own: nothing is installed on it, its directories are as they are set up.
class VerifiedMachine : public testing::Test {
protected:
    // The kinds of the rows.
    static std::set<std::string> Kinds(std::uint32_t actions) {
        std::set<std::string> kinds;
        for (const verify::Row& row : verify::Verify(actions).rows) {
            kinds.insert(row.kind);
        }
        return kinds;
    }

    void MakeSecureDirectories() {
        for (const SecuredDirectory& directory : SecuredDirectoryTable) {
            std::wstring path = ExpandEnvironmentPath(
                directory.resolvePath ? directory.resolvePath(directory.path) : directory.path);
            if (path.ends_with(L'\\')) {
                path.pop_back();
            }
            std::filesystem::create_directories(path);
            lists_.lists[path] = verify::Notation(directory.aces);
        }
    }

    test::PrivateRegistry registry_;
    test::TemporaryDirectory directory_;
    test::EnvironmentVariable programData_{L"ProgramData", directory_.Path()};
    test::InitialisedCom com_;
    test::FakeTaskService tasks_;
    test::FakeAdapters adapters_;
    test::AccessLists lists_;
};

TEST_F(VerifiedMachine, HasTheRowsOfItsActions) {
    MakeSecureDirectories();
    EXPECT_THAT(Kinds(0), IsEmpty());
    EXPECT_THAT(Kinds(2), IsEmpty());
    EXPECT_THAT(Kinds(ActionStop), ElementsAre("stop"));
    EXPECT_THAT(Kinds(ActionConfigure), ElementsAre("directory", "file", "setting", "task"));
    EXPECT_THAT(Kinds(ActionStart), ElementsAre("start"));
    EXPECT_THAT(Kinds(ActionDisable), ElementsAre("disable"));
    EXPECT_THAT(Kinds(255),
                ElementsAre("directory", "disable", "file", "setting", "start", "stop", "task"));
}

TEST_F(VerifiedMachine, IsNotAskedForWhatARunLeavesOutWhereADirectoryIsNotSecure) {
    EXPECT_THAT(Kinds(255), ElementsAre("directory", "file", "setting", "stop", "task"));
    EXPECT_THAT(Kinds(ActionStart | ActionDisable), ElementsAre("disable", "start"));
    MakeSecureDirectories();
    lists_.lists.begin()->second = L"D:(A;;FA;;;WD)";
    EXPECT_THAT(Kinds(255), ElementsAre("directory", "file", "setting", "stop", "task"));
    lists_.openErrors[lists_.lists.begin()->first] = ERROR_ACCESS_DENIED;  // unknown
    EXPECT_TRUE(Kinds(255).contains("start"));
}

TEST_F(VerifiedMachine, IsAskedForTheServicesThatStayStopped) {
    EXPECT_EQ(verify::Verify(ActionStop).rows.size(), StopList.size());
    const auto staysStopped = [](const ProcessEntry& entry) {
        return std::ranges::count(StartList, entry.name, &ProcessEntry::name) == 0;
    };
    EXPECT_EQ(
        verify::Verify(ActionStop | ActionStart).rows.size(),
        static_cast<std::size_t>(std::ranges::count_if(StopList, staysStopped)) + StartList.size());
}

TEST_F(VerifiedMachine, HasANameAndTheProgramAVersion) {
    const Report report = verify::Verify(ActionStop);
    wchar_t name[256] = {};
    DWORD size = 256;
    ::GetComputerNameW(name, &size);
    EXPECT_EQ(report.computer, name);
    EXPECT_EQ(report.version, FINASET_VERSION);
    EXPECT_EQ(report.actions, DWORD{ActionStop});
    const test::ImportHook<&::GetComputerNameW> hook([](auto...) { return FALSE; });
    EXPECT_EQ(verify::Verify(0).computer, L"");
}

// The whole program, called with arguments.
class VerifyProgram : public VerifiedMachine {
protected:
    int Call(std::vector<const wchar_t*> arguments) {
        arguments.insert(arguments.begin(), L"finaset-verify.exe");
        int status = -1;
        testing::internal::CaptureStderr();
        printed_ = test::Printed([&] {
            status = verify::RunVerify(static_cast<int>(arguments.size()), arguments.data());
        });
        complaint_ = testing::internal::GetCapturedStderr();
        return status;
    }

    std::string printed_;
    std::string complaint_;
};

TEST_F(VerifyProgram, ReturnsTheResultAsItsExitStatus) {
    EXPECT_EQ(Call({L"/STOP"}), 0);
    EXPECT_THAT(printed_, HasSubstr(" ok, 0 DIFFERS, 0 UNKNOWN"));
    EXPECT_EQ(Call({L"/START"}), 1);
    EXPECT_THAT(printed_, HasSubstr(" rows: 0 ok, "));
    const test::ImportHook<&::OpenSCManagerW> hook([](auto...) { return test::Deny(nullptr); });
    EXPECT_EQ(Call({L"/DISABLE"}), 2);
    EXPECT_THAT(printed_, HasSubstr(" rows: 0 ok, 0 DIFFERS, "));
    EXPECT_EQ(Call({L"/START"}), 1);  // the companion differs, the services are not known
    EXPECT_THAT(printed_, HasSubstr(" rows: 0 ok, 1 DIFFERS, "));
    EXPECT_EQ(complaint_, "");
}

TEST_F(VerifyProgram, TakesTheActionsOfARunWithTheSameOption) {
    EXPECT_EQ(Call({L"--json", L"/stop"}), 0);
    EXPECT_THAT(printed_, HasSubstr(R"("actions":1,)"));
    EXPECT_EQ(Call({L"/Start", L"--json"}), 1);
    EXPECT_THAT(printed_, HasSubstr(R"("actions":8,)"));
    EXPECT_EQ(Call({L"--json", L"/CONFIGURE"}), 1);
    EXPECT_THAT(printed_, HasSubstr(R"("actions":4,)"));
    EXPECT_EQ(Call({L"--json"}), 1);
    EXPECT_THAT(printed_, HasSubstr(R"("actions":15,)"));
    test::PutValue(HKEY_LOCAL_MACHINE, ServiceParametersKey, L"FinasetAction", test::DwordValue(1));
    EXPECT_EQ(Call({L"--json"}), 0);
    EXPECT_THAT(printed_, HasSubstr(R"("actions":1,)"));
}

TEST_F(VerifyProgram, PrintsItsUsage) {
    for (const wchar_t* const argument : {L"--help", L"/?"}) {
        EXPECT_EQ(Call({argument}), 0);
        EXPECT_THAT(
            printed_,
            StartsWith(
                "usage: finaset-verify [--json] [/STOP | /CONFIGURE | /START | /DISABLE]\n"));
    }
}

TEST_F(VerifyProgram, RejectsUnknownArguments) {
    for (const std::vector<const wchar_t*>& arguments :
         {std::vector<const wchar_t*>{L"/FOO"}, {L""}, {L"--html"}, {L"/STOP", L"/START"}}) {
        EXPECT_EQ(Call(arguments), 2);
        EXPECT_EQ(printed_, "");
        EXPECT_EQ(complaint_,
                  "finaset-verify: it takes --json, and one option of the program; see "
                  "finaset-verify --help\n");
    }
}

TEST_F(VerifyProgram, OpensOnlyWhatExistsAndOnlyToRead) {
    MakeSecureDirectories();
    test::PutFile(directory_ / L"Tarsel\\Nimbus\\ConfigurationFiles\\oem.xml", "");
    int opened = 0;
    test::ImportHook<&::CreateFileW> file([&](LPCWSTR path, DWORD access, DWORD share,
                                              auto* security, DWORD disposition, auto... more) {
        ++opened;
        EXPECT_EQ(disposition, DWORD{OPEN_EXISTING});
        EXPECT_THAT(access, testing::AnyOf(DWORD{GENERIC_READ}, DWORD{READ_CONTROL}));
        return file.Forward(path, access, share, security, disposition, more...);
    });
    test::ImportHook<&::RegOpenKeyExW> key(
        [&](HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY result) {
            ++opened;
            EXPECT_EQ(access & ~REGSAM{KEY_READ}, 0U);
            return key.Forward(root, path, options, access, result);
        });
    test::PutValue(HKEY_LOCAL_MACHINE, ServiceParametersKey, L"FinasetAction",
                   test::DwordValue(31));
    opened = 0;
    Call({});
    EXPECT_GT(opened, 10);
}

TEST_F(VerifyProgram, GoesOnWithoutCom) {
    const test::ImportHook<&::CoInitializeEx> hook([](auto...) { return E_FAIL; });
    EXPECT_EQ(Call({L"/STOP"}), 0);
}

TEST_F(VerifyProgram, SaysThatItIsOutOfMemory) {
    const test::FailingAllocation failing(40);
    const int status = verify::RunVerify(2, std::vector<const wchar_t*>{L"", L"/STOP"}.data());
    EXPECT_TRUE(test::FailingAllocation::Failed());
    EXPECT_EQ(status, 2);
}

TEST_F(VerifyProgram, SaysThatItCannotWrite) {
    {
        test::ImportHook<&::fputs> hook([&](const char* text, FILE* file) {
            return file == stdout ? -1 : hook.Forward(text, file);
        });
        EXPECT_EQ(Call({L"/STOP"}), 2);
        EXPECT_EQ(complaint_, "finaset-verify: what was found cannot be written\n");
    }
    const test::ImportHook<&::fflush> flush([](FILE*) { return -1; });
    EXPECT_EQ(Call({L"/STOP"}), 2);
}

}  // namespace
