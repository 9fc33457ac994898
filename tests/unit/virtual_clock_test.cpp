#include "support/virtual_clock.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace {

using test::VirtualClock;
using testing::ElementsAre;
using testing::IsEmpty;

using Event = std::unique_ptr<void, decltype(&::CloseHandle)>;

Event MakeEvent(bool signalled) {
    return {::CreateEventW(nullptr, TRUE, signalled, nullptr), &::CloseHandle};
}

TEST(VirtualClock, StandsStillUntilTheProgramSleeps) {
    const VirtualClock clock;
    const ULONGLONG start = ::GetTickCount64();
    EXPECT_EQ(::GetTickCount64(), start);
    ::Sleep(100'000'000);
    ::Sleep(1);
    EXPECT_EQ(::GetTickCount64() - start, 100'000'001U);
    EXPECT_EQ(clock.Now(), 100'000'001U);
    EXPECT_THAT(clock.Sleeps(), ElementsAre(100'000'000, 1));
    EXPECT_THAT(clock.Waits(), IsEmpty());
}

TEST(VirtualClock, CanBeAdvanced) {
    VirtualClock clock;
    const ULONGLONG start = ::GetTickCount64();
    clock.Advance(70);
    EXPECT_EQ(::GetTickCount64() - start, 70U);
    EXPECT_THAT(clock.Sleeps(), IsEmpty());
}

TEST(VirtualClock, Exceeds32BitsAfterFourSeconds) {
    const VirtualClock clock;
    const auto start = static_cast<DWORD>(::GetTickCount64());
    ::Sleep(5000);
    EXPECT_LT(static_cast<DWORD>(::GetTickCount64()), start);
}

TEST(VirtualClock, LetsAWaitRunIntoItsTimeLimit) {
    const VirtualClock clock;
    const Event event = MakeEvent(false);
    EXPECT_EQ(::WaitForSingleObject(event.get(), 30'000), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(clock.Now(), 30'000U);
    EXPECT_THAT(clock.Waits(), ElementsAre(30'000));
}

TEST(VirtualClock, EndsAWaitForSomethingSignalledAtOnce) {
    const VirtualClock clock;
    const Event event = MakeEvent(true);
    EXPECT_EQ(::WaitForSingleObject(event.get(), 30'000), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_EQ(clock.Now(), 0U);
    EXPECT_THAT(clock.Waits(), ElementsAre(30'000));
}

TEST(VirtualClock, IgnoresWaitsWithoutALimit) {
    const VirtualClock clock;
    const Event event = MakeEvent(true);
    EXPECT_EQ(::WaitForSingleObject(event.get(), INFINITE), static_cast<DWORD>(WAIT_OBJECT_0));
    EXPECT_THAT(clock.Waits(), IsEmpty());
}

TEST(VirtualClock, RestoresTheRealTime) {
    const ULONGLONG before = ::GetTickCount64();
    {
        const VirtualClock clock;
        ::Sleep(100'000'000);
    }
    EXPECT_GE(::GetTickCount64(), before);
    EXPECT_LT(::GetTickCount64(), before + 1'000'000);
}

}  // namespace
