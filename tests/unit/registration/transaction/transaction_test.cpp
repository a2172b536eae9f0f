#include "registration/transaction/transaction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/text/text.h"
#include "registration/transaction/global_projects.h"
#include "tests/support/registration/model_store.h"
#include "tests/support/scarce_memory.h"

namespace altium_registration {
namespace {

using Words = std::vector<std::string>;

/// A run over the model, whose change and moments a test can set.
struct Fixture {
  ModelWorld world;
  std::vector<Disturbance> disturbances;
  RunScript script{disturbances, {}};
  RegistrationChange change;
  std::wstring message;

  Fixture() {
    change = ChangeOf(KindOf("install"), script);
    change.values_before = {TextEntry(L"Item0", L"A")};
    change.values_after = {TextEntry(L"Item0", L"A"), TextEntry(L"Item1", L"K")};
    Begin();
  }

  void Begin() { world.Begin(change.rcs_before, change.values_before); }

  void WantList(std::vector<RegistryValue> before, std::vector<RegistryValue> after) {
    change.values_before = std::move(before);
    change.values_after = std::move(after);
    Begin();
  }

  bool Run() {
    const auto store = Observed(world.Open(script), script);
    return RunTransaction(*store, change, message);
  }

  /// Runs with an end state that is rejected.
  bool RunAndUndo() {
    const auto validate = change.validate;
    change.validate = [&, judged = 0](std::string_view text) mutable {
      return ++judged < 3 && validate(text);
    };
    return Run();
  }

