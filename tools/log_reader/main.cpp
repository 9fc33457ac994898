// Reads captured logs of Finaset and says what in them needs attention.

#include "log_reader/find_logs.h"
#include "log_reader/judge.h"
#include "log_reader/read_file.h"
#include "log_reader/read_log.h"
#include "log_reader/rollout.h"
#include "log_reader/shown_name.h"
#include "log_reader/writers.h"

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#else
#include <unistd.h>
#endif

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iostream>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

constexpr int NeedsNothing = 0;
constexpr int NeedsAttention = 1;
constexpr int NotRead = 2;

constexpr char Usage[] =
    "usage: finaset-log [--json | --html] [FILE | DIRECTORY]...\n"
    "\n"
    "Reads the log of a Finaset run from FILE, or from standard input, and prints its sections\n"
    "and items, and which of them need attention. For several files, or all *.log below a\n"
    "directory, prints what is wrong on how many machines.\n"
    "\n"
    "  --json   for a program; several logs as JSON Lines, one for each log\n"
    "  --html   as a page for a browser\n"
    "\n"
    "Exit status: 0 nothing needs attention, 1 something does, or some logs cannot be read,\n"
    "2 no log can be read.\n";

using Path = std::filesystem::path;

enum class Form { Text, Json, Html };

int Fail(std::string_view what) {
    std::cerr << "finaset-log: " << what << '\n';
    return NotRead;
}

// Printed output may still be buffered, and fail to be written to a full disk.
int End(int status) {
    std::cout.flush();
    return std::cout ? status : Fail("the output cannot be written");
}

// ---- One log

std::string ReadAll(std::istream& input) {
    return {std::istreambuf_iterator<char>(input), {}};
}

// Reads standard input if there is no file.
std::string ReadInput(const Path& file) {
    if (!file.empty()) {
        std::ifstream input(file, std::ios::binary);
        if (!input) {
            throw reader::NotALog("it cannot be read");
        }
        return ReadAll(input);
    }
#ifdef _WIN32
    ::_setmode(::_fileno(stdin), _O_BINARY);
#endif
    return ReadAll(std::cin);
}

int ReadOne(const Path& file, Form form) {
    try {
        reader::Report report = reader::ReadLog(ReadInput(file));
        reader::Judge(report);
        std::cout << (form == Form::Json   ? reader::WriteJson(report)
                      : form == Form::Html ? reader::WriteHtml(report)
                                           : reader::WriteText(report));
        return End(reader::NeedsAttention(report) ? NeedsAttention : NeedsNothing);
    } catch (const reader::NotALog& reason) {
        return Fail((file.empty() ? "standard input" : reader::ShownName(file.filename())) + ": " +
                    reason.what());
    }
}

// ---- Many logs

// Shows progress on a terminal.
class Progress {
public:
    Progress() = default;
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { Clear(); }

    // Called before anything else is printed.
    void Clear() {
        if (shown_) {
            std::cerr << '\r' << std::string(Width, ' ') << '\r' << std::flush;
            shown_ = false;
        }
    }

    void Show(std::size_t logs) {
        const Clock::time_point now = terminal_ ? Clock::now() : next_;
        if (now > next_) {
            std::cerr << '\r' << logs << (logs == 1 ? " log" : " logs") << std::flush;
            shown_ = true;
            next_ = now + Interval;
        }
    }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds Patience{1};
    static constexpr std::chrono::milliseconds Interval{200};
    static constexpr std::size_t Width = 30;

#ifdef _WIN32
    bool terminal_ = ::_isatty(::_fileno(stderr)) != 0;
#else
    bool terminal_ = ::isatty(::fileno(stderr)) != 0;
#endif
    Clock::time_point next_ = Clock::now() + Patience;
    bool shown_ = false;
};

class ManyLogs {
public:
    explicit ManyLogs(Form form) : form_(form) {}

    void Read(const Path& argument) {
        std::error_code unknown;  // if it fails, it cannot be read either
        if (std::filesystem::is_directory(argument, unknown)) {
            reader::FindLogs(
                argument, [this](const Path& log) { ReadLog(log); },
                [this](const Path& path, std::string_view reason) { Complain(path, reason); });
        } else {
            ReadLog(argument);
        }
    }

    int Finish() {
        progress_.Clear();
        if (rollout_.Read() == 0 && rollout_.NotRead().empty()) {
            return Fail("there is no file *.log");
        }
        if (rollout_.Read() == 0) {
            for (const reader::Unreadable& log : rollout_.NotRead()) {
                Fail(log.path + ": " + log.reason);
            }
            return End(NotRead);
        }
        if (form_ == Form::Text) {
            reader::WriteText(std::cout, rollout_);
        } else if (form_ == Form::Html) {
            reader::WriteHtml(std::cout, rollout_);
        }
        return End(rollout_.NeedAttention() > 0 || !rollout_.NotRead().empty() ? NeedsAttention
                                                                               : NeedsNothing);
    }

private:
    void ReadLog(const Path& log) {
        try {
            reader::Report report = file_.Read(log);
            reader::Judge(report);
            const std::string name = reader::ShownName(log);
            rollout_.Add(name, report);
            if (form_ == Form::Json) {
                progress_.Clear();
                std::cout << reader::WriteJsonLine(name, report);
            }
        } catch (const reader::NotALog& reason) {
            Complain(log, reason.what());
        }
        progress_.Show(rollout_.Read() + rollout_.NotRead().size());
    }

    void Complain(const Path& path, std::string_view reason) {
        const std::string name = reader::ShownName(path);
        rollout_.AddUnreadable(name, reason);
        if (form_ == Form::Json) {
            progress_.Clear();
            std::cout << reader::WriteJsonLine(name, reason);
        }
    }

    Form form_;
    reader::FileReader file_{};
    reader::Rollout rollout_{};
    Progress progress_{};
};

int Run(const std::vector<Path>& arguments) {
    Form form = Form::Text;
    std::vector<Path> files;
    for (const Path& argument : arguments) {
        if (argument == "--help" || argument == "/?") {
            std::cout << Usage;
            return NeedsNothing;
        }
        if (argument == "--json") {
            form = Form::Json;
        } else if (argument == "--html") {
            form = Form::Html;
        } else if (argument.native().starts_with('-')) {
            return Fail(
                "it takes --json or --html, and files and directories; see finaset-log --help");
        } else {
            files.push_back(argument);
        }
    }
    std::error_code unknown;
    if (files.empty()) {
        return ReadOne({}, form);
    }
    if (files.size() == 1 && !std::filesystem::is_directory(files.front(), unknown)) {
        return ReadOne(files.front(), form);
    }
    ManyLogs logs(form);
    for (const Path& file : files) {
        logs.Read(file);
    }
    return logs.Finish();
}

}  // namespace

#ifdef _WIN32
int wmain(int argumentCount, wchar_t* arguments[]) {
#else
int main(int argumentCount, char* arguments[]) {
#endif
    try {
        return Run({arguments + 1, arguments + argumentCount});
    } catch (const std::bad_alloc&) {
        return Fail("there is not enough memory");
    }
}
