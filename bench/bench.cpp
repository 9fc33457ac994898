// Measures the program and what it is compared with, on the machine that this runs on, as standard
// input says:
//
//   bring PATH                                    moves it to C:\files
//   measure ENTRIES TURNS MS LIMIT-MS GROUP       the group's turns, none started after MS
//
// Each line is answered by "done", or by "failed" and a reason; "ready" comes before the first. The
// figures come before that, in lines of "figure GROUP,SUBJECT,ENTRIES,MEASURE,VALUE", as soon as
// they are known. The subjects of a group take turns.
//
// C:\files must have the directories flat-N and tree-N with N entries each before "configure flat"
// and the like are measured with N entries, and steps.cmd and steps.exe, which do the program's
// work with the system's own tools, before "tools configure" and "tools all".

#include "machine/machine.h"
#include "shared/owner.h"
#include "support/end_process.h"
#include "support/file_contents.h"
#include "support/installed_service.h"
#include "tasks/task_table.h"

#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Utils::KernelHandle;

const std::filesystem::path Files = L"C:\\files";

constexpr DWORD SamplingMs = 20;      // during a timed run
constexpr DWORD FineSamplingMs = 1;   // during a short run that is not timed
constexpr DWORD NoSampling = 60'000;  // during a short timed run
constexpr int ManyEntries = 10'000;

// Of a run, including the processes that it starts.
struct Measured {
    double milliseconds = 0;
    SIZE_T peakBytes = 0;  // of their memory together
    DWORD processes = 0;
};

// The processes of a job, at one moment.
SIZE_T WorkingSetsOf(HANDLE job) {
    struct {
        JOBOBJECT_BASIC_PROCESS_ID_LIST list;
        ULONG_PTR more[62];
    } ids = {};
    if (!::QueryInformationJobObject(job, JobObjectBasicProcessIdList, &ids, sizeof(ids),
                                     nullptr)) {
        return 0;
    }
    SIZE_T sum = 0;
    for (DWORD index = 0; index < ids.list.NumberOfProcessIdsInList; ++index) {
        const KernelHandle process(
            ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE,
                          static_cast<DWORD>(ids.list.ProcessIdList[index])));
        PROCESS_MEMORY_COUNTERS counters = {};
        if (process && ::GetProcessMemoryInfo(process.Get(), &counters, sizeof(counters))) {
            sum += counters.PeakWorkingSetSize;
        }
    }
    return sum;
}

struct Subject {
    std::string name;
    std::wstring commandLine;
    bool mayFail = false;
};

// Runs a program to its end, with its output in a file, and samples its memory. Throws if it does
// not end within `limitMs`, or fails.
Measured Run(const Subject& subject, DWORD limitMs, DWORD samplingMs) {
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    const KernelHandle output(::CreateFileW(L"bench.log", GENERIC_WRITE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                            CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.Get();
    startup.hStdError = output.Get();
    const KernelHandle job(::CreateJobObjectW(nullptr, nullptr));
    PROCESS_INFORMATION info = {};
    LARGE_INTEGER start = {};
    LARGE_INTEGER end = {};
    LARGE_INTEGER frequency = {};
    ::QueryPerformanceFrequency(&frequency);
    std::wstring commandLine = subject.commandLine;

    ::QueryPerformanceCounter(&start);
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE,
                          DETACHED_PROCESS | CREATE_SUSPENDED, nullptr, nullptr, &startup, &info)) {
        throw std::runtime_error(subject.name + " cannot be started, error " +
                                 std::to_string(::GetLastError()));
    }
    const KernelHandle process(info.hProcess);
    const KernelHandle thread(info.hThread);
    ::AssignProcessToJobObject(job.Get(), process.Get());
    ::ResumeThread(thread.Get());
    Measured measured;
    const ULONGLONG giveUp = ::GetTickCount64() + limitMs;
    while (::WaitForSingleObject(process.Get(), std::min(samplingMs, limitMs)) == WAIT_TIMEOUT) {
        measured.peakBytes = std::max(measured.peakBytes, WorkingSetsOf(job.Get()));
        if (::GetTickCount64() >= giveUp) {
            test::EndProcess(info.dwProcessId);
            throw std::runtime_error(subject.name + " did not end within " +
                                     std::to_string(limitMs / 1000) + " seconds");
        }
    }
    ::QueryPerformanceCounter(&end);

    DWORD exitCode = 0;
    ::GetExitCodeProcess(process.Get(), &exitCode);
    if (exitCode != 0 && !subject.mayFail) {
        throw std::runtime_error(subject.name + " exited with code " + std::to_string(exitCode));
    }
    measured.milliseconds = 1000.0 * static_cast<double>(end.QuadPart - start.QuadPart) /
                            static_cast<double>(frequency.QuadPart);
    JOBOBJECT_BASIC_ACCOUNTING_INFORMATION accounting = {};
    ::QueryInformationJobObject(job.Get(), JobObjectBasicAccountingInformation, &accounting,
                                sizeof(accounting), nullptr);
    measured.processes = accounting.TotalProcesses;
    return measured;
}

