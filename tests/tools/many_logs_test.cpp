// The reader of many logs: reading in pieces, its summary of them all, and the effects of damage.

#include "log_reader/judge.h"
#include "log_reader/read_log.h"
#include "log_reader/rollout.h"
#include "log_reader/shown_name.h"
#include "log_reader/writers.h"
#include "support/file_contents.h"
#include "support/log_texts.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using reader::EncodingFinder;
using reader::Finding;
using reader::LogReader;
using reader::NotALog;
using reader::Report;
using reader::Rollout;
using test::LogBegin;
using test::LogEnd;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::filesystem::path Sources() {
    const char* directory = std::getenv("FINASET_SOURCES");
    return directory != nullptr ? directory : "";
}

// For a test that needs them.
constexpr const char* NoSources = "FINASET_SOURCES does not say where the sources lie";

// The logs of real runs.
std::vector<std::string> KeptLogs() {
    std::vector<std::string> logs;
    for (const char* name :
         {"first-installation.log", "reinstallation.log", "insecure-machine.log"}) {
        if (const auto log = test::FileText(Sources() / "tests/tools/logs" / name)) {
            logs.push_back(*log);
        }
    }
    return logs;
}

std::string Utf16(std::string_view log) {
    std::string bytes = "\xFF\xFE";
    for (const char character : log) {
        bytes += {character, '\0'};
    }
    return bytes;
}

std::string Utf8(std::string_view log) {
    std::string bytes;
    for (const char character : log) {
        bytes += character == '\xAE' ? "\xC2\xAE" : std::string(1, character);
    }
    return bytes;
}

Report Judged(Report report) {
    reader::Judge(report);
    return report;
}

// Like a file that is longer than its reader's memory.
Report ReadInPieces(const std::string& log, std::size_t size, std::size_t longestRun) {
    EncodingFinder encoding;
    for (std::size_t at = 0; at < log.size(); at += size) {
        encoding.Take(std::string_view(log).substr(at, size));
    }
    LogReader reader(encoding.Found(), longestRun);
    std::size_t at = 0;
    for (bool last = false; !last;) {
        const std::string piece = log.substr(at, size);  // separate memory, to detect overruns
        last = piece.size() < size;
        std::size_t taken = reader.Take(piece, last);
        if (taken == 0 && !last) {
            reader.SkipLine();
            taken = size;
        }
        at += taken;
    }
    return Judged(reader.Finish());
}

std::string Refusal(const std::string& log, std::size_t size, std::size_t longestRun) {
    try {
        return WriteJson(ReadInPieces(log, size, longestRun));
    } catch (const NotALog& reason) {
        return reason.what();
    }
}

// ---- Piece by piece

constexpr std::size_t LongLine = 300;  // longer than any of the kept logs
constexpr std::size_t LongRun = 100'000;

TEST(ReadingInPieces, GivesWhatReadingAtOnceGives) {
    if (Sources().empty()) {
        GTEST_SKIP() << NoSources;
    }
    for (const std::string& kept : KeptLogs()) {
        for (const std::string& log :
             {kept, Utf8(kept), Utf16(kept), kept + kept, kept.substr(0, kept.size() / 2)}) {
            const std::string atOnce = WriteJson(Judged(reader::ReadLog(log)));
            for (const std::size_t size : {2 * LongLine, 2 * LongLine + 2, std::size_t{4096},
                                           log.size() + log.size() % 2, 2 * log.size()}) {
                EXPECT_EQ(Refusal(log, size, LongRun), atOnce) << size;
            }
        }
    }
}

TEST(ReadingInPieces, HoldsTheLastRunOnly) {
    const std::string run = LogBegin + "Starting Ardex....started\r\n" + LogEnd;
    std::string runs;
    for (int count = 0; count < 1000; ++count) {
        runs += run;
    }
    const std::string json = Refusal(runs, 2 * LongLine, 2 * run.size() + 2000);
    EXPECT_THAT(json, HasSubstr("The file holds 1000 runs: this is the last one"));
    EXPECT_THAT(json, HasSubstr("\"line\": 6997, "));
}

