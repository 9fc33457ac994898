#pragma once

#include <string>

// The answer to directories that cannot be secured: announces and runs the product's uninstall
// program, whatever becomes of it, and records `reason` in the event log and on the console. Takes
// the reason over and leaves it empty.
void RespondToSecurityFailure(std::wstring& reason);

// Runs the uninstall program from this program's own directory and waits for it for at most 60 s; a
// program that takes longer is left running. Returns whether it was started and ended in time.
bool RunUninstallProgram();

// Writes one entry to this machine's event log. Returns whether it is written.
bool ReportEventLogEntry(const std::wstring& message, const std::wstring& source);
