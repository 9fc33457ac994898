#include "verify/verify.h"

#include "config/service_parameter_names.h"
#include "config/service_parameters.h"
#include "config/settings_tables.h"
#include "driver/actions.h"
#include "driver/case_mapping.h"
#include "fs/file_table.h"
#include "fs/secured_directories.h"
#include "hw/adapter_patterns.h"
#include "hw/feature_table.h"
#include "proc/process_lists.h"
#include "registry/registry_setting.h"
#include "tasks/task_table.h"
#include "verify/directories.h"
#include "verify/files.h"
#include "verify/services.h"
#include "verify/settings.h"
#include "verify/tasks.h"
#include "verify/write.h"

#include <windows.h>

#include <objbase.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <new>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace verify {

namespace {

constexpr int InOrder = 0;
constexpr int SomethingDiffers = 1;
constexpr int CannotSay = 2;

constexpr char Usage[] =
    "usage: finaset-verify [--json] [/STOP | /CONFIGURE | /START | /DISABLE]\n"
    "\n"
    "Says whether this machine is in the state in which a Finaset run with the same option should\n"
    "leave it, one line for each thing that the run handles. Changes nothing.\n"
    "\n"
    "  --json   one JSON object, on one line\n"
    "\n"
    "Exit status: 0 all is in order, 1 something differs, 2 something is unknown.\n";

constexpr std::wstring_view Options[] = {L"/STOP", L"/CONFIGURE", L"/START", L"/DISABLE"};

bool Has(const Rows& rows, Verdict verdict) {
    return std::ranges::any_of(rows,
                               [&](const Row& row) { return row.finding.verdict == verdict; });
}

RegistrySetting FirstRunMarker() {
    return {.root = HKEY_LOCAL_MACHINE,
            .keyPath = ServiceParametersKey,
            .valueName = ServiceParameter::FirstRun,
            .type = REG_DWORD,
            .number = 0};
}

// What the configure action leaves. Sets whether the directories are secure.
Rows CheckConfigured(bool& secure) {
    Rows rows = CheckDeleted(DeleteList);
    Append(rows, CheckFiles(FileTable));
    Rows directories = CheckDirectories(SecuredDirectoryTable);
    secure = !Has(directories, Verdict::Differs);
    Append(rows, std::move(directories));
    Append(rows, CheckWritten(WriteList));
    Append(rows, CheckBitmask(HardwareBitmaskGateName, HardwareBitmaskName, HardwarePatternTable));
    Append(rows, CheckFeatures(FeatureRuleTable, HardwareBitmaskName));
    Append(rows, CheckTasks(ScheduledTaskTable, ObsoleteTask));
    const RegistrySetting firstRun = FirstRunMarker();
    Append(rows, CheckWritten({&firstRun, 1}));
    return rows;
}

std::wstring ComputerName() {
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD size = std::size(name);
    ::GetComputerNameW(name, &size);  // empty if it fails
    return name;
}

int Fail(const char* what) {
    std::fputs("finaset-verify: ", stderr);
    std::fputs(what, stderr);
    std::fputs("\n", stderr);
    return CannotSay;
}

int Print(const std::string& text, int status) {
    const bool written = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
    return written ? status : Fail("what was found cannot be written");
}

// COM for this thread, if available.
class InitialisedCom {
public:
    InitialisedCom() = default;
    InitialisedCom(const InitialisedCom&) = delete;
    InitialisedCom& operator=(const InitialisedCom&) = delete;
    ~InitialisedCom() {
        if (SUCCEEDED(result_)) {
            ::CoUninitialize();
        }
    }

private:
    HRESULT result_ = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
};

int VerifyAndPrint(std::uint32_t actions, bool json) {
    const InitialisedCom com;
    const Report report = Verify(actions);
    return Print(json ? WriteJson(report) : WriteText(report),
                 Has(report.rows, Verdict::Differs)   ? SomethingDiffers
                 : Has(report.rows, Verdict::Unknown) ? CannotSay
                                                      : InOrder);
}

}  // namespace

std::size_t Count(const Report& report, Verdict verdict) {
    return static_cast<std::size_t>(std::ranges::count(
        report.rows, verdict, [](const Row& row) { return row.finding.verdict; }));
}

Report Verify(std::uint32_t actions) {
    Report report;
    report.computer = ComputerName();
    report.version = FINASET_VERSION;
    report.actions = actions;
    if (actions & ActionStop) {
        const bool starts = (actions & ActionStart) != 0;
        Append(report.rows, CheckStopped(StopList, starts ? std::span(StartList)
                                                          : std::span<const ProcessEntry>()));
    }
    bool secure = true;
    if (actions & ActionConfigure) {
        Append(report.rows, CheckConfigured(secure));
    }
    // A run does neither on a machine that is not secure.
    if ((actions & ActionStart) && secure) {
        Append(report.rows, CheckStarted(StartList));
    }
    if ((actions & ActionDisable) && secure) {
        Append(report.rows, CheckDisabled(DisableList));
    }
    return report;
}

int RunVerify(int argumentCount, const wchar_t* const* arguments) {
    try {
        bool json = false;
        std::vector<const wchar_t*> call = {L""};  // as the program itself would be called
        for (int index = 1; index < argumentCount; ++index) {
            const std::wstring argument = arguments[index];
            std::wstring option = argument;
            ToUpperInPlace(option);
            const auto* const known = std::ranges::find(Options, option);
            if (argument == L"--help" || argument == L"/?") {
                return Print(Usage, InOrder);
            }
            if (argument == L"--json") {
                json = true;
            } else if (known != std::end(Options) && call.size() == 1) {
                call.push_back(known->data());
            } else {
                return Fail(
                    "it takes --json, and one option of the program; see "
                    "finaset-verify --help");
            }
        }
        return VerifyAndPrint(ChooseActions(static_cast<int>(call.size()), call.data()), json);
    } catch (const std::bad_alloc&) {
        return Fail("out of memory");
    }
}

}  // namespace verify
