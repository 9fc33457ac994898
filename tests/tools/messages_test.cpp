// The reader and the documentation know every text in the sources.

#include "log_reader/messages.h"

#include "log_reader/read_log.h"
#include "support/file_contents.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using reader::Match;
using reader::Message;
using reader::Messages;
using test::FileText;
using testing::IsEmpty;
using testing::Not;

// Other strings in the files that print: names, and formats and words without text.
const std::set<std::string> NoTexts = {
    "",
    "%ls",
    "%s",
    "%lc",
    "-------------------------------------------------------",  // a banner's, or as many as it has
    "?",
    "*",
    ".",
    "..",
    R"(\\)",
    R"(\\*)",
    "true",
    "false",
    "True",
    "False",
    "/STOP",
    "/CONFIGURE",
    "/START",
    "/DISABLE",
    "/?",
    "##PROCESSNAME##",
    // Programs, libraries and their functions.
    "Quitline.exe",
    "Unfinaset.exe",
    "iphlpapi.dll",
    "GetAdaptersAddresses",
    "CreateScheduledTask",
    "DeleteScheduledTask",
    // The registry and the task service.
    "FinasetAction",
    R"(SOFTWARE\\Tarsel\\Nimbus)",
    "Tarsel_HWConfig",
    "Tarsel_HWConfigDefault",
    "Tarsel Lumetra Startup Task",
    // The event log.
    "First Run - Starting",
    "Process",
    "Tarsel Nimbus CInstall",
    "Tarsel Nimbus Network Service",
};

// The string literals of C++ source, unchanged, with adjacent ones joined.
std::vector<std::string> Literals(const std::string& source) {
    std::vector<std::string> literals;
    bool joined = false;  // to the literal before
    for (std::size_t at = 0; at < source.size();) {
        const std::string_view rest = std::string_view(source).substr(at);
        if (rest.starts_with("//") || rest.starts_with("#include")) {
            at = source.find('\n', at);
        } else if (rest.starts_with("'\"'")) {
            at += 3;
        } else if (rest.starts_with('"')) {
            std::size_t end = at + 1;
            while (source[end] != '"') {
                end += source[end] == '\\' ? 2U : 1U;
            }
            const std::string literal = source.substr(at + 1, end - at - 1);
            if (joined) {
                literals.back() += literal;
            } else {
                literals.push_back(literal);
            }
            joined = true;
            at = end + 1;
        } else {
            joined = joined && (std::isspace(static_cast<unsigned char>(rest.front())) != 0 ||
                                rest.starts_with("L\""));
            ++at;
        }
    }
    return literals;
}

// A literal's text without the line ends around it.
std::string TextOf(std::string literal) {
    for (const std::string_view end : {"\\r", "\\n"}) {
        while (literal.find(end) != std::string::npos) {
            literal.erase(literal.find(end), end.size());
        }
    }
    for (const auto& [from, to] : {std::pair("\\t", "\t"), std::pair("\\\"", "\"")}) {
        while (literal.find(from) != std::string::npos) {
            literal.replace(literal.find(from), 2, to);
        }
    }
    return literal;
}

// Whether the program writes `text` with this literal: it is the literal, but with words in place
// of conversions.
bool IsWrittenBy(const std::string& text, const std::string& literal) {
    const auto names = Match(literal, text);
    return text == literal ||
           (names && std::ranges::all_of(*names, [](const std::string& name) {
                return name.starts_with('%') || std::ranges::all_of(name, [](char letter) {
                           return std::isalpha(static_cast<unsigned char>(letter)) != 0;
                       });
            }));
}

class EveryText : public testing::Test {
protected:
    void SetUp() override {
        const char* directory = std::getenv("FINASET_SOURCES");
        if (directory == nullptr) {
            GTEST_SKIP() << "FINASET_SOURCES does not say where the sources lie";
        }
        root_ = directory;
        for (const auto& file : std::filesystem::recursive_directory_iterator(root_ / "src")) {
            const std::string source = file.is_regular_file() ? FileText(file.path()).value() : "";
            if (source.find("#include \"driver/console_log.h\"") == std::string::npos) {
                continue;
            }
            for (const std::string& literal : Literals(source)) {
                if (!NoTexts.contains(TextOf(literal))) {
                    texts.insert(TextOf(literal));
                }
            }
        }
        ASSERT_THAT(texts, testing::Contains("Stopping %ls...."));
    }

