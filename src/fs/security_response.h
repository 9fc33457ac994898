#pragma once

#include <string>

// The response to directories that cannot be secured: announces and runs the product's uninstall
// program and, whether or not that succeeds, records `reason` in the event log and on the console.
// Takes the reason over and leaves it empty.
void RespondToSecurityFailure(std::wstring& reason);

// Runs the uninstall program from this program's own directory and waits up to 60 s; if it takes
// longer, it is left running. Returns whether it was started and ended in time.
bool RunUninstallProgram();

// Writes one entry to the local event log. Returns whether it was written.
bool ReportEventLogEntry(const std::wstring& message, const std::wstring& source);
