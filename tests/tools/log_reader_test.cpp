#include "log_reader/judge.h"
#include "log_reader/read_log.h"
#include "log_reader/writers.h"
#include "support/file_contents.h"
#include "support/log_texts.h"

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

using reader::Judgement;
using reader::Kind;
using reader::NotALog;
using reader::Report;
using test::LogBegin;
using test::LogEnd;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// Lives as long as the tests run, since its items refer to it.
const Report& Read(const std::string& bytes) {
    static std::list<Report> reports;
    Report& report = reports.emplace_back(reader::ReadLog(bytes));
    reader::Judge(report);
    return report;
}

const Report& ReadWhole(const std::string& lines) {
    return Read(LogBegin + lines + LogEnd);
}

std::vector<reader::Item> Items(const Report& report) {
    std::vector<reader::Item> items;
    for (const reader::Section& section : report.sections) {
        items.insert(items.end(), section.items.begin(), section.items.end());
    }
    return items;
}

std::vector<std::string> Texts(const Report& report) {
    std::vector<std::string> texts;
    for (const reader::Item& item : Items(report)) {
        texts.emplace_back(item.text);
    }
    return texts;
}

std::vector<Judgement> Judgements(const Report& report) {
    std::vector<Judgement> judgements;
    for (const reader::Item& item : Items(report)) {
        judgements.push_back(item.judgement);
    }
    return judgements;
}

// The verdict on each line in turn.
std::vector<Judgement> Judged(const std::string& lines) {
    return Judgements(ReadWhole(lines));
}

constexpr Judgement Fine = Judgement::Fine;
constexpr Judgement Expected = Judgement::Expected;
constexpr Judgement Attention = Judgement::Attention;
constexpr Judgement Unknown = Judgement::Unknown;

const std::string Quit = "Stopping Application ZEFIR.exe....with Window Title Tarsel\xAE Lumetra ";

// ---- The rules

TEST(Judging, AServiceThatDidNotStopAndStartedLaterWasStoppedAlready) {
    EXPECT_THAT(Judged("Stopping Ardex....stop failed!\r\nStarting Ardex....started\r\n"),
                ElementsAre(Expected, Fine));
}

TEST(Judging, AServiceThatNeitherStopsNorStartsNeedsAttention) {
    EXPECT_THAT(Judged("Stopping Ardex....stop failed!\r\nStarting Ardex....start failed!\r\n"),
                ElementsAre(Attention, Attention));
}

TEST(Judging, AServiceThatDidNotStopAndIsNotStartedIsTakenForStopped) {
    EXPECT_THAT(Judged("Stopping Corvo....stop failed!\r\nStarting Ardex....started\r\n"),
                ElementsAre(Expected, Fine));
}

TEST(Judging, AServiceThatWasStoppedAndDoesNotStartNeedsAttention) {
    const Report& report =
        ReadWhole("Stopping Ardex....stopped\r\nStarting Ardex....start failed!\r\n");
    EXPECT_THAT(Judgements(report), ElementsAre(Fine, Attention));
    EXPECT_EQ(Items(report)[1].reason, "It was stopped and does not start again.");
}

TEST(Judging, AServiceThatDoesNotStartInARunThatStopsNoneNeedsAttention) {
    EXPECT_THAT(Judged("Starting Ardex....start failed!\r\n"), ElementsAre(Attention));
}

TEST(Judging, AnApplicationThatDoesNotRunIsExpected) {
    EXPECT_THAT(Judged(Quit + " application not found!\r\n"), ElementsAre(Expected));
}

TEST(Judging, AnApplicationThatWasNotAskedToQuitNeedsAttention) {
    const std::string asked =
        Quit +
        " Process Quitline.exe Started in context of ZEFIR.exe application to send QUIT "
        "Message - Success=";
    EXPECT_THAT(Judged(asked + "True\r\n" + asked + "False\r\n"), ElementsAre(Fine, Attention));
}

