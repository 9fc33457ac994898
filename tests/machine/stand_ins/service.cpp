// A service whose behaviour is set by the arguments of its binary path:
//
//   --start-pending=MS   is start-pending for this long before it runs
//   --stop-pending=MS    is stop-pending for this long before it has stopped (default 200)
//   --stops-at-once      has stopped before it answers the stop control
//   --never-stops        stays stop-pending
//   --dies-on-start      stops instead of running
//   --refuses-stop       does not accept the stop control

#include <windows.h>

#include <cwchar>
#include <string>
#include <string_view>

namespace {

struct Ways {
    DWORD startPendingMs = 0;
    // Not less: Wine drops the connection to a service that reports that it has stopped, and with
    // it the answer to the stop control if that is still pending. The request then seems to have
    // failed.
    DWORD stopPendingMs = 200;
    bool stopsAtOnce = false;
    bool neverStops = false;
    bool diesOnStart = false;
    bool refusesStop = false;
};

Ways ways;
SERVICE_STATUS_HANDLE statusHandle = nullptr;
HANDLE stopRequested = nullptr;

Ways ReadWays(int argumentCount, wchar_t** arguments) {
    Ways read;
    for (int index = 1; index < argumentCount; ++index) {
        const std::wstring_view argument = arguments[index];
        const std::size_t equals = argument.find(L'=');
        const std::wstring_view name = argument.substr(0, equals);
        const wchar_t* number = equals == argument.npos ? L"0" : arguments[index] + equals + 1;
        if (name == L"--start-pending") {
            read.startPendingMs = std::wcstoul(number, nullptr, 10);
        } else if (name == L"--stop-pending") {
            read.stopPendingMs = std::wcstoul(number, nullptr, 10);
        }
        read.stopsAtOnce |= name == L"--stops-at-once";
        read.neverStops |= name == L"--never-stops";
        read.diesOnStart |= name == L"--dies-on-start";
        read.refusesStop |= name == L"--refuses-stop";
    }
    return read;
}

void Report(DWORD state) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted =
        state == SERVICE_RUNNING && !ways.refusesStop ? SERVICE_ACCEPT_STOP : 0;
    status.dwWaitHint = 60'000;
    ::SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI HandleControl(DWORD control, DWORD /*type*/, void* /*data*/, void* /*context*/) {
    if (control == SERVICE_CONTROL_STOP) {
        Report(ways.stopsAtOnce ? SERVICE_STOPPED : SERVICE_STOP_PENDING);
        ::Sleep(ways.stopsAtOnce ? 300 : 0);  // the answer is late for sure
        ::SetEvent(stopRequested);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD /*argumentCount*/, wchar_t** arguments) {
    statusHandle = ::RegisterServiceCtrlHandlerExW(arguments[0], &HandleControl, nullptr);
    Report(SERVICE_START_PENDING);
    ::Sleep(ways.startPendingMs);
    if (ways.diesOnStart) {
        Report(SERVICE_STOPPED);
        return;
    }
    Report(SERVICE_RUNNING);
    ::WaitForSingleObject(stopRequested, INFINITE);
    if (ways.neverStops) {
        ::Sleep(INFINITE);
    }
    ::Sleep(ways.stopPendingMs);
    if (!ways.stopsAtOnce) {
        Report(SERVICE_STOPPED);
    }
}

}  // namespace

int wmain(int argumentCount, wchar_t** arguments) {
    ways = ReadWays(argumentCount, arguments);
    stopRequested = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    wchar_t ownProcess[] = L"";  // a service of its own process needs no name here
    const SERVICE_TABLE_ENTRYW table[] = {{ownProcess, &ServiceMain}, {nullptr, nullptr}};
    return ::StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
