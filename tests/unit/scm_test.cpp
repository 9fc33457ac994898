#include "proc/scm.h"

#include "support/installed_service.h"

#include <gtest/gtest.h>

namespace {

TEST(SCM, StopsAndStartsARealService) {
    const test::InstalledService service(L"Finaset test service");
    EXPECT_TRUE(Utils::SCM().RequestStart(service.Name()));
    EXPECT_TRUE(Utils::SCM().WaitForState(service.Name(), SERVICE_RUNNING, 0, 5000));
    EXPECT_TRUE(Utils::SCM().RequestStop(service.Name()));
    EXPECT_TRUE(Utils::SCM().WaitForState(service.Name(), SERVICE_STOPPED, 0, 5000));
}

TEST(SCM, NeverStops) {
    const test::InstalledService service(L"Finaset test service", L"--never-stops");
    service.Start();
    EXPECT_TRUE(Utils::SCM().RequestStop(service.Name()));
    EXPECT_EQ(service.State(), static_cast<DWORD>(SERVICE_STOP_PENDING));
}
TEST(SCM, Refuses) {
    const test::InstalledService service(L"Finaset test service", L"--refuses-stop");
    service.Start();
    EXPECT_FALSE(Utils::SCM().RequestStop(service.Name()));
    EXPECT_EQ(service.State(), static_cast<DWORD>(SERVICE_RUNNING));
}
TEST(SCM, Dies) {
    const test::InstalledService service(L"Finaset test service",
                                         L"--dies-on-start --start-pending=300");
    EXPECT_TRUE(Utils::SCM().RequestStart(service.Name()));
    EXPECT_FALSE(Utils::SCM().WaitForState(service.Name(), SERVICE_RUNNING, 0, 1200));
    EXPECT_EQ(service.State(), static_cast<DWORD>(SERVICE_STOPPED));
}
TEST(SCM, Disable) {
    const test::InstalledService service(L"Finaset test service");
    auto d = service.Describe();
    EXPECT_TRUE(Utils::SCM().SetDisabled(service.Name()));
    d.startType = SERVICE_DISABLED;
    EXPECT_EQ(service.Describe(), d);
}

}  // namespace
