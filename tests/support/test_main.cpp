#include "support/handle_ledger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>

namespace {

// Keeps a ledger around each test, which fails if it leaves a handle open.
class LedgerListener : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override { ledger_.emplace(); }
    void OnTestEnd(const testing::TestInfo& /*test*/) override {
        EXPECT_THAT(ledger_->Findings(), testing::IsEmpty());
        ledger_.reset();
    }

    std::optional<test::HandleLedger> ledger_;
};

}  // namespace

int wmain(int argumentCount, wchar_t* arguments[]) {
    testing::InitGoogleMock(&argumentCount, arguments);
    testing::UnitTest::GetInstance()->listeners().Append(new LedgerListener);
    return RUN_ALL_TESTS();
}
