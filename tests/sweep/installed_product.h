#pragma once

#include "driver/entry.h"
#include "support/environment_variable.h"
#include "support/fake_adapters.h"
#include "support/fake_event_log.h"
#include "support/fake_processes.h"
#include "support/fake_services.h"
#include "support/fake_task_service.h"
#include "support/handle_ledger.h"
#include "support/import_hook.h"
#include "support/initialised_com.h"
#include "support/print_hook.h"
#include "support/private_registry.h"

#include <windows.h>

#include <aclapi.h>

#include <string>
#include <utility>
#include <vector>

namespace test {

// A machine with the whole product, in this process: a private registry, files that are created
// anew for each, and fakes for the rest. The application runs, a matching adapter is present, and
// an undisturbed run succeeds in every line.
class InstalledProduct {
public:
    InstalledProduct();

    // Runs the program, or another that takes its place, with one option, or none if that is empty.
    using Program = int (*)(int argumentCount, const wchar_t* const* arguments);
    void Run(const std::wstring& option, Program program = &RunProgram);

    [[nodiscard]] int ExitCode() const { return exitCode_; }
    [[nodiscard]] const std::string& Log() const { return log_; }

    // The events, in order: each piece of the log, and each call that reached the platform and
    // starts, stops, changes or secures something, or opens the application's token.
    [[nodiscard]] const std::vector<std::string>& Events() const { return events_; }

    // The longest sleep or wait, and the total, in milliseconds.
    [[nodiscard]] DWORD LongestWait() const { return longestWait_; }
    [[nodiscard]] ULONGLONG Waited() const { return waited_; }

    // What was opened and not released.
    [[nodiscard]] std::vector<std::string> Leaks() const;

    FakeTaskService& TaskService() { return taskService_; }

private:
    void Event(std::string event) { events_.push_back(std::move(event)); }
    void Wait(DWORD milliseconds);

    int exitCode_ = -1;
    std::string log_;
    std::vector<std::string> events_;
    DWORD longestWait_ = 0;
    ULONGLONG waited_ = 0;

    EnvironmentVariable programData_;
    EnvironmentVariable systemRoot_;
    PrivateRegistry registry_;
    InitialisedCom com_;  // for as long as the fake task service needs it
    FakeServices services_;
    FakeProcesses processes_;
    FakeEventLog eventLog_;
    FakeAdapters adapters_;
    FakeTaskService taskService_;

    ImportHook<&::OpenProcessToken> openToken_;
    ImportHook<&::StartServiceW> start_;
    ImportHook<&::ControlService> control_;
    ImportHook<&::ChangeServiceConfigW> change_;
    ImportHook<&::CreateProcessW> createProcess_;
    ImportHook<&::SetNamedSecurityInfoW> secure_;
    ImportHook<&::Sleep> sleep_;
    ImportHook<&::WaitForSingleObject> wait_;
    HandleLedger ledger_;
};

// The adapter descriptions of that machine: one that the program does not look for, and one for
// each row of its table.
std::vector<std::wstring> ProductAdapters();

}  // namespace test
