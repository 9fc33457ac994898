// Runs the program on a machine with the product installed and in use, and shows the machine
// before, the log as it comes, the machine after, and whether that is in order.
//
//   show_run DEVICE TRACE [--keep] [OPTION...]
//
// Everything goes to DEVICE, the path of a character device: the C runtime writes each piece of the
// log there at once, but would buffer it for a file. TRACE is the path of the file with the trace
// of Wine's server, from which the requested access control lists are read: a file's resulting list
// is made up by Wine. With --keep the product stays installed, and in use as the program left it.
// The options are the program's.

#include "machine/machine.h"
#include "proc/process_lists.h"
#include "support/file_contents.h"

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using test::MachineState;
using test::ServiceDescription;

constexpr int NameWidth = 38;
constexpr int ValueWidth = 24;
constexpr std::chrono::seconds QuitLimit{5};

class Device {
public:
    explicit Device(const wchar_t* path) {
        SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
        handle_ = ::CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                &inheritable, OPEN_EXISTING, 0, nullptr);
    }
    [[nodiscard]] HANDLE Get() const { return handle_; }

    void Line(const std::wstring& text = {}) const {
        const std::wstring line = text + L"\r\n";
        char bytes[1024];
        const int length =
            ::WideCharToMultiByte(CP_UTF8, 0, line.data(), static_cast<int>(line.size()), bytes,
                                  sizeof(bytes), nullptr, nullptr);
        DWORD written = 0;
        ::WriteFile(handle_, bytes, static_cast<DWORD>(length), &written, nullptr);
    }

private:
    HANDLE handle_ = nullptr;
};

std::wstring Padded(std::wstring text, std::size_t width) {
    text.resize(std::max(text.size() + 1, width), L' ');
    return text;
}

std::wstring StartTypeName(DWORD startType) {
    switch (startType) {
        case SERVICE_AUTO_START:
            return L"automatic";
        case SERVICE_DEMAND_START:
            return L"manual";
        case SERVICE_DISABLED:
            return L"disabled";
        default:
            return L"start type " + std::to_wstring(startType);
    }
}

std::wstring StateName(DWORD state) {
    switch (state) {
        case SERVICE_STOPPED:
            return L"stopped";
        case SERVICE_START_PENDING:
            return L"start-pending";
        case SERVICE_STOP_PENDING:
            return L"stop-pending";
        case SERVICE_RUNNING:
            return L"running";
        default:
            return L"state " + std::to_wstring(state);
    }
}

std::wstring Wide(const std::string& text) {
    return {text.begin(), text.end()};
}

// One line of the table: a name, and what belongs to it.
struct Row {
    std::wstring section;
    std::wstring name;
    std::wstring value;
};

std::vector<Row> Rows(const MachineState& state, const std::set<std::wstring>& settingNames,
                      const std::set<std::wstring>& dataFileNames) {
    std::vector<Row> rows;
    for (const std::wstring& name : test::ProductServices()) {
        const ServiceDescription& service = state.services.at(name);
        rows.push_back({L"Services", name,
                        Padded(StartTypeName(service.startType), 11) + StateName(service.state)});
    }
    for (const auto* list : {&StopList, &StartList}) {
        for (const auto& [kind, name, extra] : *list) {
            if (kind != EntryKind::Service) {
                const auto running = std::ranges::count(state.applications, name);
                rows.push_back({L"Applications", name, running > 0 ? L"running" : L"not running"});
            }
        }
    }
    for (const std::wstring& name : dataFileNames) {
        const auto file = state.dataFiles.find(name);
        rows.push_back(
            {L"Files", name, file == state.dataFiles.end() ? L"absent" : Wide(file->second)});
    }
    rows.push_back(
        {L"Settings", L"HKLM\\SOFTWARE\\Halvane\\SAP", state.staleKey ? L"a key" : L"absent"});
    rows.push_back({L"Settings", L"Tarsel_HWConfig",
                    state.hardwareBitmask ? std::to_wstring(*state.hardwareBitmask) : L"absent"});
    for (const std::wstring& name : settingNames) {
        const auto setting = state.settings.find(name);
        rows.push_back(
            {L"Settings", name, setting == state.settings.end() ? L"absent" : setting->second});
    }
    std::vector<std::wstring> tasks = test::ProductTasks();
    tasks.emplace_back(L"Tarsel Lumetra Startup Task");
    for (const std::wstring& name : tasks) {
        const auto scheduled = std::ranges::count(state.tasks, name);
        rows.push_back({L"Scheduled tasks", name, scheduled > 0 ? L"scheduled" : L"absent"});
    }
    return rows;
}