TEST(ReadingInPieces, GivesUpARunThatIsTooLong) {
    const std::string lines(50'000, '\n');
    std::string foreign;
    for (int count = 0; count < 5'000; ++count) {
        foreign += "of the companion\n";
    }
    const std::string one(100'000, 'x');
    const std::string wide = Utf16(one).substr(2);
    const std::string end = LogBegin + "Starting Ardex....start failed!\r\n" + LogEnd;
    for (const std::string& much : {foreign, one, one + '\n' + one, foreign + "\xC3\xA4"}) {
        for (const bool inUtf16 : {false, true}) {
            const auto file = [&](const std::string& log) { return inUtf16 ? Utf16(log) : log; };
            EXPECT_THAT(Refusal(file(LogBegin + much + LogEnd), 1000, 20'000),
                        HasSubstr("too long to be read with others"));
            EXPECT_THAT(Refusal(file(much), 1000, 20'000), HasSubstr("none of its banners"));
            // What is too long does not belong to the last run.
            EXPECT_THAT(Refusal(file(LogBegin + much + '\n' + end), 1000, 20'000),
                        HasSubstr("\"verdict\": \"start failed!\""));
        }
    }
    EXPECT_THAT(Refusal(LogBegin + lines + LogEnd, 1000, 20'000), Not(HasSubstr("too long")));
}

// ---- The summary

void Add(Rollout& rollout, const std::string& path, const std::string& lines) {
    rollout.Add(path, Judged(reader::ReadLog(LogBegin + lines + LogEnd)));
}

std::string Text(const Rollout& rollout) {
    std::ostringstream text;
    WriteText(text, rollout);
    return text.str();
}

const std::string NotStarted = "Starting Ardex....start failed!\r\n";

TEST(ManyLogs, AreCountedAndTheirFindingsRanked) {
    Rollout rollout;
    Add(rollout, "a/PC-1.log", "Starting Ardex....started\r\n");
    Add(rollout, "a/PC-2.log", NotStarted + "Starting Corvo....start failed!\r\n");
    Add(rollout, "a/PC-3.log", NotStarted + "GetAdaptersInfo failed with error: 8\n");
    Add(rollout, "a/PC-4.LOG", NotStarted);
    rollout.AddUnreadable("a/PC-5.log", "it is empty");
    EXPECT_EQ(Text(rollout), R"(4 logs read: 1 in order, 3 needing attention. 1 not readable.

      3   75.0 %  Starting NAME....start failed!
                  It does not start, or is not installed, or runs already.
                  NAME: Ardex on 3 logs, Corvo on 1
                  PC-2, PC-3, PC-4

      1   25.0 %  GetAdaptersInfo failed with error: NUMBER
                  No adapter could be looked at.
                  NUMBER: 8 on 1 log
                  PC-3

Not readable
  a/PC-5.log: it is empty
)");
}

TEST(ManyLogs, HaveFindingsWithTheNamesThatVaryTakenOut) {
    Rollout rollout;
    for (const char drive : {'C', 'D'}) {
        std::string lines =
            "Stopping Application Z.exe....with Window Title Tarsel\xAE L  Process Q.exe Started "
            "in context of Z.exe application to send QUIT Message - Success=False\r\n"
            "Starting Application B.exe with command line -u....start failed!\r\n"
            "Disabling Service S....Disable  failed!\r\n"
            "Deleting Registry Setting #\\= \t - \tFailure\r\n"
            "Creating Directory #:\\D \t - \tFailure\r\n"
            "Deleting File #:\\D\\f \t - \tFailure\r\n"
            "Copying File #:\\f -> #:\\D\\f     overwriting =true\t - \tFailure\r\n"
            "Setting DACLs on File/Directory #:\\D \t - \tFailure\r\n"
            "First Run - Process #:\\D\\U.exe Ended (False)\r\n"
            "Found Adapter # to configure  Bitmask 0x2\r\n"
            "   Creating Task Name [T] for Process [#:\\D\\T.exe]....\n"
            "     ====> CreateScheduledTask:[_com_error] Exception 0x80070035, (null), No.\n"
            "     ====> FAILED\n"
            "   Deleting Task Name [T]....\n"
            "CopyFiles.....\r\n";
        std::ranges::replace(lines, '#', drive);
        Add(rollout, std::string(1, drive) + ".log", lines);
    }
    std::vector<std::string> whats;
    for (const Finding* finding : rollout.Findings()) {
        EXPECT_THAT(finding->logs, ElementsAre(0U, 1U)) << finding->what;
        whats.push_back(finding->what);
    }
    EXPECT_THAT(
        whats,
        testing::UnorderedElementsAre(
            "Stopping Application NAME....with Window Title TITLE  Process PROGRAM Started in "
            "context of NAME application to send QUIT Message - Success=False",
            "Starting Application NAME with command line ARGUMENTS....start failed!",
            "Disabling Service NAME....Disable  failed!",
            "Deleting Registry Setting SETTING   -  Failure",
            "Creating Directory PATH   -  Failure", "Deleting File PATH   -  Failure",
            "Copying File SOURCE -> PATH     overwriting =true  -  Failure",
            "Setting DACLs on File/Directory PATH   -  Failure",
            "First Run - Process PROGRAM Ended (False)",
            "Found Adapter NAME to configure  Bitmask 0xNUMBER",
            "Creating Task Name [NAME] for Process [PATH].... FAILED",
            "Deleting Task Name [NAME]....",
            "Nothing stands below \"CopyFiles.....\": this step was cut off."));
}

// So that it can be looked up there.
TEST(ManyLogs, HaveTheDocumentationsFindings) {
    if (Sources().empty()) {
        GTEST_SKIP() << NoSources;
    }
    const auto page = test::FileText(Sources() / "docs/log.md");
    ASSERT_TRUE(page);
    std::string text = *page;
    std::ranges::replace(text, '\t', ' ');
    for (const reader::Message& message : reader::Messages()) {
        std::string opening;
        for (const std::string_view piece : reader::Pieces(message.text)) {
            opening += (opening.empty() && piece.data() == message.text.data() ? "" : "1") +
                       std::string(piece);
        }
        for (const reader::Verdict& verdict : message.verdicts) {
            std::string line = opening;
            bool first = true;
            for (const std::string_view piece : reader::Pieces(verdict.text)) {
                line += (first ? "" : "1") + std::string(piece);
                first = false;
            }
            Rollout rollout;
            Add(rollout, "log", line + "\r\n");
            for (const Finding* finding : rollout.Findings()) {
                EXPECT_THAT(text, HasSubstr('\n' + finding->what + '\n'));
            }
        }
    }
}

TEST(ManyLogs, CountEachLogOnceForAFinding) {
    Rollout rollout;
    Add(rollout, "1.log", NotStarted + NotStarted);
    ASSERT_EQ(rollout.Findings().size(), 1U);
    EXPECT_THAT(rollout.Findings()[0]->logs, ElementsAre(0U));
    EXPECT_EQ(FirstNames(*rollout.Findings()[0]), "NAME: Ardex on 1 log");
}

TEST(ManyLogs, HaveNoMoreNamesThanCanBeCounted) {
    Rollout rollout;
    for (int index = 0; index < 1000; ++index) {
        Add(rollout, "log",
            "Starting " + std::string(1000, 'x') + std::to_string(index) +
                "....start failed!\r\nStarting S" + std::to_string(index) +
                "....start failed!\r\n");
    }
    ASSERT_EQ(rollout.Findings().size(), 1U);
    const Finding& finding = *rollout.Findings()[0];
    EXPECT_EQ(finding.logs.size(), 1000U);
    EXPECT_EQ(finding.names.size(), 200U);
    EXPECT_THAT(FirstNames(finding),
                StartsWith("NAME: " + std::string(200, 'x') + " on 1000 logs, "));
    EXPECT_THAT(FirstNames(finding), EndsWith(", and others"));
}

TEST(ManyLogs, AreNamedAfterTheirFiles) {
    Rollout rollout;
    Add(rollout, "site/PC-1.log", NotStarted);
    Add(rollout, "PC-2.LOG", NotStarted);
    Add(rollout, "site.old/PC", NotStarted);
    EXPECT_THAT(rollout.Machines(), ElementsAre("PC-1", "PC-2", "PC"));
}

TEST(ManyLogs, AreNamedAfterTheirDirectoriesIfAllFilesHaveOneName) {
    Rollout rollout;
    Add(rollout, "site/PC-1/finaset.log", NotStarted);
    EXPECT_THAT(rollout.Machines(), ElementsAre("finaset"));
    Add(rollout, "site/PC-2/finaset.log", NotStarted);
    Add(rollout, "finaset.log", NotStarted);
    EXPECT_THAT(rollout.Machines(), ElementsAre("PC-1", "PC-2", "finaset"));
    rollout.AddUnreadable("site/PC-3/another.log", "it is empty");
    EXPECT_THAT(rollout.Machines(),
                ElementsAre("site/PC-1/finaset.log", "site/PC-2/finaset.log", "finaset.log"));
}

TEST(ManyLogs, AreNamedByTheirPathsWhereTwoWouldHaveOneName) {
    Rollout rollout;
    Add(rollout, "a/PC-1.log", NotStarted);
    Add(rollout, "a/PC-2.log", NotStarted);
    Add(rollout, "b/PC-1.log", NotStarted);
    EXPECT_THAT(rollout.Machines(), ElementsAre("a/PC-1.log", "PC-2", "b/PC-1.log"));
}

TEST(ManyLogs, FitIntoAHundredColumns) {
    Rollout rollout;
    for (int index = 0; index < 9; ++index) {
        std::string name = "a/" + std::to_string(index);
        for (int more = 0; more < 30 * index; ++more) {
            name += more % 7 == 0 && index > 5 ? " " : "\xC3\xA4";
        }
        Add(rollout, name + ".log", "Starting " + std::string(300, 'S') + "....start failed!\r\n");
        rollout.AddUnreadable(name, "it is empty");
    }
    std::istringstream lines(Text(rollout));
    std::string all;
    for (std::string line; std::getline(lines, line);) {
        const auto columns = std::ranges::count_if(
            line, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; });
        EXPECT_LE(columns, 100) << line;
        EXPECT_THAT(line, Not(EndsWith(" ")));
        all += line.substr(std::min(line.find_first_not_of(' '), line.size()));
    }
    EXPECT_THAT(all, HasSubstr(std::string(200, 'S')));
}

TEST(ManyLogs, HaveControlCharactersOfNoKind) {
    Rollout rollout;
    Add(rollout, reader::ShownName("a\x1B.log"), "Starting \x1B[31m\x9B\xAE....start failed!\r\n");
    EXPECT_THAT(Text(rollout), HasSubstr("NAME: ?[31m?\xC2\xAE on 1 log"));
    EXPECT_THAT(Text(rollout), HasSubstr("a\\u001b\n"));
}

TEST(ManyLogs, AreAPageThatEscapesTheirNames) {
    Rollout rollout;
    Add(rollout, "<i>\xC3\xA4&\xF0\x9F\x98\x80.log", "Starting <b>\xAE....start failed!\r\n");
    rollout.AddUnreadable("<u>", "it is empty");
    std::ostringstream page;
    WriteHtml(page, rollout);
    EXPECT_THAT(page.str(), HasSubstr("<li>&#60;i&#62;&#228;&#38;&#128512;</li>"));
    EXPECT_THAT(page.str(), HasSubstr("NAME: &#60;b&#62;&#174; on 1 log"));
    EXPECT_THAT(page.str(), HasSubstr("<td>&#60;u&#62;</td><td>it is empty</td>"));
}

TEST(ManyLogs, AreJsonOfOneLineEach) {
    const Report report = Judged(reader::ReadLog(LogBegin + "CopyFiles.....\r\n" + NotStarted));
    EXPECT_EQ(
        WriteJsonLine("a\"\\\xC3\xA4\xF0\x9F\x98\x80", report),
        R"({"path": "a\"\\\u00e4\ud83d\ude00", "attention": true, )"
        R"("summary": "2 things need attention (0 ok, 0 failed as expected).", "ok": 0, )"
        R"("expected": 0, "attention_items": 1, "unknown": 0, "findings": )"
        R"(["The log's end is missing: the run, or its capture, was cut off."], "notes": [], )"
        R"("sections": [{"line": 4, "title": "CopyFiles.....", "items": [{"line": 5, )"
        R"("judgement": "attention", "verdict": "start failed!", "reason": )"
        R"("It does not start, or is not installed, or runs already.", "names": ["Ardex"], )"
        R"("text": "Starting Ardex....start failed!"}]}]})"
        "\n");
    EXPECT_EQ(reader::WriteJsonLine("a", "it is empty"),
              "{\"path\": \"a\", \"error\": \"it is empty\"}\n");
}

TEST(ShownName, HasEachCharacterThatCanBeShown) {
    EXPECT_EQ(reader::ShownName(std::filesystem::path(u8"a/\u00E4\u20AC\U0001F600 b.log")),
              "a/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 b.log");
    EXPECT_EQ(reader::ShownName(std::filesystem::path(u8"\u001B\u0085\u2028")),
              "\\u001b\\u0085\\u2028");
}

TEST(ShownName, EscapesWhatIsNoCharacter) {
#ifdef _WIN32
    EXPECT_EQ(reader::ShownName(L"a\\\xD83D.log"), "a/\\ud83d.log");
    EXPECT_EQ(reader::ShownName(L"\xDE00\xD83D"), "\\ude00\\ud83d");
#else
    EXPECT_EQ(reader::ShownName("\xFF\xC3.log"), "\\xff\\xc3.log");
    EXPECT_EQ(reader::ShownName("\xED\xA0\xBD\xC0\xAF\xF4\x90\x80\x80"),
              "\\xed\\xa0\\xbd\\xc0\\xaf\\xf4\\x90\\x80\\x80");
#endif
}

// ---- Damage

class Damage {
public:
    Damage(std::vector<std::string> logs, unsigned seed) : logs_(std::move(logs)), random_(seed) {}

    std::string Log() {
        std::string log = AnyLog();
        for (std::size_t count = Below(6); count > 0; --count) {
            Harm(log);
        }
        return log;
    }

private:
    std::size_t Below(std::size_t end) {
        return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_);
    }

    const std::string& AnyLog() { return logs_[Below(logs_.size())]; }

    void Harm(std::string& log) {
        const std::size_t at = Below(log.size() + 1);
        const std::size_t size = Below(400);
        std::string other;
        switch (Below(10)) {
            case 0:
                log.resize(at);
                break;
            case 1:
                log.erase(0, at);
                break;
            case 2:
                log.erase(at, size);
                break;
            case 3:
                other = AnyLog();
                log.insert(at, other, Below(2000), size);
                break;
            case 4:
                log.insert(at, size, static_cast<char>(Below(256)));
                break;
            case 5:
                for (std::size_t count = size / 10; count > 0 && !log.empty(); --count) {
                    log[Below(log.size())] = static_cast<char>(Below(256));
                }
                break;
            case 6:
                log = Utf16(log).erase(0, Below(4));
                break;
            case 7:
                log = Utf8(log);
                break;
            case 8:
                std::erase(log, "\r\n -."[Below(5)]);
                break;
            default:
                log += AnyLog();
        }
    }

    std::vector<std::string> logs_;
    std::mt19937 random_;
};

bool IsAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char byte) { return byte > 0; });
}

TEST(ManyLogs, SurviveDamage) {
    if (Sources().empty()) {
        GTEST_SKIP() << NoSources;
    }
#if defined(_WIN32) && !defined(GUARD_PAGES)
    constexpr unsigned Logs = 2'000;
#else
    constexpr unsigned Logs = 20'000;  // where faults show, or the time does not
#endif
    const std::vector<std::string> kept = KeptLogs();
    ASSERT_EQ(kept.size(), 3U);
    Rollout rollout;
    unsigned tooLong = 0;  // a line too long for the pieces
    for (unsigned seed = 1; seed <= Logs; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const std::string log = Damage(kept, seed).Log();
        const std::string name = std::to_string(seed);
        std::string atOnce;
        try {
            const Report report = Judged(reader::ReadLog(log));
            rollout.Add(name, report);
            atOnce = WriteJson(report);
            EXPECT_TRUE(IsAscii(atOnce));
            EXPECT_TRUE(IsAscii(WriteHtml(report)));
            EXPECT_THAT(WriteText(report), EndsWith("\n"));
        } catch (const NotALog& reason) {
            atOnce = reason.what();
            rollout.AddUnreadable(name, reason.what());
        }
        const std::string inPieces = log.empty() ? atOnce : Refusal(log, 0x1000, LongRun);
        if (inPieces != atOnce) {
            ASSERT_THAT(inPieces, HasSubstr("too long to be read with others"));
            ++tooLong;
        }
    }
    EXPECT_LT(tooLong, Logs / 10);
    EXPECT_EQ(rollout.Read() + rollout.NotRead().size(), Logs);
    EXPECT_GT(rollout.NotRead().size(), Logs / 100);
    EXPECT_GT(rollout.InOrder(), Logs / 100);
    EXPECT_GT(rollout.Findings().size(), 10U);
    EXPECT_LT(rollout.Findings().size(), 200U);
    EXPECT_THAT(Text(rollout), StartsWith(Summary(rollout)));
}

}  // namespace
