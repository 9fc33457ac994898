// Measures the program beside what it is to be measured by, on the machine that this runs on, and
// writes what it measured: lines of "group,subject,entries,measure,value".
//
//   bench RESULTS
//
// C:\files has directories flat-N and tree-N with N entries each, and steps.cmd and steps.exe,
// which do the program's work with the system's own tools. The subjects of a group take turns.

#include "machine/machine.h"
#include "shared/owner.h"
#include "support/end_process.h"
#include "support/file_contents.h"
#include "support/installed_service.h"
#include "tasks/task_table.h"

#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Utils::KernelHandle;

const std::filesystem::path Files = L"C:\\files";

constexpr DWORD SamplingMs = 20;     // beside a run that is timed
constexpr DWORD FineSamplingMs = 1;  // of a short one that is not
constexpr DWORD RunLimitMs = 180'000;
constexpr DWORD NoSampling = RunLimitMs;  // of a short one that is timed
constexpr int ManyEntries = 10'000;
constexpr ULONGLONG TurnsLimitMs = 360'000;

// Of a run, with the processes that it starts.
struct Measured {
    double milliseconds = 0;
    SIZE_T peakBytes = 0;  // of the memory that they have together
    DWORD processes = 0;
};

// The processes of a job, at a time.
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

// Runs a program to its end, with its output in a file, and takes samples of its memory.
Measured Run(std::wstring commandLine, DWORD samplingMs = SamplingMs) {
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

    ::QueryPerformanceCounter(&start);
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE,
                          DETACHED_PROCESS | CREATE_SUSPENDED, nullptr, nullptr, &startup, &info)) {
        throw std::runtime_error("a program cannot be started, error " +
                                 std::to_string(::GetLastError()));
    }
    const KernelHandle process(info.hProcess);
    const KernelHandle thread(info.hThread);
    ::AssignProcessToJobObject(job.Get(), process.Get());
    ::ResumeThread(thread.Get());
    Measured measured;
    DWORD waited = 0;
    while (::WaitForSingleObject(process.Get(), samplingMs) == WAIT_TIMEOUT) {
        measured.peakBytes = std::max(measured.peakBytes, WorkingSetsOf(job.Get()));
        waited += samplingMs;
        if (waited >= RunLimitMs) {
            test::EndProcess(info.dwProcessId);
            throw std::runtime_error("a program does not end");
        }
    }
    ::QueryPerformanceCounter(&end);

    measured.milliseconds = 1000.0 * static_cast<double>(end.QuadPart - start.QuadPart) /
                            static_cast<double>(frequency.QuadPart);
    JOBOBJECT_BASIC_ACCOUNTING_INFORMATION accounting = {};
    ::QueryInformationJobObject(job.Get(), JobObjectBasicAccountingInformation, &accounting,
                                sizeof(accounting), nullptr);
    measured.processes = accounting.TotalProcesses;
    return measured;
}

struct Subject {
    std::string name;
    std::wstring commandLine;
};

class Bench {
public:
    explicit Bench(const std::filesystem::path& results) : results_(results) {
        machine_.InstallProduct(L"--start-pending=100");
        machine_.InstallProgram(L"bare_program.exe", L"bare.exe");
        machine_.InstallProgram(L"libraries_program.exe", L"libraries.exe");
        machine_.InstallProgram(L"empty_program.exe", L"empty.exe");
        machine_.InstallProgram(L"search_program.exe", L"search.exe");
        machine_.InstallProgram(L"without_lists.exe", L"without_lists.exe");
    }

    // Starting, and nothing to do.
    void Usage() {
        const std::vector<Subject> subjects = {
            Program("Finaset", L"Finaset.exe", L"/?"), Program("bare", L"bare.exe", L"/?"),
            Program("libraries", L"libraries.exe", L""), Program("empty", L"empty.exe", L"")};
        TakeTurns("usage", subjects, 0, 40, NoSampling);
        for (int run = 0; run < 10; ++run) {
            for (const Subject& subject : subjects) {
                Memory("usage", subject, 0, Run(subject.commandLine, FineSamplingMs));
            }
        }
    }

