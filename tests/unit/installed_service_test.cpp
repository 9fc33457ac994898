#include "support/installed_service.h"

#include "shared/owner.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace {

using test::InstalledService;

constexpr wchar_t Name[] = L"Finaset test service";

bool IsInstalled() {
    const Utils::ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    return static_cast<bool>(
        Utils::ServiceHandle(::OpenServiceW(manager.Get(), Name, SERVICE_QUERY_STATUS)));
}

TEST(InstalledService, ExistsWhileItLives) {
    EXPECT_FALSE(IsInstalled());
    {
        const InstalledService service(Name);
        EXPECT_TRUE(IsInstalled());
    }
    EXPECT_FALSE(IsInstalled());
}

TEST(InstalledService, IsRemovedEvenIfItIsRunning) {
    {
        const InstalledService service(Name, L"--never-stops");
        service.Start();
        EXPECT_EQ(service.State(), static_cast<DWORD>(SERVICE_RUNNING));
    }
    EXPECT_FALSE(IsInstalled());
    const InstalledService again(Name);
    EXPECT_EQ(again.State(), static_cast<DWORD>(SERVICE_STOPPED));
}

TEST(InstalledService, IsDescribedAsItIsInstalled) {
    const InstalledService service(Name, L"--refuses-stop", SERVICE_AUTO_START);
    const test::ServiceDescription description = service.Describe();
    EXPECT_EQ(description.serviceType, static_cast<DWORD>(SERVICE_WIN32_OWN_PROCESS));
    EXPECT_EQ(description.startType, static_cast<DWORD>(SERVICE_AUTO_START));
    EXPECT_EQ(description.errorControl, static_cast<DWORD>(SERVICE_ERROR_NORMAL));
    EXPECT_EQ(description.binaryPath,
              L"\"" + test::BesideThisProgram(L"stand_in_service.exe") + L"\" --refuses-stop");
    EXPECT_EQ(description.displayName, L"Finaset test service (stand-in)");
    EXPECT_EQ(description.state, static_cast<DWORD>(SERVICE_STOPPED));
}

TEST(InstalledService, CannotBeInstalledTwice) {
    const InstalledService service(Name);
    EXPECT_THROW(InstalledService(std::wstring(Name)), std::runtime_error);
}

TEST(InstalledService, CannotBeStartedWithoutItsProgram) {
    const InstalledService service(Name, L"", SERVICE_DEMAND_START, L"C:\\no such program.exe");
    EXPECT_THROW(service.Start(), std::runtime_error);
}

TEST(BesideThisProgram, IsAPathInItsDirectory) {
    EXPECT_NE(::GetFileAttributesW(test::BesideThisProgram(L"stand_in_service.exe").c_str()),
              INVALID_FILE_ATTRIBUTES);
}

}  // namespace
