#pragma once

#include <windows.h>

#include <string>

namespace test {

// A service as the service manager knows it.
struct ServiceDescription {
    DWORD serviceType = 0;
    DWORD startType = 0;
    DWORD errorControl = 0;
    std::wstring binaryPath;
    std::wstring loadOrderGroup;
    DWORD tagId = 0;
    std::wstring dependencies;  // each ended by a zero
    std::wstring account;
    std::wstring displayName;
    DWORD state = 0;

    bool operator==(const ServiceDescription&) const = default;
};

// Installs a real service with the stand-in as its program, and removes it again, running or not.
class InstalledService {
public:
    // `ways` are the stand-in's arguments. `program` is the stand-in beside this program if empty.
    explicit InstalledService(std::wstring name, const std::wstring& ways = {},
                              DWORD startType = SERVICE_DEMAND_START, std::wstring program = {});
    InstalledService(const InstalledService&) = delete;
    InstalledService& operator=(const InstalledService&) = delete;
    ~InstalledService();

    [[nodiscard]] const std::wstring& Name() const { return name_; }
    [[nodiscard]] ServiceDescription Describe() const;
    [[nodiscard]] DWORD State() const { return Describe().state; }

    // Starts the service and waits until it is no longer start-pending.
    void Start() const;

private:
    std::wstring name_;
};

// The path of a file in this program's own directory.
std::wstring BesideThisProgram(const std::wstring& fileName);

}  // namespace test