TEST(Judging, AnApplicationWhoseTokenWasRefusedNeedsAttention) {
    const Report& report = ReadWhole(Quit + "Stopping Corvo....stopped\r\n");
    EXPECT_THAT(Judgements(report), ElementsAre(Attention, Fine));
    EXPECT_THAT(Items(report)[0].reason, HasSubstr("may not act as its user"));
}

TEST(Judging, ACompanionThatDoesNotStartNeedsAttention) {
    EXPECT_THAT(Judged("Starting Application BriskoLU.exe with command line -u....start failed!\r\n"
                       "Starting Application BriskoLU.exe with command line -u....started\r\n"),
                ElementsAre(Attention, Fine));
}

TEST(Judging, AServiceThatCannotBeDisabledNeedsAttention) {
    EXPECT_THAT(Judged("Disabling Service Corvo....Disable  failed!\r\n"
                       "Disabling Service Ardex....Disabled\r\n"),
                ElementsAre(Attention, Fine));
}

TEST(Judging, AMissingSettingToDeleteIsExpected) {
    EXPECT_THAT(Judged("Deleting Registry Setting HKEY_LOCAL_MACHINE\\K\\V= \t - \tFailure\r\n"),
                ElementsAre(Expected));
}

TEST(Judging, AKeyThatCannotBeDeletedNeedsAttention) {
    EXPECT_THAT(Judged("Deleting Registry Setting HKEY_LOCAL_MACHINE\\K\\= \t - \tFailure\r\n"),
                ElementsAre(Attention));
}

TEST(Judging, ASettingThatCannotBeWrittenNeedsAttention) {
    EXPECT_THAT(Judged("Writing Registry Setting HKEY_LOCAL_MACHINE\\K\\V=1 \t - \tFailure\r\n"
                       "Writing Registry Setting HKEY_LOCAL_MACHINE\\K\\V=1\r\n"),
                ElementsAre(Attention, Fine));
}

TEST(Judging, AMissingFileToDeleteIsExpectedIfItIsThenCopied) {
    EXPECT_THAT(Judged("Deleting File C:\\D\\oem.xml \t - \tFailure\r\n"
                       "Copying File C:\\S\\oem.xml -> C:\\D\\oem.xml     overwriting =true\t - "
                       "\tSuccess\r\n"),
                ElementsAre(Expected, Fine));
}

TEST(Judging, AFileThatIsNotReplacedNeedsAttention) {
    EXPECT_THAT(Judged("Deleting File C:\\D\\oem.xml \t - \tFailure\r\n"
                       "Copying File C:\\S\\oem.xml -> C:\\D\\oem.xml     overwriting =true\t - "
                       "\tFailure\r\n"
                       "Copying File C:\\S\\vx.stg -> C:\\D\\vx.stg     overwriting =true\t - "
                       "\tSuccess\r\n"),
                ElementsAre(Attention, Attention, Fine));
}

TEST(Judging, AFileThatIsKeptIsExpected) {
    EXPECT_THAT(Judged("Copying File C:\\S\\user.xml -> C:\\D\\user.xml     overwriting =false\t - "
                       "\tFailure\r\n"),
                ElementsAre(Expected));
}

TEST(Judging, AFileThatCannotBeKeptSinceItsDirectoryIsNewNeedsAttention) {
    EXPECT_THAT(Judged("Creating Directory C:\\D\\ \t - \tSuccess\r\n"
                       "Copying File C:\\S\\user.xml -> C:\\D\\user.xml     overwriting =false\t - "
                       "\tFailure\r\n"),
                ElementsAre(Fine, Attention));
}