class Bench {
public:
    Bench() {
        std::filesystem::create_directories(Files);
        machine_.InstallProduct(L"--start-pending=100");
        machine_.InstallProgram(L"bare_program.exe", L"bare.exe");
        machine_.InstallProgram(L"libraries_program.exe", L"libraries.exe");
        machine_.InstallProgram(L"empty_program.exe", L"empty.exe");
        machine_.InstallProgram(L"search_program.exe", L"search.exe");
        machine_.InstallProgram(L"without_lists.exe", L"without_lists.exe");
        machine_.InstallProgram(L"finaset-verify.exe", L"finaset-verify.exe");
    }

    // Carries out a line.
    void Obey(const std::string& line) {
        std::istringstream words(line);
        std::string verb;
        words >> verb;
        if (verb == "bring") {
            std::string path;
            std::getline(words >> std::ws, path);
            std::filesystem::rename(path, Files / std::filesystem::path(path).filename());
            return;
        }
        int entries = 0;
        DWORD milliseconds = 0;
        words >> entries >> turns_ >> milliseconds >> runLimitMs_;
        std::getline(words >> std::ws, group_);
        const auto measure = groups_.find(group_);
        if (verb != "measure" || measure == groups_.end()) {
            throw std::runtime_error("nobody knows how to " + line);
        }
        end_ = ::GetTickCount64() + milliseconds;
        (this->*measure->second)(entries);
    }

private:
    using Measure = void (Bench::*)(int entries);

    // Starting, with nothing to do.
    void Usage(int /*entries*/) {
        const std::vector<Subject> subjects = {
            Program("Finaset", L"Finaset.exe", L"/?"), Program("bare", L"bare.exe", L"/?"),
            Program("libraries", L"libraries.exe", L""), Program("empty", L"empty.exe", L"")};
        TakeTurns(subjects, 0, NoSampling);
        TakeSamples(subjects, 0);
    }

    // A data directory with many entries.
    void Configure(int entries) {
        const std::string shape = group_.substr(group_.find(' ') + 1);
        machine_.WriteTextSetting(L"ImageCacheDirectory",
                                  Files / (shape + "-" + std::to_string(entries)));
        TakeTurns({Program("Finaset", L"Finaset.exe", L"/CONFIGURE"),
                   Program("bare", L"bare.exe", L"/CONFIGURE")},
                  entries);
        machine_.RemoveSetting(L"ImageCacheDirectory");
    }

    // Verifying such a directory once it is configured.
    void Verify(int entries) {
        machine_.WriteTextSetting(L"ImageCacheDirectory",
                                  Files / (L"flat-" + std::to_wstring(entries)));
        Subject verify = Program("verify", L"finaset-verify.exe", L"/CONFIGURE");
        verify.mayFail = true;  // Wine invents access control lists
        TakeTurns({Program("Finaset", L"Finaset.exe", L"/CONFIGURE"), verify}, entries);
        machine_.RemoveSetting(L"ImageCacheDirectory");
    }

