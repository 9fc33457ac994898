#pragma once

#include <string>

// Asks the running application whose image path contains `name` (in any case) to quit: starts the
// helper as the application's own user with the window's title, and waits up to 30 s for the
// helper. Returns whether the helper ran and ended in time; does not check whether the application
// has ended. Does nothing, and returns false, if either string is empty.
bool StopApplication(const std::wstring& name, const std::wstring& windowTitle);

// Starts `name` from this program's own directory without waiting for it. Returns whether it was
// started.
bool StartApplication(const std::wstring& name, const std::wstring& arguments);
