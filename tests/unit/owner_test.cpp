#include "shared/owner.h"

#include "support/import_hook.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A kind of handle with 0 as a handle and -1 as none; releasing one changes the last error.
struct NumberPolicy {
    using Handle = int;
    static constexpr Handle None = -1;
    static void Release(Handle handle) {
        released.push_back(handle);
        ::SetLastError(ERROR_GEN_FAILURE);
    }
    static inline std::vector<int> released;
};

using Number = Utils::Owner<NumberPolicy>;

class Owner : public testing::Test {
protected:
    Owner() { released_.clear(); }

    std::vector<int>& released_ = NumberPolicy::released;
};

TEST_F(Owner, HoldsNothingAtFirst) {
    {
        const Number owner;
        EXPECT_FALSE(owner);
        EXPECT_EQ(owner.Get(), NumberPolicy::None);
    }
    EXPECT_THAT(released_, IsEmpty());
}

TEST_F(Owner, HoldsAHandleAndReleasesItOnceAtTheEnd) {
    {
        const Number owner(0);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.Get(), 0);
        EXPECT_THAT(released_, IsEmpty());
    }
    EXPECT_THAT(released_, ElementsAre(0));
}

TEST_F(Owner, ReleasesNothingForTheValueThatStandsForNone) {
    {
        const Number owner(NumberPolicy::None);
        EXPECT_FALSE(owner);
    }
    EXPECT_THAT(released_, IsEmpty());
}

TEST_F(Owner, MovesIntoANewOne) {
    {
        Number from(7);
        const Number to(std::move(from));
        EXPECT_FALSE(from);  // NOLINT: its moved-from state is tested
        EXPECT_EQ(to.Get(), 7);
    }
    EXPECT_THAT(released_, ElementsAre(7));
}

TEST_F(Owner, KeepsTheLastErrorOverARelease) {
    ::SetLastError(ERROR_ACCESS_DENIED);
    { const Number owner(7); }
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_THAT(released_, ElementsAre(7));
}

TEST_F(Owner, CanOnlyBeMovedIntoANewOneAndAskedExplicitly) {
    static_assert(!std::is_copy_constructible_v<Number> && !std::is_copy_assignable_v<Number>);
    static_assert(std::is_nothrow_move_constructible_v<Number>);
    static_assert(!std::is_move_assignable_v<Number>);
    static_assert(!std::is_convertible_v<Number, bool> && !std::is_convertible_v<int, Number>);
}

// How often an owner of a fake handle passes it to the release function.
template <typename Owner, auto Close>
int Releases() {
    const auto handle = reinterpret_cast<typename Owner::Handle>(0x1234);
    int releases = 0;
    test::ImportHook<Close> hook([&](auto closed) {
        releases += closed == handle ? 1 : 0;
        return closed == handle ? TRUE : hook.Forward(closed);
    });
    { EXPECT_TRUE(Owner(handle)); }
    return releases;
}

TEST(KernelHandle, IsClosedOnceAndIsNoneWhenNull) {
    EXPECT_EQ((Releases<Utils::KernelHandle, &::CloseHandle>()), 1);
    EXPECT_FALSE(Utils::KernelHandle(nullptr));
}

TEST(ServiceHandle, IsClosedOnceAndIsNoneWhenNull) {
    EXPECT_EQ((Releases<Utils::ServiceHandle, &::CloseServiceHandle>()), 1);
    EXPECT_FALSE(Utils::ServiceHandle(nullptr));
}

}  // namespace