void ShowTable(const Device& device, const std::wstring& title, const std::vector<Row>& before,
               const std::vector<Row>& after) {
    device.Line(L"== " + title);
    std::wstring section;
    for (std::size_t index = 0; index < before.size(); ++index) {
        const Row& row = before[index];
        if (row.section != section) {
            section = row.section;
            device.Line(section);
        }
        const std::wstring& now = after[index].value;
        const std::wstring change =
            now == row.value ? row.value : Padded(row.value, ValueWidth) + L"\u2192 " + now;
        device.Line(L"  " + Padded(row.name, NameWidth) + change);
    }
    device.Line();
}

template <typename Value>
std::set<std::wstring> Names(const std::map<std::wstring, Value>& before,
                             const std::map<std::wstring, Value>& after) {
    std::set<std::wstring> names;
    for (const auto* values : {&before, &after}) {
        for (const auto& [name, value] : *values) {
            names.insert(name);
        }
    }
    return names;
}

// A requested entry of an access control list.
struct AccessEntry {
    std::string mask;
    std::string trustee;
};

// The protected access control lists that the server was asked to set, by the directory's name
// below the drive, from its trace: the directory's explicit entries.
std::vector<std::pair<std::string, std::vector<AccessEntry>>> AccessListsAskedFor(
    const std::filesystem::path& trace) {
    const std::regex named(R"(get_handle_unix_name\(\) = 0 .*name="[^"]*/drive_c/([^"]*)\")");
    const std::regex ace(R"(\{type=ACCESS_ALLOWED,flags=3,mask=([0-9a-f]+),sid=([-S0-9]+)\})");
    std::vector<std::pair<std::string, std::vector<AccessEntry>>> lists;
    std::ifstream lines(trace);
    std::string directory;
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_search(line, match, named)) {
            directory = match[1];
        } else if (line.find("set_security_object( ") != std::string::npos &&
                   line.find("security_info=80000004") != std::string::npos) {
            std::vector<AccessEntry>& list = lists.emplace_back(directory, 0).second;
            for (std::sregex_iterator entry(line.begin(), line.end(), ace), end; entry != end;
                 ++entry) {
                list.push_back({(*entry)[1], (*entry)[2]});
            }
        }
    }
    return lists;
}

void ShowAccessLists(const Device& device, const std::filesystem::path& trace) {
    const std::map<std::string, std::wstring> trustees = {{"S-1-5-32-544", L"Administrators"},
                                                          {"S-1-5-18", L"Local System"},
                                                          {"S-1-5-32-545", L"Users"}};
    const std::map<std::string, std::wstring> rights = {{"10000000", L"everything"},
                                                        {"a0000000", L"read and run"}};
    device.Line(L"Access lists asked for");
    for (const auto& [directory, entries] : AccessListsAskedFor(trace)) {
        std::wstring list;
        for (const AccessEntry& entry : entries) {
            list += (list.empty() ? L"" : L"; ") + trustees.at(entry.trustee) + L": " +
                    rights.at(entry.mask);
        }
        device.Line(L"  " + Padded(Wide(directory), NameWidth) + list);
    }
    device.Line();
}

