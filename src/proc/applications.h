#pragma once

#include <string>

// Asks the running application whose image path contains `name` (in any case) to quit: starts the
// helper as the application's own user with the window's title, and waits for the helper for at
// most 30 s. Returns whether the helper ran and ended in time; whether the application has gone is
// not looked at. Does nothing, and returns false, if either string is empty.
bool StopApplication(const std::wstring& name, const std::wstring& windowTitle);

// Starts `name` from this program's own directory and does not wait for it. Returns whether it was
// started.
bool StartApplication(const std::wstring& name, const std::wstring& arguments);