TEST(Judging, AnExistingDirectoryIsExpected) {
    const std::string directory = "Creating Directory C:\\D\\E\\ \t - \tFailure\r\n";
    for (const std::string evidence :
         {"Creating Directory C:\\D\\E\\ \t - \tSuccess\r\n",
          "Creating Directory C:\\D\\E\\below \t - \tSuccess\r\n",
          "Setting DACLs on File/Directory C:\\D\\E \t - \tSuccess\r\n",
          "Copying File C:\\S\\f -> C:\\D\\E\\f     overwriting =true\t - \tSuccess\r\n"}) {
        EXPECT_THAT(Judged(directory + evidence), ElementsAre(Expected, Fine)) << evidence;
    }
    for (const std::string evidence :
         {"Verifying File/Directory C:\\D\\E\\ has NO links\t - \tFailure\r\n",
          "Verifying Children Files of Directory C:\\D\\E\\ has NO links\t - \tFailure\r\n"}) {
        EXPECT_THAT(Judged(directory + evidence), ElementsAre(Expected, Attention)) << evidence;
    }
}

TEST(Judging, ADirectoryThatNothingShowsToExistNeedsAttention) {
    const std::string directory = "Creating Directory C:\\D\\E\\ \t - \tFailure\r\n";
    for (const std::string otherwise :
         {"Setting DACLs on File/Directory C:\\D \t - \tSuccess\r\n",
          "Setting DACLs on File/Directory C:\\D\\Else \t - \tSuccess\r\n",
          "Verifying File/Directory C:\\D\\E\\ has NO links\t - \tSuccess\r\n"}) {
        EXPECT_THAT(Judged(directory + otherwise), ElementsAre(Attention, Fine)) << otherwise;
    }
    EXPECT_THAT(Judged(directory + "Setting DACLs on File/Directory C:\\D\\E\\ \t - \tFailure\r\n"),
                ElementsAre(Attention, Attention));
}

TEST(Judging, AFailureToSecureNeedsAttention) {
    EXPECT_THAT(
        Judged("Verifying File/Directory C:\\D has NO links\t - \tFailure\r\n"
               "Verifying Children Files of Directory C:\\D has NO links\t - \tFailure\r\n"
               "Setting DACLs on File/Directory C:\\D \t - \tFailure\r\n"
               "Setting Child Inheritance DACLs on File/Directory C:\\D \t - \tFailure\r\n"),
        ElementsAre(Attention, Attention, Attention, Attention));
}

TEST(Judging, TheResponseToAnInsecureMachineNeedsAttention) {
    const std::string reason =
        "Security Vulnerability Securing Directories due to Failure Setting ACLs or Links Detected "
        "- Uninstalling\r\n";
    EXPECT_THAT(Judged("First Run - Starting C:\\P\\Unfinaset.exe Process\r\n"
                       "First Run - Process C:\\P\\Unfinaset.exe Ended (True)\r\n" +
                       reason),
                ElementsAre(Fine, Fine, Attention));
    EXPECT_THAT(Judged("First Run - Process C:\\P\\Unfinaset.exe Ended (False)\r\n" + reason),
                ElementsAre(Attention, Attention));
    EXPECT_THAT(Judged("First Run - C:\\P\\Unfinaset.exe  DOES NOT EXIST\r\n" + reason),
                ElementsAre(Attention, Attention));
}

TEST(Judging, AnAdapterWithoutItsFeatureNeedsAttention) {
    const std::string adapter = "Found Adapter TarselQZ311 to configure  Bitmask 0x2\r\n";
    EXPECT_THAT(Judged(adapter), ElementsAre(Attention));
    EXPECT_THAT(Judged(adapter + "Writing Registry Setting HKEY_LOCAL_MACHINE\\K\\V=1\r\n"),
                ElementsAre(Fine, Fine));
}

TEST(Judging, AdaptersThatCannotBeListedNeedAttention) {
    EXPECT_THAT(Judged("Error allocating memory needed to call GetAdaptersAddresses\n"
                       "GetAdaptersInfo failed with error: 8\n"),
                ElementsAre(Attention, Attention));
}

TEST(Judging, ATaskThatCannotBeScheduledNeedsAttention) {
    const std::string task = "   Creating Task Name [T] for Process [C:\\P\\T.exe]....\n";
    EXPECT_THAT(Judged(task +
                       "     ====> CreateScheduledTask:[_com_error] Exception 0x80070035, "
                       "(null), Bad network path.\n     ====> FAILED\n" +
                       task + "     ====> SUCCESS\n"),
                ElementsAre(Attention, Fine));
}

