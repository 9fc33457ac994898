#include "proc/process_lists.h"

using enum EntryKind;

// The application comes first, before it could see its services stop.
const std::vector<ProcessEntry> StopList = {
    {QuitApp, L"ZEFIR.exe", L"Tarsel\u00AE Lumetra"},
    {Service, L"brisko network service x64", L""},
    {Service, L"hvnetsvc", L""},
    {Service, L"Corvo", L""},
    {Service, L"TarselHubService", L""},
    {Service, L"Tarsel Nimbus Network Service", L""},
    {Service, L"Ardex", L""},
    {Service, L"Tarsel Metrics Service", L""},
    {Service, L"Tarsel Data Relay Service", L""},
};

const std::vector<ProcessEntry> StartList = {
    {LaunchApp, L"BriskoLU.exe", L"-u"},          {Service, L"Ardex", L""},
    {Service, L"Tarsel Metrics Service", L""},    {Service, L"Tarsel Nimbus Network Service", L""},
    {Service, L"Tarsel Data Relay Service", L""},
};

const std::vector<ProcessEntry> DisableList = {
    {Service, L"Corvo", L""},
    {Service, L"TarselHubService", L""},
    {Service, L"Ardex", L""},
    {Service, L"Tarsel Metrics Service", L""},
    {Service, L"Tarsel Nimbus Network Service", L""},
    {Service, L"Tarsel Data Relay Service", L""},
};

const std::vector<ProcessEntry> ProductServiceList = {
    {Service, L"Corvo", L""},
    {Service, L"TarselHubService", L""},
    {Service, L"Tarsel Nimbus Network Service", L""},
    {Service, L"Ardex", L""},
    {Service, L"Tarsel Metrics Service", L""},
    {Service, L"Tarsel Data Relay Service", L""},
};
