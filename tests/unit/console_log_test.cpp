#include "driver/console_log.h"

#include "support/console_capture.h"
#include "support/failing_allocation.h"
#include "support/import_hook.h"
#include "support/no_memory.h"
#include "support/noted_steps.h"
#include "support/other_runtime.h"

#include <fcntl.h>
#include <io.h>

#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// The hooked function's format attribute does not belong in the hook's type.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace {

using test::Printed;
using testing::ElementsAre;

constexpr int StandardOutput = 1;

// What a call printed, and what it returned.
struct Outcome {
    std::string text;
    std::int32_t result = 0;

    bool operator==(const Outcome&) const = default;
};

Outcome Print(const std::function<std::int32_t()>& call) {
    Outcome outcome;
    outcome.text = Printed([&] { outcome.result = call(); });
    return outcome;
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << outcome.result << " characters: " << testing::PrintToString(outcome.text);
}

Outcome Text(const std::string& text) {
    return {text, static_cast<std::int32_t>(text.size())};
}

TEST(ConsolePrint, WritesJustTheFormattedText) {
    EXPECT_EQ(Print([] { return ConsolePrint("%s", ""); }), Text(""));
    EXPECT_EQ(Print([] { return ConsolePrint("text"); }), Text("text"));
    EXPECT_EQ(Print([] { return ConsolePrint("%d %s %c %%\t", -5, "x", 'y'); }),
              Text("-5 x y %\t"));
}

TEST(ConsolePrint, WritesLineEndsUnchanged) {
    EXPECT_EQ(Print([] { return ConsolePrint("a\r\nb\nc\r\r\n"); }), Text("a\r\nb\nc\r\r\n"));
}

TEST(ConsolePrint, WritesWideArguments) {
    EXPECT_EQ(Print([] { return ConsolePrint("<%ls> - %ls\r\n", L"name", L"Success"); }),
              Text("<name> - Success\r\n"));
}

TEST(ConsolePrint, WritesNothingForAnEmptyWideArgument) {
    EXPECT_EQ(Print([] { return ConsolePrint("a%lsb", L""); }), Text("ab"));
}

TEST(ConsolePrint, WritesLatin1AsOneByte) {
    EXPECT_EQ(Print([] { return ConsolePrint("%ls", L"Tarsel\u00AE \u00FF"); }),
              Text("Tarsel\xAE \xFF"));
}

