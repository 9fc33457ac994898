#include "log_reader/messages.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace reader {

namespace {

constexpr Verdict Quit[] = {
    {" application not found!", Outcome::Absent},
    {" Process %ls Started in context of %ls application to send QUIT Message - Success=True",
     Outcome::Done},
    {" Process %ls Started in context of %ls application to send QUIT Message - Success=False",
     Outcome::Failed},
};
constexpr Verdict Stopped[] = {{"stopped", Outcome::Done}, {"stop failed!", Outcome::Failed}};
constexpr Verdict Started[] = {{"started", Outcome::Done}, {"start failed!", Outcome::Failed}};
constexpr Verdict Disabled[] = {{"Disabled", Outcome::Done}, {"Disable  failed!", Outcome::Failed}};
constexpr Verdict Success[] = {{"Success", Outcome::Done}, {"Failure", Outcome::Failed}};
constexpr Verdict TaskSuccess[] = {{"SUCCESS", Outcome::Done}, {"FAILED", Outcome::Failed}};
constexpr Verdict Ended[] = {{"True)", Outcome::Done}, {"False)", Outcome::Failed}};
constexpr Verdict Uninstalling[] = {{" - Uninstalling", Outcome::Plain}};

// A text that begins like another comes before it.
constexpr Message Table[] = {
    {Kind::RunBegins, "FIRST RUN - START"},
    {Kind::RunEnds, "FIRST RUN - FINISHED"},
    {Kind::Usage, "%ls [/<Option>]"},
    {Kind::Usage, "       Option = /STOP  or  /CONFIGURE  or  /START  or  /DISABLE"},
    {Kind::Usage, "       No option means STOP then CONFIGURE then START"},

    {Kind::Heading, "Stopping Processes....."},
    {Kind::QuitApplication, "Stopping Application %ls....with Window Title %ls ", Quit},
    {Kind::StopService, "Stopping %ls....", Stopped},

    {Kind::EmptyHeading, "Setting Up Configuration Settings and Environment...."},
    {Kind::Heading, "Delete Registry Settings....."},
    {Kind::DeleteSetting, "Deleting Registry Setting %ls \t - \t", Success},
    {Kind::Heading, "CopyFiles....."},
    {Kind::DeleteFile, "Deleting File %ls \t - \t", Success},
    {Kind::CreateDirectory, "Creating Directory %ls \t - \t", Success},
    {Kind::CopyFile, "Copying File %ls -> %ls     overwriting =%ls\t - \t", Success},
    {Kind::Heading, "SecureFilesDirectories....."},
    {Kind::CheckPath, "Verifying File/Directory %ls has NO links\t - \t", Success},
    {Kind::CheckChildren, "Verifying Children Files of Directory %ls has NO links\t - \t", Success},
    {Kind::SetAccess, "Setting DACLs on File/Directory %ls \t - \t", Success},
    {Kind::ResetChildren, "Setting Child Inheritance DACLs on File/Directory %ls \t - \t", Success},
    {Kind::Heading, "Uninstalling Product....."},
    {Kind::UninstallMissing, "First Run - %ls  DOES NOT EXIST"},
    {Kind::UninstallBegins, "First Run - Starting %ls Process"},
    {Kind::UninstallEnds, "First Run - Process %ls Ended (", Ended},
    {Kind::Insecure,
     "Security Vulnerability Securing Directories due to Failure Setting ACLs or Links Detected",
     Uninstalling},
    {Kind::EmptyHeading, "Write Registry Settings....."},
    {Kind::WriteSetting, "Writing Registry Setting %ls \t - \t", Success},
    {Kind::EmptyHeading, "Computing Tarsel HW Bitmask"},
    {Kind::FoundAdapter, "Found Adapter %ls to configure  Bitmask 0x%lx"},
    {Kind::AdapterError, "Error allocating memory needed to call GetAdaptersAddresses"},
    {Kind::AdapterError, "GetAdaptersInfo failed with error: %lu"},
    {Kind::EmptyHeading, "Enabling Features by Tarsel HW Bitmask"},
    {Kind::WriteFeature, "Writing Registry Setting %ls"},
    {Kind::Heading, "Scheduling Tasks....."},
    {Kind::CreateTask, "   Creating Task Name [%ls] for Process [%ls]...."},
    {Kind::DeleteTask, "   Deleting Task Name [%ls]...."},
    {Kind::TaskError, "     ====> %ls:[_com_error] Exception 0x%08x, %ls, %ls"},
    {Kind::NoSuchTask, "     ====> DeleteScheduledTask:[ERROR] %ls GetLastError 0x%08x"},
    {Kind::TaskResult, "     ====> ", TaskSuccess},

    {Kind::Heading, "Starting Processes....."},
    {Kind::StartApplication, "Starting Application %ls with command line %ls....", Started},
    {Kind::StartService, "Starting %ls....", Started},

    {Kind::Heading, "Disabling Processes...."},
    {Kind::DisableService, "Disabling Service %ls....", Disabled},
};

std::optional<Names> MatchPieces(std::span<const std::string_view> pieces, std::string_view line) {
    const std::string_view first = pieces.front();
    const std::string_view last = pieces.back();
    if (pieces.size() == 1) {
        return line == first ? std::optional(Names()) : std::nullopt;
    }
    if (pieces.size() > Names::Most + 1 || !line.starts_with(first) || !line.ends_with(last) ||
        line.size() < first.size() + last.size()) {
        return std::nullopt;
    }
    line.remove_prefix(first.size());
    line.remove_suffix(last.size());
    // From the end: a name may contain text that looks like what follows it.
    Names names(pieces.size() - 1);
    for (std::size_t index = pieces.size() - 2; index > 0; --index) {
        const std::size_t at = line.rfind(pieces[index]);
        if (at == std::string_view::npos) {
            return std::nullopt;
        }
        names[index] = line.substr(at + pieces[index].size());
        line = line.substr(0, at);
    }
    names[0] = line;
    return names;
}

// A message with one of its verdicts, or without.
struct Form {
    std::string format;
    Kind kind;
    Outcome outcome;
    std::string_view verdict;
    std::vector<std::string_view> pieces{};  // of the format
};

// By the first character of a line, its possible messages, in order.
class FormsByFirst {
public:
    FormsByFirst() {
        for (const Message& message : Table) {
            for (const Verdict& verdict : message.verdicts) {
                // For a long verdict, its last word.
                forms_.push_back({std::string(message.text) + std::string(verdict.text),
                                  message.kind, verdict.outcome,
                                  verdict.text.substr(verdict.text.find_last_of('=') + 1)});
            }
            forms_.push_back({std::string(message.text),
                              message.kind,
                              message.verdicts.empty() ? Outcome::Plain : Outcome::Missing,
                              {}});
        }
        for (Form& form : forms_) {
            form.pieces = Pieces(form.format);
            const std::string_view first = form.pieces.front();
            for (std::size_t character = 0; character < byFirst_.size(); ++character) {
                if (first.empty() || static_cast<unsigned char>(first.front()) == character) {
                    byFirst_[character].push_back(&form);
                }
            }
        }
    }