    // The platform's memory for the entries of a directory.
    void Search(int entries) {
        TakeSamples({Program("search", L"search.exe",
                             L"C:\\files\\flat-" + std::to_wstring(entries) + L"\\*")},
                    entries);
    }

    // A shipped file of any size.
    void FileSize(int kilobytes) {
        test::PutFile(test::Machine::DriverDirectory() / L"oem.xml", "");
        std::filesystem::resize_file(test::Machine::DriverDirectory() / L"oem.xml",
                                     static_cast<std::uintmax_t>(kilobytes) * 1024);
        TakeSamples({Program("Finaset", L"Finaset.exe", L"/CONFIGURE")}, kilobytes);
        machine_.InstallShippedFiles();
    }

    // Eight services are stopped, and four started.
    void Services(int /*entries*/) {
        Repeat(0, [&](bool /*counts*/) {
            for (const wchar_t* program : {L"Finaset.exe", L"bare.exe"}) {
                const std::string name = *program == L'F' ? "Finaset" : "bare";
                StartServices();
                const Subject stop = Program(name, program, L"/STOP");
                const Subject start = Program(name, program, L"/START");
                Write("stop", name, 8, "ms", Run(stop, runLimitMs_, SamplingMs).milliseconds);
                Write("start", name, 4, "ms", Run(start, runLimitMs_, SamplingMs).milliseconds);
            }
        });
    }

    // The program's work, done with the system's own tools.
    void Tools(int /*entries*/) {
        const bool all = group_ == "tools all";
        const std::wstring option = all ? L"" : L"/CONFIGURE";
        const std::wstring step = all ? L" all" : L" configure";
        PutTaskXml();
        const std::vector<Subject> subjects = {
            Program("Finaset", L"Finaset.exe", option),
            Program("without lists", L"without_lists.exe", option),
            {"cmd", L"C:\\windows\\system32\\cmd.exe /c " + (Files / L"steps.cmd").wstring() + step,
             /*mayFail=*/true},
            {"NSIS", (Files / L"steps.exe").wstring() + step, /*mayFail=*/true}};
        std::optional<test::MachineState> first;
        Repeat(0, [&](bool /*counts*/) {
            for (const Subject& subject : subjects) {
                if (all) {
                    StartServices();
                }
                UndoConfiguration();
                const Measured measured = Run(subject, runLimitMs_, SamplingMs);
                const test::MachineState state = StateAtRest();
                first = first ? first : state;
                Write(group_, subject.name, 0, "same state", IsSame(state, *first));
                Write(group_, subject.name, 0, "ms", measured.milliseconds);
                WriteMemory(subject, 0, measured);
                Write(group_, subject.name, 0, "processes", measured.processes);
            }
        });
    }

    Subject Program(const std::string& name, const std::wstring& fileName,
                    const std::wstring& option) {
        return {name, L"\"" + (machine_.ProgramDirectory() / fileName).wstring() + L"\" " + option};
    }

    void PutTaskXml() {
        std::wstring task = ScheduledTaskTable[0].taskXml;
        const std::wstring placeholder = L"##PROCESSNAME##";
        task.replace(task.find(placeholder), placeholder.size(),
                     machine_.ProgramDirectory() / ScheduledTaskTable[0].processName);
        task.insert(0, 1, L'\uFEFF');
        test::PutFile(machine_.ProgramDirectory() / L"task.xml",
                      {reinterpret_cast<const char*>(task.data()), task.size() * sizeof(wchar_t)});
    }

    void StartServices() {
        for (const std::wstring& name : test::ProductServices()) {
            if (machine_.Service(name).State() != SERVICE_RUNNING) {
                machine_.Service(name).Start();
            }
        }
    }