TEST(Judging, AMissingTaskToDeleteIsExpected) {
    const std::string task = "   Deleting Task Name [T]....\n";
    EXPECT_THAT(Judged(task +
                       "     ====> DeleteScheduledTask:[ERROR] T GetLastError 0x00000002\n"
                       "     ====> SUCCESS\n" +
                       task + "     ====> SUCCESS\n" + task +
                       "     ====> DeleteScheduledTask:[_com_error] Exception 0x80070005, (null), "
                       "Access denied.\n     ====> FAILED\n"),
                ElementsAre(Expected, Fine, Attention));
}

TEST(Judging, ALineWithoutItsVerdictNeedsAttention) {
    EXPECT_THAT(Judged("Starting Ardex....\r\n"
                       "Deleting File C:\\f \t - \t\r\n"
                       "   Creating Task Name [T] for Process [C:\\P\\T.exe]....\n"
                       "   Deleting Task Name [T]....\n"),
                ElementsAre(Attention, Attention, Attention, Attention));
}

TEST(Judging, NoFailureOfTheProgramIsFine) {
    for (const reader::Message& message : reader::Messages()) {
        for (const reader::Verdict& verdict : message.verdicts) {
            const std::string line = std::string(message.text) + std::string(verdict.text);
            const bool task = message.kind == Kind::TaskResult;
            if (verdict.outcome == reader::Outcome::Failed) {
                EXPECT_THAT(Judged((task ? "   Deleting Task Name [T]....\n" : "") + line + "\n"),
                            ElementsAre(Not(Fine)))
                    << line;
            }
        }
    }
}

TEST(Judging, ALogWithoutItsEndNeedsAttention) {
    const Report& report = Read(LogBegin + "Stopping Ardex....stopped\r\n");
    EXPECT_THAT(report.findings, ElementsAre(HasSubstr("end is missing")));
    EXPECT_TRUE(reader::NeedsAttention(report));
    EXPECT_FALSE(reader::NeedsAttention(ReadWhole("Stopping Ardex....stopped\r\n")));
}

TEST(Judging, ALogWithoutItsBeginningNeedsAttention) {
    const Report& report = Read("Stopping Ardex....stopped\r\n" + LogEnd);
    EXPECT_THAT(report.findings, ElementsAre(HasSubstr("beginning is missing")));
}

TEST(Judging, AStepWithoutItemsNeedsAttention) {
    EXPECT_THAT(ReadWhole("CopyFiles.....\r\n\r\nSecureFilesDirectories.....\r\n"
                          "Setting DACLs on File/Directory C:\\D \t - \tSuccess\r\n")
                    .findings,
                ElementsAre("Nothing stands below \"CopyFiles.....\": this step was cut off."));
    EXPECT_THAT(ReadWhole("Write Registry Settings.....\r\nComputing Tarsel HW Bitmask\r\n"
                          "Enabling Features by Tarsel HW Bitmask\r\n")
                    .findings,
                IsEmpty());
}

TEST(Judging, TheUsageTextNeedsNoAttention) {
    const Report& report = ReadWhole(test::UsageText());
    EXPECT_THAT(Judgements(report), ElementsAre(Fine, Fine, Fine));
}

// ---- Reading

TEST(Reading, EachMessageIsRecognisedAsWhatItIs) {
    for (const reader::Message& message : reader::Messages()) {
        std::vector<std::string> lines = {std::string(message.text)};
        for (const reader::Verdict& verdict : message.verdicts) {
            lines.push_back(lines.front() + std::string(verdict.text));
        }
        for (const std::string& line : lines) {
            const std::vector<reader::Item> items = Items(Read(LogBegin + line + "\r\n"));
            if (!items.empty()) {  // no heading
                EXPECT_EQ(items.front().kind, message.kind) << line;
                EXPECT_EQ(items.front().text, line);
            }
        }
    }
}