    [[nodiscard]] const std::vector<const Form*>& Of(char first) const {
        return byFirst_[static_cast<unsigned char>(first)];
    }

private:
    static constexpr std::size_t Characters = 256;

    std::vector<Form> forms_;
    std::array<std::vector<const Form*>, Characters> byFirst_;
};

}  // namespace

std::span<const Message> Messages() {
    return Table;
}

std::vector<std::string_view> Pieces(std::string_view format) {
    std::vector<std::string_view> pieces;
    for (std::size_t at = format.find('%'); at != std::string_view::npos; at = format.find('%')) {
        pieces.push_back(format.substr(0, at));
        format.remove_prefix(std::min(format.find_first_of("csxu", at), format.size() - 1) + 1);
    }
    pieces.push_back(format);
    return pieces;
}

std::optional<std::vector<std::string>> Match(std::string_view format, std::string_view line) {
    const std::optional<Names> names = MatchPieces(Pieces(format), line);
    return names ? std::optional(std::vector<std::string>(names->begin(), names->end()))
                 : std::nullopt;
}

std::optional<Line> Recognise(std::string_view line) {
    static const FormsByFirst Forms;
    if (line.empty()) {
        return std::nullopt;
    }
    for (const Form* form : Forms.Of(line.front())) {
        const std::string_view last = form->pieces.back();
        if (!last.empty() && last.back() != line.back()) {
            continue;  // the end differs the most
        }
        if (const std::optional<Names> names = MatchPieces(form->pieces, line)) {
            return Line{form->format, form->kind, form->outcome, form->verdict, *names};
        }
    }
    return std::nullopt;
}

}  // namespace reader