// With the requested access control lists: Wine makes up those that are read.
void ShowVerdict(const Device& device, test::Machine& machine, const std::filesystem::path& trace,
                 const std::wstring& options) {
    std::string lists;
    for (const auto& [directory, entries] : AccessListsAskedFor(trace)) {
        std::string path = "C:\\" + directory;
        std::ranges::replace(path, '/', '\\');
        lists += path + "\tD:P";
        for (const AccessEntry& entry : entries) {
            lists += "(A;OICI;0x" + entry.mask + ";;;" + entry.trustee + ")";
        }
        lists += '\n';
    }
    const std::filesystem::path file = L"C:\\access lists asked for.txt";
    test::PutFile(file, lists);
    machine.InstallProgram(L"stand_in_verifier.exe", L"verifier.exe");
    device.Line(L"== finaset-verify.exe, with these access lists");
    test::RunToEnd(L"\"" + (machine.ProgramDirectory() / L"verifier.exe").wstring() + L"\" \"" +
                       file.wstring() + L"\" " + options,
                   device.Get());
    device.Line();
    machine.RemoveProgram(L"verifier.exe");
}

// This program's arguments from `first` on, as a command line.
std::wstring ProgramOptions(int argumentCount, wchar_t** arguments, int first) {
    std::wstring options;
    for (int index = first; index < argumentCount; ++index) {
        const std::wstring argument = arguments[index];
        const bool quoted = argument.empty() || argument.find(L' ') != std::wstring::npos;
        options += quoted ? L"\"" + argument + L"\" " : argument + L" ";
    }
    return options;
}

DWORD Show(test::Machine& machine, const Device& device, const std::filesystem::path& trace,
           const std::wstring& options) {
    machine.InstallProduct(L"--start-pending=300 --stop-pending=300");
    test::PutFile(test::Machine::ConfigurationDirectory() / L"user.xml", "the user's own");
    test::PutFile(test::Machine::DataDirectory() / L"ImageCache\\icons\\game.png", "an image");
    test::Machine::ScheduleTask(L"Tarsel Lumetra Startup Task");
    const Utils::KernelHandle application = machine.StartProduct();

    if (::GetEnvironmentVariableW(L"FINASET_ADAPTERS", nullptr, 0) == 0) {
        device.Line(L"No adapter can be made here: there may be none that the program looks for.");
    }
    const MachineState before = machine.Describe();
    const std::vector<Row> rowsBefore = Rows(before, Names(before.settings, before.settings),
                                             Names(before.dataFiles, before.dataFiles));
    ShowTable(device, L"The machine before", rowsBefore, rowsBefore);

    device.Line(L"== Finaset.exe" + (options.empty() ? options : L" " + options));
    ::SetEnvironmentVariableW(L"WINEDEBUG", L"-all,+server");
    const DWORD exitCode = machine.Run(options, device.Get());
    ::SetEnvironmentVariableW(L"WINEDEBUG", L"-all");
    device.Line();
    device.Line(L"== Exit code " + std::to_wstring(exitCode));
    device.Line();

    // The helper only posts the request: the application may need another moment.
    if (!machine.StartsOf(L"Quitline.exe").empty()) {
        test::Ended(application, QuitLimit);
    }
    const MachineState after = machine.Describe();
    const std::set<std::wstring> settings = Names(before.settings, after.settings);
    const std::set<std::wstring> files = Names(before.dataFiles, after.dataFiles);
    ShowTable(device, L"The machine after, with what was before where it differs",
              Rows(before, settings, files), Rows(after, settings, files));
    ShowAccessLists(device, trace);
    ShowVerdict(device, machine, trace, options);
    return exitCode;
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
    if (argumentCount < 3) {
        return 2;
    }
    const Device device(arguments[1]);
    const bool keep = argumentCount > 3 && std::wstring(arguments[3]) == L"--keep";
    try {
        auto machine = std::make_unique<test::Machine>();
        const DWORD exitCode = Show(*machine, device, arguments[2],
                                    ProgramOptions(argumentCount, arguments, keep ? 4 : 3));
        if (keep) {
            // Services run only as long as an ordinary program does.
            machine->InstallProgram(L"stand_in_companion.exe", L"KeepsTheMachineUp.exe");
            machine->StartBackgroundProgram(L"KeepsTheMachineUp.exe");
            static_cast<void>(machine.release());  // never taken down
        }
        return static_cast<int>(exitCode);
    } catch (const std::exception& error) {
        const std::string reason = error.what();
        device.Line(L"show_run: " + Wide(reason));
        return 1;
    }
}