TEST(Reading, ASectionHasTheItemsBelowItsBanner) {
    const Report& report = ReadWhole(
        "\r\n------------------------\r\nStopping Processes.....\r\n------------------------\r\n"
        "Stopping Ardex....stopped\r\n"
        "\r\nCopyFiles.....\r\n");
    ASSERT_EQ(report.sections.size(), 2U);
    EXPECT_EQ(report.sections[0].title, "Stopping Processes.....");
    EXPECT_EQ(report.sections[0].line, 6U);
    ASSERT_EQ(report.sections[0].items.size(), 1U);
    EXPECT_EQ(report.sections[0].items[0].line, 8U);
    EXPECT_EQ(report.sections[0].items[0].verdict, "stopped");
    EXPECT_EQ(report.sections[1].title, "CopyFiles.....");
}

TEST(Reading, ANameMayLookLikeAVerdict) {
    const std::string line = "Stopping a....stopped....stop failed!";
    const std::vector<reader::Item> items = Items(ReadWhole(line + "\r\n"));
    ASSERT_EQ(items.size(), 1U);
    EXPECT_THAT(items[0].names, ElementsAre("a....stopped"));
    EXPECT_EQ(items[0].verdict, "stop failed!");
    EXPECT_THAT(
        Items(ReadWhole("Creating Directory C:\\ \t - \tSuccess \t - \tFailure\r\n"))[0].names,
        ElementsAre("C:\\ \t - \tSuccess"));
}

TEST(Reading, WhatFollowsOnAnItemWithoutVerdictIsTheNextItem) {
    EXPECT_THAT(Texts(ReadWhole(Quit + "Stopping Corvo....Stopping Ardex....stopped\r\n"
                                       "Starting Application B with command line -u....Starting "
                                       "Ardex....started\r\n")),
                ElementsAre(Quit, "Stopping Corvo....", "Stopping Ardex....stopped",
                            "Starting Application B with command line -u....",
                            "Starting Ardex....started"));
}

TEST(Reading, TheLinesOfATaskAreOneItem) {
    const Report& report = ReadWhole(
        "   Deleting Task Name [T]....\n"
        "     ====> DeleteScheduledTask:[_com_error] Exception 0x80041318, (null), Two\r\n"
        "lines.\n"
        "     ====> FAILED\n"
        "of another program\n");
    EXPECT_THAT(Texts(report), ElementsAre(StartsWith("   Deleting"), "of another program"));
    EXPECT_THAT(Judgements(report), ElementsAre(Attention, Unknown));
    EXPECT_EQ(Items(report)[0].verdict, "FAILED");
}

TEST(Reading, ALineOfAnotherProgramIsUnknownAndNeedsNoAttention) {
    const Report& report = ReadWhole("Hello from the companion\r\nStopping Ardex....stopped\r\n");
    EXPECT_THAT(Judgements(report), ElementsAre(Unknown, Fine));
    EXPECT_FALSE(reader::NeedsAttention(report));
    EXPECT_THAT(reader::Summary(report), HasSubstr("1 not the program's"));
}

TEST(Reading, OfSeveralRunsTheLastIsRead) {
    const Report& report = Read(LogBegin + "Starting Ardex....start failed!\r\n" + LogEnd +
                                LogBegin + "Stopping Corvo....stopped\r\n" + LogEnd);
    EXPECT_THAT(Texts(report), ElementsAre("Stopping Corvo....stopped"));
    EXPECT_THAT(report.notes, ElementsAre("The file holds 2 runs: this is the last one"));
    EXPECT_FALSE(reader::NeedsAttention(report));
}

TEST(Reading, LineEndsMayHaveBeenChanged) {
    for (const std::string end : {"\n", "\r\r\n"}) {
        EXPECT_THAT(Texts(Read("FIRST RUN - START" + end + "Stopping Ardex....stopped" + end)),
                    ElementsAre("Stopping Ardex....stopped"));
    }
}

