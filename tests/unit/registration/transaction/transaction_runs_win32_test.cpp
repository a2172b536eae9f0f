// The rows of transaction_runs_test.cpp with the real store, which must have the same results as
// the store in memory.

#include <gtest/gtest.h>

#include "tests/support/machine/disposable_profile_win32.h"
#include "tests/support/registration/model_store.h"
#include "tests/support/registration/run_generator.h"
#include "tests/support/registration/run_rows.h"
#include "tests/support/registration/windows_world_win32.h"

namespace altium_registration {
namespace {

class TransactionRunsOnWindows : public testing::Test {
 protected:
  void SetUp() override { KESTRUNE_NEEDS_DISPOSABLE_PROFILE(); }

  ModelWorld model;
  WindowsWorld windows;
};

/// Returns the moments as texts, one a line.
std::string TextOf(const std::vector<Moment>& moments) {
  std::string text;
  for (const Moment& moment : moments) {
    text += moment.Text() + "\n";
  }
  return text;
}

TEST_F(TransactionRunsOnWindows, StoreMakesTheCallsOfTheModel) {
  windows.flushes = true;
  for (const RunKind& kind : RunKinds()) {
    const Scenario scenario = {kind.name};
    EXPECT_EQ(TextOf(Play(windows, scenario).moments), TextOf(Play(model, scenario).moments));
  }
  const Scenario late = Scenario::Parse(kLateFailure);
  EXPECT_EQ(TextOf(Play(windows, late).moments), TextOf(Play(model, late).moments));
}

TEST_F(TransactionRunsOnWindows, EveryRowOfTheFileHolds) {
  for (const RunRow& row : RunRows()) {
    const RunOutcome outcome = Play(windows, row.scenario);
    EXPECT_TRUE(outcome.all_struck) << row.text;
    EXPECT_EQ(outcome.remains.saved, Play(model, row.scenario).remains.saved) << row.text;
    EXPECT_EQ(outcome.Line(), row.line) << row.scenario.Text();
  }
}

TEST_F(TransactionRunsOnWindows, IdempotentRunLeavesOnlyItsLog) {
  EXPECT_TRUE(Play(windows, {"idempotent"}).success);
  const auto backups = windows.Backups();
  ASSERT_EQ(backups.size(), 1U);
  EXPECT_EQ(backups.begin()->first, L"operation.log");
  EXPECT_EQ(backups.begin()->second, "Idempotent: no changes.\r\n");
}

}  // namespace
}  // namespace altium_registration