    // A data directory with many entries.
    void Configure() {
        const std::vector<Subject> subjects = {Program("Finaset", L"Finaset.exe", L"/CONFIGURE"),
                                               Program("bare", L"bare.exe", L"/CONFIGURE")};
        const std::pair<int, int> sizes[] = {{100, 9}, {1'000, 9}, {10'000, 9}, {100'000, 5}};
        for (const auto& [entries, runs] : sizes) {
            for (const std::wstring shape : {L"flat", L"tree"}) {
                const std::wstring directory = shape + L"-" + std::to_wstring(entries);
                machine_.WriteTextSetting(L"ImageCacheDirectory", Files / directory);
                TakeTurns("configure " + std::string(shape.begin(), shape.end()), subjects, entries,
                          runs);
            }
        }
        machine_.RemoveSetting(L"ImageCacheDirectory");
    }

    // The platform's own memory for the entries of a directory.
    void Search() {
        for (const int entries : {100, 100'000}) {
            const Subject subject = Program(
                "search", L"search.exe", L"C:\\files\\flat-" + std::to_wstring(entries) + L"\\*");
            for (int run = 0; run < 3; ++run) {
                Memory("search", subject, entries, Run(subject.commandLine, FineSamplingMs));
            }
        }
    }

    // A shipped file of any size.
    void FileSizes() {
        const Subject subject = Program("Finaset", L"Finaset.exe", L"/CONFIGURE");
        for (const int kilobytes : {1, 1'000, 100'000}) {
            test::PutFile(test::Machine::DriverDirectory() / L"oem.xml", "");
            std::filesystem::resize_file(test::Machine::DriverDirectory() / L"oem.xml",
                                         static_cast<std::uintmax_t>(kilobytes) * 1024);
            for (int run = 0; run < 5; ++run) {
                Memory("file size", subject, kilobytes, Run(subject.commandLine, FineSamplingMs));
            }
        }
        machine_.InstallShippedFiles();
    }

    // Eight services are stopped, and four started.
    void Services() {
        for (int run = 0; run < 2; ++run) {
            for (const wchar_t* program : {L"Finaset.exe", L"bare.exe"}) {
                const std::string name = *program == L'F' ? "Finaset" : "bare";
                StartServices();
                const Subject stop = Program(name, program, L"/STOP");
                Time("stop", stop, 8, Run(stop.commandLine));
                const Subject start = Program(name, program, L"/START");
                Time("start", start, 4, Run(start.commandLine));
            }
        }
    }

    // The program's work, done with the system's own tools.
    void Tools() {
        const std::wstring cmd =
            L"C:\\windows\\system32\\cmd.exe /c " + (Files / L"steps.cmd").wstring() + L" ";
        const std::wstring nsis = (Files / L"steps.exe").wstring() + L" ";
        std::wstring task = ScheduledTaskTable[0].taskXml;
        const std::wstring placeholder = L"##PROCESSNAME##";
        task.replace(task.find(placeholder), placeholder.size(),
                     machine_.ProgramDirectory() / ScheduledTaskTable[0].processName);
        task.insert(0, 1, L'\uFEFF');
        test::PutFile(machine_.ProgramDirectory() / L"task.xml",
                      {reinterpret_cast<const char*>(task.data()), task.size() * sizeof(wchar_t)});
        for (const auto& [group, option, step] :
             {std::tuple{"tools configure", L"/CONFIGURE", L"configure"},
              std::tuple{"tools all", L"", L"all"}}) {
            const std::vector<Subject> subjects = {
                Program("Finaset", L"Finaset.exe", option),
                Program("without lists", L"without_lists.exe", option),
                {"cmd", cmd + step},
                {"NSIS", nsis + step}};
            std::vector<test::MachineState> states;
            for (int run = 0; run < (*option == L'\0' ? 2 : 5); ++run) {
                for (const Subject& subject : subjects) {
                    if (*option == L'\0') {
                        StartServices();
                    }
                    UndoConfiguration();
                    const Measured measured = Run(subject.commandLine);
                    states.push_back(StateAtRest());
                    Write(group, subject, 0, "same state", IsSame(states.back(), states.front()));
                    Time(group, subject, 0, measured);
                    Memory(group, subject, 0, measured);
                    Write(group, subject, 0, "processes", measured.processes);
                }
            }
        }
    }

private:
    Subject Program(const std::string& name, const std::wstring& fileName,
                    const std::wstring& option) {
        return {name, L"\"" + (machine_.ProgramDirectory() / fileName).wstring() + L"\" " + option};
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

    // Of the machine once its services are neither starting nor stopping.
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

    // Each once without being counted, if that is soon done; then in turns, the other way round
    // every second time, for as often as said, or as long as it may take.
    void TakeTurns(const std::string& group, std::vector<Subject> subjects, int entries, int turns,
                   DWORD samplingMs = SamplingMs) {
        std::cout << group << " " << entries << std::endl;
        const ULONGLONG start = ::GetTickCount64();
        for (int turn = entries > ManyEntries ? 0 : -1; turn < turns; ++turn) {
            if (turn > 0 && ::GetTickCount64() - start > TurnsLimitMs) {
                break;
            }
            for (const Subject& subject : subjects) {
                machine_.WriteStaleSettings();
                const Measured measured = Run(subject.commandLine, samplingMs);
                if (turn >= 0) {
                    Time(group, subject, entries, measured);
                    Memory(group, subject, entries, measured);
                }
            }
            std::ranges::reverse(subjects);
        }
    }

    void Time(const std::string& group, const Subject& subject, int entries,
              const Measured& measured) {
        Write(group, subject, entries, "ms", measured.milliseconds);
    }

    void Memory(const std::string& group, const Subject& subject, int entries,
                const Measured& measured) {
        if (measured.peakBytes != 0) {  // it may have ended before the first sample
            Write(group, subject, entries, "peak KB",
                  static_cast<double>(measured.peakBytes) / 1024);
        }
    }

    void Write(const std::string& group, const Subject& subject, int entries, const char* measure,
               double value) {
        results_ << group << "," << subject.name << "," << entries << "," << measure << "," << value
                 << std::endl;
    }

    std::ofstream results_;
    test::Machine machine_;
};

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
    if (argumentCount != 2) {
        return 2;
    }
    try {
        Bench bench(arguments[1]);
        bench.Usage();
        bench.Search();
        bench.FileSizes();
        bench.Services();
        bench.Tools();
        bench.Configure();
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "bench: " << error.what() << "\n";
        return 1;
    }
}