// ---- What is not a log, or not as the program wrote it

void ExpectRefusal(const std::string& bytes, const std::string& reason) {
    try {
        reader::ReadLog(bytes);
        ADD_FAILURE() << "it was read: " << bytes;
    } catch (const NotALog& refusal) {
        EXPECT_THAT(refusal.what(), AllOf(HasSubstr(reason), Not(HasSubstr("\n"))));
    }
}

TEST(Input, ThatIsEmptyIsRefused) {
    ExpectRefusal("", "it is empty");
}

TEST(Input, OfAnotherProgramIsRefused) {
    for (const std::string& other :
         {std::string("Volume in drive C has no label.\r\n"), std::string("PK\x03\x04\0\0\0", 7),
          std::string("\xFF\xFE"), std::string("\n\n---\n"), std::string(1000, '\0')}) {
        ExpectRefusal(other, "it is not a log of Finaset");
    }
}

// In UTF-16, little-endian or not.
std::string Utf16(const std::string& log, bool lowFirst) {
    std::string bytes;
    for (const char character : log) {
        bytes += lowFirst ? std::string{character, '\0'} : std::string{'\0', character};
    }
    return bytes;
}

TEST(Input, InUtf16IsReadAndNoted) {
    const std::string log = LogBegin + Quit + " application not found!\r\n" + LogEnd;
    for (const std::string& bytes : {"\xFF\xFE" + Utf16(log, true), "\xFE\xFF" + Utf16(log, false),
                                     Utf16(log, true), Utf16(log, false)}) {
        const Report& report = Read(bytes);
        EXPECT_THAT(report.notes, ElementsAre(StartsWith("The file is UTF-16")));
        EXPECT_THAT(Texts(report), ElementsAre(Quit + " application not found!"));
        EXPECT_FALSE(reader::NeedsAttention(report));
    }
    EXPECT_TRUE(Read("\xFF\xFE" + Utf16(log.substr(2), true)).begins);
}

TEST(Input, InUtf16LosesWhatTheProgramCannotWrite) {
    const std::string text = Utf16("FIRST RUN - START\n", true) +
                             std::string("\x42\x04\x3D\xD8\x00\xDE", 6) + Utf16("!\n", true);
    const std::string cutWithinACharacter = text + '\0';
    EXPECT_THAT(Texts(Read(cutWithinACharacter)), ElementsAre("?"
                                                              "?!"));
}

TEST(Input, InUtf8IsReadAndNoted) {
    const std::string quit = "Stopping Application Z....with Window Title Tarsel\xC2\xAE Lumetra ";
    for (const std::string mark : {"", "\xEF\xBB\xBF"}) {
        const Report& report =
            Read(mark + LogBegin + quit + " application not found!\r\n" + LogEnd);
        EXPECT_THAT(report.notes, ElementsAre(StartsWith("The file is UTF-8")));
        EXPECT_THAT(Texts(report), ElementsAre(HasSubstr("Tarsel\xAE Lumetra")));
    }
    EXPECT_TRUE(Read("\xEF\xBB\xBF"
                     "FIRST RUN - START\r\n" +
                     LogEnd)
                    .begins);
    EXPECT_THAT(Texts(Read("\xEF\xBB\xBF" + LogBegin + "\xE2\x82\xAC\xF0\x9F\x98\x80!")),
                ElementsAre("?"
                            "?!"));
}

TEST(Input, OfTheConsolesCodePageIsNoted) {
    for (const std::string sign : {"\xA9", "\xAB", "r", "?"}) {
        const Report& report = ReadWhole("Stopping Application Z....with Window Title Tarsel" +
                                         sign + " Lumetra  application not found!\r\n");
        EXPECT_THAT(report.notes, ElementsAre(HasSubstr("code page"))) << sign;
    }
    EXPECT_THAT(ReadWhole(Quit + " application not found!\r\n").notes, IsEmpty());
    EXPECT_THAT(ReadWhole("Stopping \xC3rdex....stopped\r\n").notes, IsEmpty());
}