    // So that each run has everything to do.
    void UndoConfiguration() {
        machine_.WriteStaleSettings();
        machine_.WriteSetting(L"FirstRun", 1);
        std::filesystem::remove(test::Machine::ConfigurationDirectory() / L"oem.xml");
        std::filesystem::remove(L"C:\\windows\\system32\\tasks\\VxIdle Task");
    }

    // Of the machine once no service is starting or stopping.
    test::MachineState StateAtRest() {
        test::MachineState state = machine_.Describe();
        const auto isPending = [](const auto& service) {
            return service.second.state != SERVICE_RUNNING &&
                   service.second.state != SERVICE_STOPPED;
        };
        while (std::ranges::any_of(state.services, isPending)) {
            ::Sleep(SamplingMs);
            state = machine_.Describe();
        }
        return state;
    }

    static bool IsSame(const test::MachineState& one, const test::MachineState& other) {
        return one.services == other.services && one.settings == other.settings &&
               one.dataFiles == other.dataFiles && one.staleKey == other.staleKey &&
               one.tasks == other.tasks && one.hardwareBitmask == other.hardwareBitmask;
    }

    // Calls `turn` `turns_` times, but starts none that would not end in time. So many calls before
    // that do not count.
    template <typename Turn>
    void Repeat(int uncounted, Turn turn) {
        for (int index = -uncounted; index < turns_; ++index) {
            const ULONGLONG start = ::GetTickCount64();
            turn(index >= 0);
            const ULONGLONG now = ::GetTickCount64();
            if (index >= 0 && now + (now - start) > end_) {
                break;
            }
        }
    }

    // First each once, uncounted, if that is short; then in turns, in reverse order every second
    // time.
    void TakeTurns(std::vector<Subject> subjects, int entries, DWORD samplingMs = SamplingMs) {
        Repeat(entries > ManyEntries ? 0 : 1, [&](bool counts) {
            for (const Subject& subject : subjects) {
                machine_.WriteStaleSettings();
                const Measured measured = Run(subject, runLimitMs_, samplingMs);
                if (counts) {
                    Write(group_, subject.name, entries, "ms", measured.milliseconds);
                    WriteMemory(subject, entries, measured);
                }
            }
            std::ranges::reverse(subjects);
        });
    }

    // For the memory of short runs, which are not timed.
    void TakeSamples(const std::vector<Subject>& subjects, int entries) {
        for (int run = 0; run < 5; ++run) {
            for (const Subject& subject : subjects) {
                WriteMemory(subject, entries, Run(subject, runLimitMs_, FineSamplingMs));
            }
        }
    }

    void WriteMemory(const Subject& subject, int entries, const Measured& measured) {
        if (measured.peakBytes != 0) {  // it may have ended before the first sample
            Write(group_, subject.name, entries, "peak KB",
                  static_cast<double>(measured.peakBytes) / 1024);
        }
    }

    static void Write(const std::string& group, const std::string& subject, int entries,
                      const char* measure, double value) {
        std::cout << "figure " << group << "," << subject << "," << entries << "," << measure << ","
                  << value << std::endl;
    }

    const std::map<std::string, Measure> groups_ = {
        {"usage", &Bench::Usage},
        {"configure flat", &Bench::Configure},
        {"configure tree", &Bench::Configure},
        {"verify configure flat", &Bench::Verify},
        {"search", &Bench::Search},
        {"file size", &Bench::FileSize},
        {"services", &Bench::Services},
        {"tools configure", &Bench::Tools},
        {"tools all", &Bench::Tools},
    };

    test::Machine machine_;
    std::string group_;
    int turns_ = 0;
    ULONGLONG end_ = 0;
    DWORD runLimitMs_ = 0;
};

}  // namespace

int wmain() {
    try {
        Bench bench;
        std::cout << "ready" << std::endl;
        for (std::string line; std::getline(std::cin, line);) {
            try {
                bench.Obey(line);
                std::cout << "done" << std::endl;
            } catch (const std::exception& error) {
                std::cout << "failed " << error.what() << std::endl;
            }
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "bench: " << error.what() << "\n";
        return 1;
    }
}
