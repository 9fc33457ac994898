// Runs the program once for every platform call, for every way in which it can fail: the call
// alone, and it and all calls after it.

#include "sweep/faulty_run.h"

#include <algorithm>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
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

struct Action {
    const char* name;
    std::wstring option;
};

void PrintTo(const Action& action, std::ostream* out) {
    *out << action.name;
}

class FaultSweep : public testing::TestWithParam<Action> {
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

    for (std::size_t call = 0; call < calls_.size(); ++call) {
        for (std::size_t way = 0; way < calls_[call].ways; ++way) {
            Try(call, way, /*fromThereOn=*/false);
            Try(call, way, /*fromThereOn=*/true);
        }
    }
    std::cout << "fault sweep, " << GetParam().name << ": " << calls_.size() << " calls, " << tried_
              << " faults tried, " << failures_ << " failures\n";
}

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

// The two long ones next to each other, so that they are in different shares.
INSTANTIATE_TEST_SUITE_P(All, FaultSweep,
                         testing::Values(Action{"TheDefaultRun", L""},
                                         Action{"Configure", L"/CONFIGURE"},
                                         Action{"Stop", L"/STOP"}, Action{"Start", L"/START"},
                                         Action{"Disable", L"/DISABLE"}),
                         [](const auto& action) { return std::string(action.param.name); });

}  // namespace
