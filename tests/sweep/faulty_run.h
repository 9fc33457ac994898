#pragma once

#include "support/guard_page_heap.h"
#include "sweep/fault_injector.h"
#include "sweep/installed_product.h"
#include "sweep/run_rules.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace test {

// The calls of a run, and its errors.
struct Outcome {
    std::vector<PlatformCall> calls;
    std::vector<std::string> broken;
};

// Runs the program on a machine of its own, with the chosen faults.
inline Outcome RunWith(const std::wstring& option, const FaultInjector::Decision& decision) {
    const GuardPages without(false);
    InstalledProduct product;
    Outcome outcome;
    {
        const FaultInjector injector(product.TaskService(), decision);
        product.Run(option);
        outcome.calls = injector.Calls();
    }
    outcome.broken = BrokenRules(product, option);
    return outcome;
}

inline std::optional<std::size_t> NoFault(std::size_t /*call*/) {
    return std::nullopt;
}

}  // namespace test
