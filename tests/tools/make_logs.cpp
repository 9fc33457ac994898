// Writes logs like those of a rollout, and their expected findings.
//
//   make_logs DIRECTORY SOURCES COUNT
//
// The logs go below DIRECTORY/logs, in directories by Windows version; of a thousand or more some
// are huge. DIRECTORY/expected has a line for each number: how many logs are read, in order, need
// attention and are unreadable, then how many have which finding, with its reason after a tab.

#include "support/file_contents.h"
#include "support/log_texts.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t Many = 1000;
constexpr std::size_t Huge = 200'000'000;

const std::string NoStartAfterStop =
    "Starting NAME....start failed!\tIt was stopped and does not start again.";
const std::string NoStartWithoutStop =
    "Starting NAME....start failed!\tIt did not stop before either: it runs on as it was, or is "
    "not "
    "installed, or the program had no right to it.";
const std::string NoStop =
    "Stopping NAME....stop failed!\tIt did not start later either: it runs on as it was, or is not "
    "installed, or the program had no right to it.";
const std::string Link =
    "Verifying Children Files of Directory PATH has NO links - Failure\tOne of its entries is a "
    "link. Nothing was configured after this.";
const std::string Insecure =
    "Security Vulnerability Securing Directories due to Failure Setting ACLs or Links Detected - "
    "Uninstalling\tThe product's directories are not secure. No service was started.";
const std::string NoTask =
    "Creating Task Name [NAME] for Process [PATH].... FAILED\tThe task is not scheduled.";
const std::string NoVerdict =
    "Starting NAME....\tThere is no verdict: the run, or this step, was cut off here.";
const std::string NoEnd = "The log's end is missing: the run, or its capture, was cut off.\t";
const std::string NoBeginning = "The log's beginning is missing.\t";

std::string Replaced(std::string log, const std::string& from, const std::string& to) {
    const std::size_t at = log.find(from);
    if (at == std::string::npos) {
        throw std::runtime_error("the log has no " + from);
    }
    return log.replace(at, from.size(), to);
}

std::string Before(const std::string& log, const std::string& text) {
    return log.substr(0, log.find(text));
}

std::string Utf16(std::string_view log) {
    std::string bytes = "\xFF\xFE";
    for (const char character : log) {
        bytes += {character, '\0'};
    }
    return bytes;
}

std::string Repeated(const std::string& text, std::size_t size) {
    std::string repeated;
    repeated.reserve(size + text.size());
    while (repeated.size() < size) {
        repeated += text;
    }
    return repeated;
}

struct Kind {
    std::function<std::string()> log;
    std::vector<std::string> findings{};
    bool readable = true;
};

// What every hundred has, and what exists once.
std::vector<Kind> Kinds(const std::filesystem::path& kept) {
    std::string first = test::FileText(kept / "first-installation.log").value();
    std::string later = test::FileText(kept / "reinstallation.log").value();
    std::string insecure = test::FileText(kept / "insecure-machine.log").value();
    const std::string ardex = "Starting Ardex....";
    std::string withoutArdex = Replaced(later, ardex + "started", ardex + "start failed!");
    return {
        {[=] { return first; }},
        {[=] { return later; }},
        {[=] { return withoutArdex; }, {NoStartAfterStop}},
        {[=] { return Replaced(first, ardex + "started", ardex + "start failed!"); },
         {NoStartWithoutStop, NoStop}},
        {[=] {
             return Replaced(withoutArdex, "Starting Tarsel Metrics Service....started",
                             "Starting Tarsel Metrics Service....start failed!");
         },
         {NoStartAfterStop}},
        {[=] { return insecure; }, {Link, Insecure}},
        {[=] { return Before(later, "SecureFilesDirectories"); }, {NoEnd}},
        {[=] { return Before(later, "started\r\nStarting Tarsel Metrics"); }, {NoVerdict, NoEnd}},
        {[=] { return Replaced(later, "FIRST RUN - START", ""); }, {NoBeginning}},
        {[=] {
             return Replaced(first, ".exe]....\n     ====> SUCCESS",
                             ".exe]....\n     ====> CreateScheduledTask:[_com_error] Exception "
                             "0x80070005, (null), Zugriff verweigert.\n     ====> FAILED");
         },
         {NoTask}},
        {[=] {
            return Replaced(later, "Setting DACLs on File", "\x01\xFFtting DACLs on Fi\x02e");
        }},
        {[=] { return Utf16(later); }},
        {[=] { return Utf16(withoutArdex); }, {NoStartAfterStop}},
        {[=] { return withoutArdex + first; }},
        {[=] { return later + insecure; }, {Link, Insecure}},
        {[] { return std::string(); }, {}, false},
        {[=] { return Before(first, "FIRST RUN"); }, {}, false},
        {[] { return std::string("MZ\x90\0\x03\0\0\0\x04\0\0\0\xFF\xFF", 14); }, {}, false},
        {[] { return std::string("Volume in drive C has no label.\r\n"); }, {}, false},
    };
}

std::vector<Kind> HugeKinds(const std::filesystem::path& kept) {
    std::string first = test::FileText(kept / "first-installation.log").value();
    std::string insecure = test::FileText(kept / "insecure-machine.log").value();
    return {
        {[=] { return Repeated(first, Huge) + insecure; }, {Link, Insecure}},
        {[=] { return Repeated(insecure, Huge) + first; }},
        {[] { return test::LogBegin + Repeated("of the companion\r\n", Huge) + test::LogEnd; },
         {},
         false},
        {[] { return std::string(Huge, '\xCC'); }, {}, false},
    };
}

void Write(const std::filesystem::path& directory, const std::filesystem::path& sources,
           std::size_t count) {
    const std::filesystem::path kept = sources / "tests/tools/logs";
    const std::vector<Kind> kinds = Kinds(kept);
    const std::vector<Kind> hugeKinds = count < Many ? std::vector<Kind>() : HugeKinds(kept);
    std::map<std::string, std::size_t> sum = {
        {"read", 0}, {"in order", 0}, {"needing attention", 0}, {"not readable", 0}};
    std::map<std::string, std::size_t> findings;
    for (std::size_t index = 0; index < count; ++index) {
        const Kind& kind =
            index < hugeKinds.size() ? hugeKinds[index] : kinds[index * index / 7 % kinds.size()];
        constexpr const char* Versions[] = {"win10-22H2", "win11-23H2", "win11-24H2"};
        test::PutFile(directory / "logs" / Versions[index % 3] /
                          ("PC-" + std::to_string(10'000 + index) + ".log"),
                      kind.log());
        ++sum[kind.readable ? "read" : "not readable"];
        if (kind.readable) {
            ++sum[kind.findings.empty() ? "in order" : "needing attention"];
        }
        for (const std::string& finding : kind.findings) {
            ++findings[finding];
        }
    }
    std::ostringstream expected;
    for (const char* name : {"read", "in order", "needing attention", "not readable"}) {
        expected << sum[name] << '\t' << name << '\n';
    }
    for (const auto& [finding, logs] : findings) {
        expected << logs << '\t' << finding << '\n';
    }
    test::PutFile(directory / "expected", expected.str());
}

}  // namespace

#ifdef _WIN32
int wmain(int argumentCount, wchar_t* arguments[]) {
#else
int main(int argumentCount, char* arguments[]) {
#endif
    if (argumentCount != 4) {
        return 2;
    }
    Write(arguments[1], arguments[2], std::stoul(arguments[3]));
    return 0;
}