TEST(Input, CutOffAnywhereIsReadToItsEnd) {
    const std::string log = LogBegin + "\r\n----\r\nStopping Processes.....\r\n----\r\n" + Quit +
                            "Stopping Ardex....stopped\r\nStarting Ardex....started\r\n" +
                            "   Deleting Task Name [T]....\n     ====> SUCCESS\n" + LogEnd;
    for (std::size_t size = LogBegin.size(); size + 2 < log.size(); ++size) {
        EXPECT_TRUE(reader::NeedsAttention(Read(log.substr(0, size)))) << size;
    }
}

// ---- Writing

std::string EveryByte() {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != '\n' && byte != '\r') {
            bytes += static_cast<char>(byte);
        }
    }
    return bytes;
}

bool IsAscii(const std::string& text) {
    return text.find_first_not_of(
               "\t\n !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`"
               "abcdefghijklmnopqrstuvwxyz{|}~") == std::string::npos;
}

TEST(Writing, JsonHasEveryByteInAscii) {
    const std::string json = reader::WriteJson(ReadWhole("\"\\\x01\t\x7F\xAE<\r\n" + EveryByte()));
    EXPECT_THAT(json, HasSubstr(R"("text": "\"\\\u0001\u0009\u007f\u00ae<")"));
    EXPECT_TRUE(IsAscii(json));
}

TEST(Writing, JsonHoldsTheWholeReport) {
    EXPECT_EQ(
        reader::WriteJson(Read(LogBegin + "CopyFiles.....\r\nStarting Ardex....start failed!\r\n")),
        R"({
  "attention": true,
  "summary": "2 things need attention (0 ok, 0 failed as expected).",
  "ok": 0,
  "expected": 0,
  "attention_items": 1,
  "unknown": 0,
  "findings": ["The log's end is missing: the run, or its capture, was cut off."],
  "notes": [],
  "sections": [
   {"line": 4, "title": "CopyFiles.....", "items": [
    {"line": 5, "judgement": "attention", "verdict": "start failed!", "reason": "It does not start, or is not installed, or runs already.", "names": ["Ardex"], "text": "Starting Ardex....start failed!"}]}]
}
)");
}

TEST(Writing, HtmlEscapesEveryByte) {
    const std::string html =
        reader::WriteHtml(ReadWhole("<script>&\"'\x01\x80\xAE\r\n" + EveryByte() + "\r\n"));
    EXPECT_THAT(html,
                HasSubstr("<code>&#60;script&#62;&#38;&#34;&#39;&#xFFFD;&#xFFFD;&#174;</code>"));
    EXPECT_TRUE(IsAscii(html));
}

TEST(Writing, HtmlOpensTheSectionsThatNeedAttentionOnly) {
    const std::string html = reader::WriteHtml(
        ReadWhole("Stopping Processes.....\r\nStopping Ardex....stopped\r\n"
                  "Starting Processes.....\r\nStarting Ardex....start failed!\r\n"));
    EXPECT_THAT(html, HasSubstr("<details>\n<summary>Stopping Processes....."));
    EXPECT_THAT(html, HasSubstr("<details open>\n<summary>Starting Processes....."));
    EXPECT_THAT(html, HasSubstr("&#x2717; attention</td>"));
}

TEST(Writing, TextHoldsTheWholeReport) {
    EXPECT_EQ(reader::WriteText(Read("\xEF\xBB\xBF" + LogBegin +
                                     "Hello\r\nStarting Processes.....\r\n"
                                     "Starting Ardex....started\r\n"
                                     "Starting Corvo....start failed!\r\n")),
              R"(2 things need attention (1 ok, 0 failed as expected, 1 not the program's).
Note: The file is UTF-8, so something has rewritten the log: it is read all the same, but what is not ASCII in it may be wrong; capture the next one with: cmd /c "Finaset.exe > finaset.log".
ATTENTION: The log's end is missing: the run, or its capture, was cut off.

Before the first section
  unknown   4     Hello
                    The program writes no such line.

Starting Processes.....
  ok        6     Starting Ardex....started
  ATTENTION 7     Starting Corvo....start failed!
                    It does not start, or is not installed, or runs already.
)");
}

