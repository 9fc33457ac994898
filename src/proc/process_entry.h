#pragma once

#include <cstdint>
#include <string>

enum class EntryKind : std::int32_t {
    Service = 0,    // stopped, started and disabled through the service manager
    LaunchApp = 1,  // an application that is started
    QuitApp = 2,    // an application that is asked to quit
};

// One service or application to act on. A step skips an entry without a name, or of a kind that it
// does not handle.
struct ProcessEntry {
    EntryKind kind;
    std::wstring name;   // service name, or executable file name
    std::wstring extra;  // arguments of a LaunchApp, window title of a QuitApp
};