    // The lines in the documentation's fences below this heading, or in all fences.
    [[nodiscard]] std::vector<std::string> DocumentedLines(const std::string& heading = {}) const {
        std::istringstream text(FileText(root_ / "docs/log.md").value());
        std::vector<std::string> lines;
        bool below = heading.empty();
        bool fenced = false;
        bool log = false;  // not a command, whose fence names its language
        for (std::string line; std::getline(text, line);) {
            if (line.starts_with("```")) {
                fenced = !fenced;
                log = fenced && line == "```";
            } else if (line.starts_with("## ") && !fenced && !heading.empty()) {
                below = line == "## " + heading;
            } else if (log && below && !line.empty()) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    // The lines of a kept log, in UTF-8.
    [[nodiscard]] std::vector<std::string> KeptLog(const std::string& name) const {
        std::istringstream log(FileText(root_ / "tests/tools/logs" / name).value());
        std::vector<std::string> lines;
        for (std::string line; std::getline(log, line);) {
            std::erase(line, '\r');
            if (const std::size_t sign = line.find('\xAE'); sign != std::string::npos) {
                line.replace(sign, 1, "\xC2\xAE");
            }
            if (!line.empty()) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    std::set<std::string> texts;

private:
    std::filesystem::path root_;
};

bool IsPlaceholder(const std::string& name) {
    const auto isCapital = [](char letter) { return letter >= 'A' && letter <= 'Z'; };
    return name == "true" || name == "false" ||
           (!name.empty() && std::ranges::all_of(name, isCapital));
}

// Every line, with the conversions of the sources.
std::vector<std::string> Formats() {
    std::vector<std::string> formats;
    for (const Message& message : Messages()) {
        for (const reader::Verdict& verdict : message.verdicts) {
            formats.push_back(std::string(message.text) + std::string(verdict.text));
        }
        if (message.verdicts.empty()) {
            formats.emplace_back(message.text);
        }
    }
    return formats;
}

TEST_F(EveryText, OfTheSourcesIsKnownToTheReader) {
    for (const std::string& text : texts) {
        const bool known = std::ranges::any_of(Messages(), [&](const Message& message) {
            const std::string opening(message.text);
            return IsWrittenBy(opening, text) ||
                   std::ranges::any_of(message.verdicts, [&](const reader::Verdict& verdict) {
                       const std::string ending(verdict.text);
                       return IsWrittenBy(ending, text) || IsWrittenBy(opening + ending, text);
                   });
        });
        EXPECT_TRUE(known) << "a text that is not in messages.cpp, or a name that is not among "
                              "NoTexts: \""
                           << text << '"';
    }
}

TEST_F(EveryText, OfTheReaderIsInTheSources) {
    const auto written = [&](const std::string& part) {
        return std::ranges::any_of(
            texts, [&](const std::string& text) { return IsWrittenBy(part, text); });
    };
    for (const Message& message : Messages()) {
        const std::string opening(message.text);
        for (const reader::Verdict& verdict : message.verdicts) {
            const std::string ending(verdict.text);
            EXPECT_TRUE((written(opening) && written(ending)) || written(opening + ending))
                << opening << ending;
        }
        EXPECT_TRUE(!message.verdicts.empty() || written(opening)) << opening;
    }
}

TEST_F(EveryText, IsInTheDocumentationWithNamesInCapitals) {
    const std::vector<std::string> lines = DocumentedLines();
    for (const std::string& format : Formats()) {
        const bool documented = std::ranges::any_of(lines, [&](const std::string& line) {
            const auto names = Match(format, line);
            return names && std::ranges::all_of(*names, &IsPlaceholder);
        });
        EXPECT_TRUE(documented) << "no line in a fence of docs/log.md: " << format;
    }
}

TEST_F(EveryText, OfTheDocumentationIsOneThatTheProgramWrites) {
    for (const std::string& line : DocumentedLines()) {
        const reader::Report report = reader::ReadLog("FIRST RUN - START\n" + line + '\n');
        for (const reader::Section& section : report.sections) {
            for (const reader::Item& item : section.items) {
                EXPECT_NE(item.kind, reader::Kind::Unknown) << line;
            }
        }
    }
}

TEST_F(EveryText, OfTheAnnotatedLogsIsThatOfARealRun) {
    EXPECT_EQ(DocumentedLines("A first installation"), KeptLog("first-installation.log"));
    EXPECT_EQ(DocumentedLines("A reinstallation"), KeptLog("reinstallation.log"));
    EXPECT_EQ(DocumentedLines("An insecure machine"), KeptLog("insecure-machine.log"));
    EXPECT_THAT(KeptLog("insecure-machine.log"), Not(IsEmpty()));
}

}  // namespace
