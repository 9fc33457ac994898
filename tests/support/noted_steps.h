#pragma once

#include "support/call_log.h"
#include "support/import_hook.h"
#include "support/print_hook.h"

#include <string>
#include <type_traits>
#include <vector>

namespace test {

// While they live, these add events to one list of steps, in order: each write to the progress log,
// and each call of an imported function, under a name chosen by the test.

class NotedPrints {
public:
    explicit NotedPrints(std::vector<std::string>& steps)
        : hook_([&steps](const std::string& text) { steps.push_back(text); }) {}

    // Among the calls of a fake, as "print(text)".
    explicit NotedPrints(CallLog& calls)
        : hook_([&calls](const std::string& text) { calls.Add("print", text); }) {}

private:
    PrintHook hook_;
};

template <auto Function, typename Signature = std::remove_pointer_t<decltype(Function)>>
class NotedCalls;

template <auto Function, typename Result, typename... Arguments>
class NotedCalls<Function, Result(Arguments...)> {
public:
    NotedCalls(std::vector<std::string>& steps, const char* name)
        : hook_([this, &steps, name](Arguments... arguments) {
              steps.emplace_back(name);
              return hook_.Forward(arguments...);
          }) {}

private:
    ImportHook<Function> hook_;
};

}  // namespace test
