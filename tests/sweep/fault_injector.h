#pragma once

#include "support/fake_task_service.h"

#include <windows.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace test {

// A platform call by the program, and in how many ways it can fail.
struct PlatformCall {
    std::string_view function;  // a literal
    std::size_t ways = 0;

    bool operator==(const PlatformCall&) const = default;
};

// While it lives, intercepts calls between the program and the platform (or fakes that were there
// before): counts the calls that can fail, and makes those fail that it is told to. A failed call
// does not reach the platform, unless it releases something: then it is carried out, and reported
// as failed. At most one lives at a time.
class FaultInjector {
public:
    // Asked for each call, by its number in the run: how it is to fail, if at all. A number that is
    // too high is the last way.
    using Decision = std::function<std::optional<std::size_t>(std::size_t call)>;

    FaultInjector(FakeTaskService& taskService, Decision decision);
    FaultInjector(const FaultInjector&) = delete;
    FaultInjector& operator=(const FaultInjector&) = delete;
    ~FaultInjector();

    // So far, in order.
    [[nodiscard]] const std::vector<PlatformCall>& Calls() const { return calls_; }

    // How many of them failed.
    [[nodiscard]] std::size_t Failed() const { return failed_; }

    // How the current call is to fail.
    std::optional<std::size_t> Next(std::string_view function, std::size_t ways);

    // The imported functions that it intercepts.
    [[nodiscard]] std::vector<std::string> Functions() const;

private:
    class Import;
    template <auto Function, typename Signature>
    class FaultyImport;
    class LookupImport;

    FakeTaskService& taskService_;
    Decision decision_;
    std::vector<PlatformCall> calls_;
    std::size_t failed_ = 0;
    std::vector<std::unique_ptr<Import>> imports_;
};

}  // namespace test