  [[nodiscard]] bool Called(std::string_view operation) const {
    return std::ranges::find(script.Moments(), operation, &Moment::operation) !=
           script.Moments().end();
  }
};

TEST(Transaction, OrderAndCaseOfNamesAreIgnored) {
  Fixture run;
  run.change.rcs_before = run.change.rcs_after;
  run.WantList({TextEntry(L"other", L"x"), TextEntry(L"iTEM0", L"A")},
               {TextEntry(L"OTHER", L"x"), TextEntry(L"Item0", L"A")});
  run.change.values_before = {TextEntry(L"Item0", L"A"), TextEntry(L"Other", L"x")};
  EXPECT_TRUE(run.Run());
  EXPECT_EQ(run.message, L"Idempotent: no changes.");
}

TEST(Transaction, ListAloneIsChangedWithoutReplacingFile) {
  Fixture run;
  run.change.rcs_before = run.change.rcs_after;
  run.Begin();
  EXPECT_TRUE(run.Run());
  EXPECT_FALSE(run.Called("Commit"));
  EXPECT_EQ(run.world.list_writes, Words{"+Item1"});
}

TEST(Transaction, OtherValidTextIsNeverCommitted) {
  Fixture run;
  run.change.validate = [](std::string_view text) { return text != "old"; };
  run.script.on_moment = [&](const Moment& moment) {
    if (moment.operation == "ReadReplacement") {
      run.world.SetFile("temp", "another");
    }
  };
  EXPECT_FALSE(run.Run());
  EXPECT_EQ(run.message,
            L"Temporary file validation failed. Rollback complete (or no owned writes).");
}

TEST(Transaction, FirstFailingCheckNamesTheOutcome) {
  Fixture run;
  run.world.SetEntry(L"Item7", L"F");
  run.change.validate = [](std::string_view) { return false; };
  EXPECT_FALSE(run.Run());
  EXPECT_EQ(run.message, L"Registry changed concurrently. Rollback complete (or no owned writes).");
}

TEST(Transaction, RevertedWriteIsNoPendingOne) {
  Fixture run;
  run.script.on_moment = [&](const Moment& moment) {
    if (moment.Text() == "ReadValues#5") {
      run.world.SetEntry(L"Item1", nullptr);
    }
  };
  EXPECT_FALSE(run.RunAndUndo());
  EXPECT_EQ(run.message,
            L"Final state validation failed. Registry recovery blocked: Registry changed "
            L"concurrently. MANUAL RECOVERY REQUIRED; backups retained.");
  EXPECT_EQ(run.world.files.at("rcs").text, "old");
}

TEST(Transaction, LeadingZerosAreOrderedByNumber) {
  Fixture run;
  run.WantList({TextEntry(L"Item10", L"B"), TextEntry(L"Item009", L"A")},
               {TextEntry(L"Item0", L"A"), TextEntry(L"Item1", L"B"), TextEntry(L"Item2", L"K")});
  EXPECT_FALSE(run.RunAndUndo());
  EXPECT_EQ(run.world.list_writes, (Words{"+Item0", "+Item1", "+Item2", "-Item009", "-Item10",
                                          "+Item10", "+Item009", "-Item2", "-Item1", "-Item0"}));
}

/// Checks the laws of every run.
void ExpectLawfulEnd(Fixture& run, bool success) {
  const Remains remains = run.world.Look();
  const bool is_old = remains.rcs == "old" && SameValues(*remains.values, run.change.values_before);
  if (success) {
    EXPECT_EQ(remains.rcs, "new");
    EXPECT_TRUE(SameValues(*remains.values, run.change.values_after));
  } else if (run.message.ends_with(L" Rollback complete (or no owned writes).")) {
    EXPECT_TRUE(is_old);
  } else {
    EXPECT_TRUE(run.message.ends_with(L" MANUAL RECOVERY REQUIRED; backups retained."));
    // A half-written state is never left without an attempt to roll back.
    EXPECT_TRUE(is_old || run.Called("RollBack") ||
                run.message.find(L" recovery blocked: ") != std::wstring::npos ||
                run.message.starts_with(L"Not enough memory."));
  }
}

/// Refuses two allocations of a run and returns how many it requested.
long RunWithRefusedAllocations(long first, long second, int& rollbacks) {
  Fixture run;
  long asked = 0;
  bool success = false;
  bool begun = true;
  {
    const auto store = Observed(run.world.Open(run.script), run.script);
    const kestrune::ScarceMemory scarce(first, second);
    try {
      success = RunTransaction(*store, run.change, run.message);
    } catch (const std::bad_alloc&) {
      begun = false;
    }
    asked = kestrune::ScarceMemory::Asked();
  }
  rollbacks += run.Called("RollBack") ? 1 : 0;
  if (begun) {
    ExpectLawfulEnd(run, success);
  } else {
    EXPECT_TRUE(run.script.Moments().empty());
  }
  return asked;
}

TEST(Transaction, PairsOfRefusedAllocationsAreRolledBack) {
  constexpr long kNone = std::numeric_limits<long>::max();
  int rollbacks = 0;
  const long count = RunWithRefusedAllocations(kNone, kNone, rollbacks);
  ASSERT_EQ(rollbacks, 0);
  for (long first = 0; first < count; ++first) {
    const long asked = RunWithRefusedAllocations(first, kNone, rollbacks);
    for (long second = first + 1; second < asked; ++second) {
      SCOPED_TRACE(first);
      SCOPED_TRACE(second);
      RunWithRefusedAllocations(first, second, rollbacks);
    }
  }
  EXPECT_GT(rollbacks, count);
}

/// Throws an exception at each operation in turn, which must be rolled back and named.
template <class Exception>
void ThrowAtEachOperation(const Exception& exception, const std::wstring& name) {
  Fixture whole;
  ASSERT_TRUE(whole.Run());
  for (const Moment& at : whole.script.Moments()) {
    if (!at.call.empty()) {
      continue;
    }
    SCOPED_TRACE(at.Text());
    Fixture run;
    run.script.on_moment = [&](const Moment& moment) {
      if (moment.IsSame(at)) {
        throw exception;
      }
    };
    const bool success = run.Run();
    // Only the log's last line, which reports the success, may be missing.
    EXPECT_EQ(success, at.operation == "Log");
    ExpectLawfulEnd(run, success);
    if (!success) {
      EXPECT_EQ(run.message, name + L" Rollback complete (or no owned writes).");
    }
  }
}

TEST(Transaction, UnexpectedExceptionIsRolledBackAndNamed) {
  ThrowAtEachOperation(std::runtime_error("unexpected"), L"Unexpected failure.");
  ThrowAtEachOperation(std::bad_alloc(), L"Not enough memory.");
}

/// Returns how often a run reads a list to which it adds two entries, and removes them again.
std::ptrdiff_t ReadingsOf(int foreign) {
  Fixture run;
  std::vector<RegistryValue> values;
  for (int i = 0; i < foreign; ++i) {
    values.push_back(TextEntry((L"Other" + std::to_wstring(i)).c_str(), L"x"));
  }
  std::vector<RegistryValue> after = values;
  after.push_back(TextEntry(L"Item0", L"K"));
  after.push_back(TextEntry(L"Item1", L"L"));
  run.WantList(values, after);
  EXPECT_FALSE(run.RunAndUndo());
  EXPECT_EQ(run.message, L"Final state validation failed. Rollback complete (or no owned writes).");
  EXPECT_TRUE(SameValues(*run.world.values, values));
  return std::ranges::count_if(run.script.Moments(), [](const Moment& moment) {
    return moment.operation == "ReadValues" && moment.call.empty();
  });
}

// A list of more than 256 values is not read before each step. A rollback begins with two values
// more.
TEST(Transaction, LongListIsReadLessOften) {
  EXPECT_EQ(ReadingsOf(253), ReadingsOf(1));
  EXPECT_EQ(ReadingsOf(254), ReadingsOf(1) - 1);
  EXPECT_EQ(ReadingsOf(255), ReadingsOf(1) - 1);
  EXPECT_EQ(ReadingsOf(256), ReadingsOf(1) - 2);
}

}  // namespace
}  // namespace altium_registration
