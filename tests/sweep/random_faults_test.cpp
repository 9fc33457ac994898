// Runs the program with random faults. Each run has its own seed, which a failure names: with
// FINASET_SEED=SEED in the environment, only that one runs.

#include "sweep/faulty_run.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <string>

namespace {

using test::NoFault;
using test::RunWith;
using testing::IsEmpty;

constexpr std::uint32_t Runs = 2000;

// The errors of the run with this seed.
std::vector<std::string> Try(std::uint32_t seed, std::size_t& calls, std::size_t& faults) {
    constexpr std::array<const wchar_t*, 5> Options = {L"", L"/STOP", L"/CONFIGURE", L"/START",
                                                       L"/DISABLE"};
    constexpr std::array<unsigned, 4> OneIn = {2, 5, 20, 100};
    std::mt19937 random(seed);
    const std::wstring option = Options[random() % Options.size()];
    const unsigned oneIn = OneIn[random() % OneIn.size()];
    const test::Outcome outcome = RunWith(option, [&](std::size_t) -> std::optional<std::size_t> {
        const bool fails = random() % oneIn == 0;
        faults += fails ? 1 : 0;
        return fails ? std::optional<std::size_t>(random() % 3) : std::nullopt;
    });
    calls += outcome.calls.size();
    return outcome.broken;
}

TEST(RandomFaults, BreakNoRule) {
    RunWith(L"", &NoFault);  // fills what is looked up only once
    const char* const replayed = std::getenv("FINASET_SEED");
    const std::uint32_t first =
        replayed == nullptr ? 1 : static_cast<std::uint32_t>(std::strtoul(replayed, nullptr, 10));
    const std::uint32_t last = replayed == nullptr ? Runs : first;
    std::size_t calls = 0;
    std::size_t faults = 0;
    for (std::uint32_t seed = first; seed <= last; ++seed) {
        EXPECT_THAT(Try(seed, calls, faults), IsEmpty()) << "to replay: FINASET_SEED=" << seed;
    }
    std::cout << "random faults: " << last - first + 1 << " runs, " << calls << " calls, " << faults
              << " faults\n";
}

}  // namespace