TEST(Writing, HtmlSaysWhatIsToBeKnownOfTheFile) {
    const std::string html = reader::WriteHtml(Read("\xEF\xBB\xBF" + LogBegin));
    EXPECT_THAT(html, HasSubstr("<p class=\"result attention\">&#x2717; 1 thing needs attention"));
    EXPECT_THAT(html, HasSubstr("<p>Note: The file is UTF-8"));
    EXPECT_THAT(html, HasSubstr("<li>The log&#39;s end is missing"));
    EXPECT_THAT(reader::WriteHtml(ReadWhole("")),
                HasSubstr("<p class=\"result\">&#x2713; Nothing needs attention"));
}

TEST(Writing, TextHasNoControlCharacters) {
    const std::string text = reader::WriteText(ReadWhole("a\x1B[31m\tb\r\n"));
    EXPECT_THAT(text, HasSubstr("a?[31m b\n"));
    EXPECT_THAT(reader::WriteText(ReadWhole(Quit + " application not found!\r\n")),
                HasSubstr("Tarsel\xAE Lumetra"));
}

// ---- The program

// Runs the reader on the file. Returns its exit status; its messages are in `errors`.
int RunOn(const std::filesystem::path& file, std::string& errors) {
    const std::filesystem::path said = file.parent_path() / "errors.txt";
    const std::filesystem::path program =
        std::filesystem::path(std::getenv("FINASET_LOG")).make_preferred();
    const auto quoted = [](const std::filesystem::path& path) {
        return std::filesystem::path(" \"").native() + path.native() +
               std::filesystem::path("\"").native();
    };
    // Windows' shell takes a quote away that stands at the beginning.
    const std::filesystem::path::string_type command =
        std::filesystem::path("cd . &&").native() + quoted(program) + quoted(file) +
        std::filesystem::path(" 2>").native() + quoted(said);
#ifdef _WIN32
    const int status = ::_wsystem(command.c_str());
#else
    const int status = WEXITSTATUS(std::system(command.c_str()));
#endif
    errors = test::FileText(said).value();
    return status;
}

class TheProgram : public testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("FINASET_LOG") == nullptr) {
            GTEST_SKIP() << "FINASET_LOG does not say where the program is";
        }
        std::filesystem::create_directories(directory);
    }
    void TearDown() override { std::filesystem::remove_all(directory); }

    const std::filesystem::path directory =
        std::filesystem::temp_directory_path() /
        ("finaset-log-" + std::to_string(std::random_device()()));
    std::string errors;
};

TEST_F(TheProgram, ReadsAFileWhateverItIsCalled) {
    const std::u8string name = u8"\u00E4\u20AC\U0001F600.log";
    const std::filesystem::path file = directory / name;
    test::PutFile(file, LogBegin + LogEnd);
    EXPECT_EQ(RunOn(file, errors), 0);
    EXPECT_EQ(errors, "");
    test::PutFile(file, "");
    EXPECT_EQ(RunOn(file, errors), 2);
    EXPECT_THAT(errors, StartsWith("finaset-log: \xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80.log: "));
}

// If the system allows it, the file exists, and is empty.
TEST_F(TheProgram, EscapesWhatOfAFilesNameIsNoCharacter) {
#ifdef _WIN32
    const std::filesystem::path file = directory / L"a\xD83D.log";
    const std::string shown = "a\\ud83d.log";
#else
    const std::filesystem::path file = directory / "a\xFF.log";
    const std::string shown = "a\\xff.log";
#endif
    const bool made = static_cast<bool>(std::ofstream(file));
    EXPECT_EQ(RunOn(file, errors), 2);
    EXPECT_THAT(errors, StartsWith("finaset-log: " + shown +
                                   (made ? ": it is empty" : ": it cannot be read")));
}

}  // namespace
