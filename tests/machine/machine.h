#pragma once

#include "shared/owner.h"
#include "support/installed_service.h"

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace test {

// The services of the product's lists, first those that a run stops, in order, and then the others.
const std::vector<std::wstring>& ProductServices();

// Whether a run starts the service.
bool IsStarted(const std::wstring& service);

// A finished run of the program.
struct FinishedRun {
    DWORD exitCode = 0;
    std::string log;
    std::chrono::milliseconds duration{};
};

// What can be seen of the machine.
struct MachineState {
    std::map<std::wstring, ServiceDescription> services;
    std::vector<std::wstring> applications;         // that run, by file name, sorted
    std::map<std::wstring, std::wstring> settings;  // of the service's Parameters key, as text
    std::map<std::wstring, std::string> dataFiles;  // below the product's data, with their content
    bool staleKey = false;                          // the key that a run removes
    std::vector<std::wstring> tasks;                // the scheduled ones, by name, sorted
    std::optional<DWORD> hardwareBitmask;           // that a run stores
};

// The data files and settings that the configure action leaves on a machine, by the product's
// tables; and the names of the product's tasks, sorted.
std::map<std::wstring, std::string> WithShippedFiles(std::map<std::wstring, std::string> files);
std::map<std::wstring, std::wstring> Configured(std::map<std::wstring, std::wstring> settings,
                                                std::uint32_t bitmask = 0);
std::vector<std::wstring> ProductTasks();

// The machine that this program runs on, with the product: the shipping program, and small real
// programs that stand in for the product's others. It starts without the product, and nothing of it
// is left at the end.
class Machine {
public:
    explicit Machine(
        std::filesystem::path programDirectory = L"C:\\Program Files\\Tarsel\\Lumetra");
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine();

    // The programs, the services, the shipped files, stale settings and the first-run marker.
    // `ways` are the arguments of each service's stand-in.
    void InstallProduct(const std::wstring& ways = {});

    // Single parts. An existing program is replaced.
    void InstallProgram(const std::wstring& standIn, const std::wstring& fileName);
    void RemoveProgram(const std::wstring& fileName);
    void InstallShippedFiles();
    void WriteStaleSettings();
    InstalledService& InstallService(const std::wstring& name, const std::wstring& ways = {});
    void RemoveService(const std::wstring& name);

    // Makes the task service unreachable, or removes its object. Only on Wine, where a library
    // stands in for it: Windows does not let anyone replace its own.
    static void DisconnectTaskService();
    static void RemoveTaskService();

    // Schedules a task that does nothing.
    static void ScheduleTask(const std::wstring& name);

    // The definitions of the tasks that were registered, in order. On Wine, as above.
    [[nodiscard]] static std::vector<std::string> TaskDefinitions();

    // Starts everything that runs on a machine in use: all services, and each application that a
    // run asks to quit, with its window. Returns the first one's process.
    Utils::KernelHandle StartProduct();

    // Starts a product program with a window, and returns when the window exists. `title` is the
    // window's title, the product's if empty.
    Utils::KernelHandle StartApplication(const std::wstring& fileName,
                                         const std::wstring& title = {});

    // Starts a product program without a window.
    void StartBackgroundProgram(const std::wstring& fileName) const;

    void WriteSetting(const std::wstring& name, DWORD type, std::string_view bytes);
    void WriteSetting(const std::wstring& name, std::uint32_t number);
    void WriteTextSetting(const std::wstring& name, const std::wstring& text, DWORD type = REG_SZ);
    void RemoveSetting(const std::wstring& name);

    // Runs the program with the rest of its command line as given, and waits for it.
    [[nodiscard]] FinishedRun Run(const std::wstring& arguments = {}) const;

    // The same, with standard output going to `output`, which must be inheritable, or none if null.
    [[nodiscard]] DWORD Run(const std::wstring& arguments, HANDLE output) const;

    [[nodiscard]] MachineState Describe() const;
    [[nodiscard]] const InstalledService& Service(const std::wstring& name) const;

    // The command lines of a program that records its starts, in order.
    [[nodiscard]] std::vector<std::string> StartsOf(const std::wstring& fileName) const;

    [[nodiscard]] const std::filesystem::path& ProgramDirectory() const { return directory_; }

    // The directories of the product's shipped files, of its data, and of its configuration files
    // in there.
    [[nodiscard]] static std::filesystem::path DriverDirectory();
    [[nodiscard]] static std::filesystem::path DataDirectory();
    [[nodiscard]] static std::filesystem::path ConfigurationDirectory();

private:
    std::filesystem::path directory_;
    std::map<std::wstring, InstalledService> services_;
};

// Runs a program to its end, and returns its exit code. Its standard output goes to `output`, and
// what it complains about to `errors`, or to `output` too if null. Both must be inheritable;
// without `output`, neither goes anywhere.
DWORD RunToEnd(const std::wstring& commandLine, HANDLE output = nullptr, HANDLE errors = nullptr);

// A link to a directory, while it lives. The directories above both must exist.
class DirectoryLink {
public:
    DirectoryLink(std::filesystem::path link, const std::filesystem::path& target);
    DirectoryLink(const DirectoryLink&) = delete;
    DirectoryLink& operator=(const DirectoryLink&) = delete;
    ~DirectoryLink();

private:
    std::filesystem::path link_;
};

// Makes somebody else the owner of a directory. Returns whether that was possible.
bool GiveToSomebodyElse(const std::filesystem::path& directory);

// A drive letter for a directory, and this program's current drive, while it lives.
class Drive {
public:
    Drive(wchar_t letter, const std::filesystem::path& directory);
    Drive(const Drive&) = delete;
    Drive& operator=(const Drive&) = delete;
    ~Drive();

private:
    std::wstring name_;
    std::filesystem::path directory_;
    std::filesystem::path before_;
    std::string link_;
};

// Whether the process has ended, or ends within `limit`.
bool Ended(const Utils::KernelHandle& process, std::chrono::milliseconds limit);

}  // namespace test