TEST(ConsolePrint, WritesALongText) {
    const std::wstring text(100'000, L'x');
    EXPECT_EQ(Print([&] { return ConsolePrint("%ls", text.c_str()); }),
              Text(std::string(100'000, 'x')));
}

// How much of the failed call is written is up to the runtime.
TEST(ConsolePrint, FailsForACharacterBeyondLatin1AndGoesOnWithTheNextCall) {
    std::int32_t result = 0;
    std::int32_t next = 0;
    EXPECT_THAT(Printed([&] {
                    ConsolePrint("before ");
                    result = ConsolePrint("a%lsb\r\n", L"c\u20ACd");
                    next = ConsolePrint("the next\r\n");
                }),
                testing::AllOf(testing::StartsWith("before "), testing::EndsWith("the next\r\n")));
    EXPECT_LT(result, 0);
    EXPECT_EQ(next, 10);
}

TEST(ConsolePrint, DoesNotFlush) {
    long inFile = -1;
    EXPECT_EQ(Printed([&] {
                  ConsolePrint("text\r\n");
                  ConsolePrint(L"wide\r\n");
                  inFile = ::_filelength(StandardOutput);
              }),
              "text\r\nwide\r\n");
    EXPECT_EQ(inFile, 0);
}

TEST(ConsolePrint, OutlivesAClosedStandardOutput) {
    EXPECT_THAT(Printed([] {
                    const int saved = ::_dup(StandardOutput);
                    ::_close(StandardOutput);
                    for (int i = 0; i < 2000; ++i) {  // more than any buffer holds
                        ConsolePrint("lost\r\n");
                        ConsolePrint(L"lost\r\n");
                    }
                    ::_dup2(saved, StandardOutput);
                    ::_close(saved);
                    std::clearerr(stdout);
                    ConsolePrint("the next");
                }),
                testing::EndsWith("the next"));
}

TEST(ConsolePrintWide, TakesWideStringsForTheConversionsOfBothNames) {
    EXPECT_EQ(Print([] { return ConsolePrint(L"<%s> <%ls>\r\n", L"one", L"two"); }),
              Text("<one> <two>\r\n"));
}

// One whose texts always end in a zero, if necessary in place of the last character.
TEST(ConsolePrintWide, WritesTheWholeTextWithAnotherRuntimeToo) {
    const test::OtherRuntime runtime;
    for (const std::size_t length : {1U, 4U, 1022U, 1023U, 1024U, 5000U}) {
        const std::wstring text(length, L'x');
        EXPECT_EQ(Print([&] { return ConsolePrint(L"%ls", text.c_str()); }),
                  Text(std::string(length, 'x')));
    }
}

TEST(ConsolePrintWide, NeedsNoMemoryForATextOfUsualLength) {
    for (const std::size_t length : {0U, 100U, 1023U}) {
        const std::wstring text(length, L'x');
        const std::string expected(length, 'x');
        EXPECT_EQ(Print([&] {
                      const test::NoMemory none;
                      return ConsolePrint(L"%ls", text.c_str());
                  }),
                  Text(expected));
    }
}

TEST(ConsolePrintWide, CutsALongerTextForWhichThereIsNoMemory) {
    const std::wstring text(1024, L'x');
    EXPECT_EQ(Print([&] {
                  const test::NoMemory none;
                  return ConsolePrint(L"%ls", text.c_str());
              }),
              Text(std::string(1023, 'x')));
}

TEST(ConsolePrintWide, NamesANullString) {
    const wchar_t* const none = nullptr;
    EXPECT_EQ(Print([&] { return ConsolePrint(L"<%ls>", none); }), Text("<(null)>"));
}

TEST(ConsolePrintWide, WritesNumbersAndLineEndsUnchanged) {
    EXPECT_EQ(Print([] { return ConsolePrint(L"0x%08x %d\n\r\n", 0x8004100Eu, 7); }),
              Text("0x8004100e 7\n\r\n"));
}

TEST(ConsolePrintWide, WritesNothingForAnEmptyText) {
    EXPECT_EQ(Print([] { return ConsolePrint(L"%s", L""); }), Text(""));
}

TEST(ConsolePrintWide, WritesLatin1AsOneByte) {
    EXPECT_EQ(Print([] { return ConsolePrint(L"\u00AE%s", L"\u00FF"); }), Text("\xAE\xFF"));
}

TEST(ConsolePrintWide, WritesAQuestionMarkForWhatIsBeyondLatin1) {
    EXPECT_EQ(Print([] { return ConsolePrint(L"a\u20ACb%sc\u0100", L"\u4E2D"); }), Text("a?b?c?"));
}

TEST(ConsolePrintWide, WritesALongText) {
    const std::wstring text(100'000, L'x');
    EXPECT_EQ(Print([&] { return ConsolePrint(L"%s\r\n", text.c_str()); }),
              Text(std::string(100'000, 'x') + "\r\n"));
}

TEST(ConsolePrintWide, FailsWithoutOutputIfTheTextCannotBeFormatted) {
    test::ImportHook<&::_vscwprintf> format([](const wchar_t*, va_list) { return -1; });
    EXPECT_EQ(Print([] { return ConsolePrint(L"text"); }), (Outcome{"", -1}));
}

TEST(PrintVerdict, IsOneWriteThatEndsTheLine) {
    std::vector<std::string> writes;
    EXPECT_EQ(Printed([&] {
                  const test::NotedPrints prints(writes);
                  PrintVerdict(true);
                  PrintVerdict(false);
              }),
              "Success\r\nFailure\r\n");
    EXPECT_THAT(writes, ElementsAre("Success\r\n", "Failure\r\n"));
}

TEST(PrintSectionBanner, IsThreeWrites) {
    std::vector<std::string> writes;
    EXPECT_EQ(Printed([&] {
                  const test::NotedPrints prints(writes);
                  PrintSectionBanner(5, "Title %d 100%\r\n");
              }),
              "\r\n-----\r\nTitle %d 100%\r\n-----\r\n");
    EXPECT_THAT(writes, ElementsAre("\r\n-----\r\n", "Title %d 100%\r\n", "-----\r\n"));
}

TEST(PrintSectionBanner, HasAsManyDashesAsItIsTold) {
    for (const int dashes : {0, 22, 24, 26, 55}) {
        const std::string line = std::string(static_cast<std::size_t>(dashes), '-') + "\r\n";
        EXPECT_EQ(Printed([&] { PrintSectionBanner(dashes, "T\r\n"); }),
                  "\r\n" + line + "T\r\n" + line);
    }
}

TEST(PrintSectionBanner, NeedsNoMemory) {
    bool asked = true;
    Printed([&] {
        const test::FailingAllocation failing(0);
        PrintSectionBanner(55, "T\r\n");
        asked = failing.Failed();
    });
    EXPECT_FALSE(asked);
}

TEST(PrepareConsole, PutsStandardOutputIntoBinaryMode) {
    int before = 0;
    EXPECT_EQ(Printed([&] {
                  ::_setmode(StandardOutput, _O_TEXT);
                  PrepareConsole();
                  before = ::_setmode(StandardOutput, _O_BINARY);
              }),
              "");
    EXPECT_EQ(before, _O_BINARY);
}

TEST(PrepareConsole, LeavesTheModeAloneWithoutStandardOutput) {
    std::vector<int> modes;
    const test::ImportHook<&::_setmode> setMode([&](int /*descriptor*/, int mode) {
        modes.push_back(mode);
        return -1;
    });
    for (const int none : {-1, -2}) {
        const test::ImportHook<&::_fileno> descriptor([&](std::FILE*) { return none; });
        PrepareConsole();
    }
    EXPECT_THAT(modes, testing::IsEmpty());
    PrepareConsole();
    EXPECT_THAT(modes, ElementsAre(_O_BINARY));
}

}  // namespace
