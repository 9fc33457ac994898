#pragma once

#include "support/import_hook.h"

#include <gmock/gmock.h>
#include <type_traits>

namespace test {

// An imported function whose calls can be expected. What no expectation answers otherwise goes on
// to the platform.
//
//     MockImport<&::RegCloseKey> close;
//     EXPECT_CALL(close, Call(key)).Times(1);
template <auto Function>
class MockImport : public testing::MockFunction<std::remove_pointer_t<decltype(Function)>> {
public:
    MockImport() {
        ON_CALL(*this, Call).WillByDefault([this](auto... arguments) {
            return hook_.Forward(arguments...);
        });
    }

private:
    ImportHook<Function> hook_{this->AsStdFunction()};
};

}  // namespace test
