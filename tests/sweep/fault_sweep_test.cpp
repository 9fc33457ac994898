// Runs the program once for every platform call, for every way in which it can fail: the call
// alone, and it and all calls after it.

#include "sweep/faulty_run.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

using test::FaultInjector;
using test::InstalledProduct;
using test::NoFault;
using test::Outcome;
using test::PlatformCall;
using test::RunWith;
using testing::IsEmpty;
using testing::IsSupersetOf;

// A run with an option, and which of its calls fail: each of so many parts has its share of those
// from the beginning to the end.
struct Sweep {
    const char* name;
    std::wstring option;
    std::size_t part = 0;
    std::size_t parts = 1;
};

std::string NameOf(const Sweep& sweep) {
    return sweep.parts == 1 ? sweep.name : sweep.name + std::to_string(sweep.part + 1);
}

void PrintTo(const Sweep& sweep, std::ostream* out) {
    *out << NameOf(sweep);
}

class FaultSweep : public testing::TestWithParam<Sweep> {
protected:
    // Runs with the fault, and says what is wrong.
    void Try(std::size_t call, std::size_t way, bool fromThereOn) {
        ++tried_;
        Outcome outcome = RunWith(GetParam().option, [&](std::size_t each) {
            const bool fails = each == call || (fromThereOn && each > call);
            return fails ? std::optional(way) : std::nullopt;
        });
        if (outcome.calls.size() <= call || outcome.calls[call] != calls_[call]) {
            outcome.broken.emplace_back("the call was not reached");
        }
        if (!outcome.broken.empty()) {
            ++failures_;
            EXPECT_THAT(outcome.broken, IsEmpty())
                << calls_[call].function << ", call " << call << ", fails in way " << way
                << (fromThereOn ? ", and all after it" : ", alone");
        }
    }

    std::vector<PlatformCall> calls_;
    std::size_t tried_ = 0;
    std::size_t failures_ = 0;
};

TEST_P(FaultSweep, EveryCallFailsOnceAndFromThereOn) {
    const std::wstring& option = GetParam().option;
    RunWith(option, &NoFault);  // fills what is looked up only once
    const Outcome undisturbed = RunWith(option, &NoFault);
    EXPECT_THAT(undisturbed.broken, IsEmpty());
    calls_ = undisturbed.calls;

    std::size_t calls = 0;
    for (std::size_t call = GetParam().part; call < calls_.size(); call += GetParam().parts) {
        ++calls;
        for (std::size_t way = 0; way < calls_[call].ways; ++way) {
            Try(call, way, /*fromThereOn=*/false);
            Try(call, way, /*fromThereOn=*/true);
        }
    }
    std::cout << "fault sweep, " << NameOf(GetParam()) << ": " << calls << " calls, " << tried_
              << " faults tried, " << failures_ << " failures\n";
}

#ifdef GUARD_PAGES
// Though the tests' own memory has none meanwhile.
TEST(FaultyRun, TheProgramsMemoryHasGuardPages) {
    static bool guarded = false;
    const test::GuardPages without(false);
    InstalledProduct product;
    product.Run(L"", [](int, const wchar_t* const*) {
        const auto block = std::make_unique<std::array<char, 16>>();
        MEMORY_BASIC_INFORMATION behind = {};
        ::VirtualQuery(block->data() + block->size(), &behind, sizeof(behind));
        guarded = behind.State == MEM_RESERVE;
        return 0;
    });
    EXPECT_TRUE(guarded);
}
#endif

// Some are called only after failures.
TEST(FaultInjector, InterceptsNothingThatNoRunCalls) {
    std::set<std::string> reached;
    const auto run = [&](const std::wstring& option, const FaultInjector::Decision& decision) {
        std::vector<PlatformCall> calls = RunWith(option, decision).calls;
        for (const PlatformCall& call : calls) {
            reached.emplace(call.function);
        }
        return calls;
    };
    run(L"/DISABLE", &NoFault);
    const std::vector<PlatformCall> calls = run(L"", &NoFault);
    for (auto call = calls.begin(); call != calls.end(); ++call) {
        if (std::find(calls.begin(), call, *call) == call) {  // the first call of each function
            const auto number = static_cast<std::size_t>(call - calls.begin());
            run(L"", [number](std::size_t each) {
                return each == number ? std::optional<std::size_t>(0) : std::nullopt;
            });
        }
    }
    InstalledProduct product;
    const FaultInjector injector(product.TaskService(), &NoFault);
    EXPECT_THAT(reached, IsSupersetOf(injector.Functions()));
}

// The two long ones have a part for each of CTest's shares.
std::vector<Sweep> Sweeps() {
    constexpr std::size_t Parts = 4;
    std::vector<Sweep> sweeps;
    for (const Sweep& longOne : {Sweep{"TheDefaultRun", L""}, Sweep{"Configure", L"/CONFIGURE"}}) {
        for (std::size_t part = 0; part < Parts; ++part) {
            sweeps.push_back({longOne.name, longOne.option, part, Parts});
        }
    }
    sweeps.push_back({"Stop", L"/STOP"});
    sweeps.push_back({"Start", L"/START"});
    sweeps.push_back({"Disable", L"/DISABLE"});
    return sweeps;
}

INSTANTIATE_TEST_SUITE_P(All, FaultSweep, testing::ValuesIn(Sweeps()),
                         [](const auto& sweep) { return NameOf(sweep.param); });

}  // namespace
