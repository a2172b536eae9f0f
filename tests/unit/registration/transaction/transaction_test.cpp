#include "registration/transaction/transaction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "registration/transaction/global_projects.h"
#include "tests/support/registration/model_store.h"
#include "tests/support/scarce_memory.h"

namespace altium_registration {
namespace {

RegistryValue Entry(std::wstring name, std::wstring_view text) {
  return {std::move(name), kRegistryText, TextData(text)};
}

struct Fixture {
  ModelWorld world;
  RegistrationChange change;
  std::wstring message;
  std::vector<std::string> calls;

  Fixture() {
    world.rcs = "old";
    world.values = {Entry(L"Item0", L"A")};
    change.rcs_before = "old";
    change.rcs_after = "new";
    change.values_before = world.values;
    change.values_after = {Entry(L"Item0", L"A"), Entry(L"Item1", L"K")};
    change.validate = [](std::string_view text) { return text == "new"; };
  }

  bool Run(std::vector<ModelFault> faults = {}, ModelStore::Interference interference = {}) {
    ModelStore store(world, std::move(faults), std::move(interference));
    const bool success = RunTransaction(store, change, message);
    calls = store.Calls();
    return success;
  }

  [[nodiscard]] bool Called(std::string_view operation) const {
    return std::ranges::any_of(calls, [&](const std::string& call) {
      return call.starts_with(std::string(operation) + "#");
    });
  }
};

using Words = std::vector<std::string>;

TEST(Transaction, FileIsCommittedBeforeTheRegistry) {
  Fixture run;
  EXPECT_TRUE(run.Run());
  EXPECT_EQ(run.message, L"Commit validated; file and registry updated.");
  EXPECT_EQ(run.world.mutations, (Words{"backups", "temp", "replace", "dacl", "+Item1"}));
  EXPECT_EQ(run.world.log,
            (Words{"Before", "Intended", "Commit validated; file and registry updated."}));
}

TEST(Transaction, NothingToDoIsLoggedAndNeitherBackedUpNorWritten) {
  Fixture run;
  run.world.rcs = run.change.rcs_before = "new";
  run.change.values_after = run.change.values_before;
  EXPECT_TRUE(run.Run());
  EXPECT_EQ(run.message, L"Idempotent: no changes.");
  EXPECT_EQ(run.world.mutations, Words{});
  EXPECT_EQ(run.world.log, Words{"Idempotent: no changes."});
}

TEST(Transaction, NothingToDoWithAnUnwritableLogFails) {
  Fixture run;
  run.world.rcs = run.change.rcs_before = "new";
  run.change.values_after = run.change.values_before;
  EXPECT_FALSE(run.Run({{"Log#1", FaultPlace::Before}}));
  EXPECT_EQ(run.message, L"Cannot write operation log. Rollback complete (or no owned writes).");
}

TEST(Transaction, ListsThatDifferInOrderAndInCaseOfNamesAreTheSame) {
  Fixture run;
  run.world.rcs = run.change.rcs_before = "new";
  run.world.values = {Entry(L"other", L"x"), Entry(L"iTEM0", L"A")};
  run.change.values_before = {Entry(L"Item0", L"A"), Entry(L"Other", L"x")};
  run.change.values_after = {Entry(L"OTHER", L"x"), Entry(L"Item0", L"A")};
  EXPECT_TRUE(run.Run());
  EXPECT_EQ(run.message, L"Idempotent: no changes.");
}

TEST(Transaction, ChangeOfTheListAloneNeverReplacesTheFile) {
  Fixture run;
  run.world.rcs = run.change.rcs_before = "new";
  EXPECT_TRUE(run.Run());
  EXPECT_EQ(run.message, L"Commit validated; file and registry updated.");
  EXPECT_FALSE(run.Called("Commit"));
  EXPECT_EQ(run.world.mutations, (Words{"backups", "temp", "+Item1"}));
  EXPECT_FALSE(run.world.temporary);
}

TEST(Transaction, ChangeOfTheFileAloneStillChecksTheListBeforeApplyingNothing) {
  Fixture run;
  run.change.values_after = run.change.values_before;
  EXPECT_TRUE(run.Run());
  EXPECT_EQ(run.world.mutations, (Words{"backups", "temp", "replace", "dacl"}));
  EXPECT_EQ(std::ranges::count_if(
                run.calls, [](const std::string& call) { return call.starts_with("ReadValues"); }),
            4);
}

TEST(Transaction, FileChangedSincePlanningIsNeverReportedAsNothingToDo) {
  Fixture run;
  run.change.rcs_before = run.change.rcs_after;
  run.change.values_after = run.change.values_before;
  EXPECT_FALSE(run.Run());
  EXPECT_EQ(run.message,
            L"Source file changed before commit. Rollback complete (or no owned writes).");
}

TEST(Transaction, TextThatDoesNotValidateIsNeverPrepared) {
  Fixture run;
  run.change.validate = [](std::string_view) { return false; };
  EXPECT_FALSE(run.Run());
  EXPECT_EQ(run.message, L"In-memory validation failed. Rollback complete (or no owned writes).");
  EXPECT_EQ(run.world.mutations, Words{});
}

TEST(Transaction, TemporaryFileThatReadsBackDifferentlyIsNeverCommitted) {
  Fixture run;
  EXPECT_FALSE(run.Run({}, [](std::string_view call, ModelWorld& world) {
    if (call == "ReadReplacement#1") {
      world.temporary = "ne";
    }
  }));
  EXPECT_EQ(run.message,
            L"Temporary file validation failed. Rollback complete (or no owned writes).");
  EXPECT_EQ(run.world.rcs, "old");
}

TEST(Transaction, TemporaryFileWithAnotherTextIsNeverCommittedHoweverValid) {
  Fixture run;
  run.change.validate = [](std::string_view text) { return text != "old"; };
  EXPECT_FALSE(run.Run({}, [](std::string_view call, ModelWorld& world) {
    if (call == "ReadReplacement#1") {
      world.temporary = "another";
    }
  }));
  EXPECT_EQ(run.message,
            L"Temporary file validation failed. Rollback complete (or no owned writes).");
}

TEST(Transaction, FirstFailingCheckNamesTheOutcome) {
  Fixture run;
  run.world.values.push_back(Entry(L"Item7", L"F"));
  run.change.validate = [](std::string_view) { return false; };
  EXPECT_FALSE(run.Run());
  EXPECT_EQ(run.message, L"Registry changed concurrently. Rollback complete (or no owned writes).");
}

TEST(Transaction, RegistryFailureAfterTheFileRestoresBoth) {
  Fixture run;
  EXPECT_FALSE(run.Run({{"WriteValue#1", FaultPlace::After}}));
  EXPECT_EQ(run.message,
            L"Write Global Projects value (registry 5) Rollback complete (or no owned writes).");
  EXPECT_EQ(run.world.rcs, "old");
  EXPECT_TRUE(SameValues(run.world.values, run.change.values_before));
}

TEST(Transaction, WriteOfAnotherProgramIsNotMistakenForOurOwnFailedOne) {
  Fixture run;
  EXPECT_FALSE(
      run.Run({{"WriteValue#1", FaultPlace::Before}}, [](std::string_view call, ModelWorld& world) {
        if (call == "WriteValue#1") {
          world.values.push_back(Entry(L"Item1", L"foreign"));
        }
      }));
  EXPECT_EQ(run.message,
            L"Write Global Projects value (registry 5) Registry recovery blocked: Registry changed "
            L"concurrently. MANUAL RECOVERY REQUIRED; backups retained.");
  EXPECT_EQ(run.world.rcs, "old");
  EXPECT_EQ(run.world.values.size(), 2U);
}

TEST(Transaction, WriteThatAnotherProgramTookBackIsNotMistakenForOneNotYetDone) {
  Fixture run;
  EXPECT_FALSE(run.Run({{"CheckSecurity#2", FaultPlace::Before}},
                       [](std::string_view call, ModelWorld& world) {
                         if (call == "CheckSecurity#2") {
                           world.values.pop_back();
                         }
                       }));
  EXPECT_EQ(run.message,
            L"Read RCS security (Win32 5) Registry recovery blocked: Registry changed concurrently."
            L" MANUAL RECOVERY REQUIRED; backups retained.");
  EXPECT_EQ(run.world.rcs, "old");
}

TEST(Transaction, NamesWithLeadingZerosAreWrittenInTheOrderOfTheirNumbers) {
  Fixture run;
  run.world.values = run.change.values_before = {Entry(L"Item10", L"B"), Entry(L"Item009", L"A")};
  std::wstring error;
  ASSERT_TRUE(
      PlanGlobalProjects(run.change.values_before, L"K", true, run.change.values_after, error));
  EXPECT_TRUE(run.Run());
  EXPECT_EQ(run.world.mutations, (Words{"backups", "temp", "replace", "dacl", "+Item0", "+Item1",
                                        "+Item2", "-Item009", "-Item10"}));
  // Undone the other way round.
  Fixture undone;
  undone.world.values = undone.change.values_before = run.change.values_before;
  undone.change.values_after = run.change.values_after;
  EXPECT_FALSE(undone.Run({{"CheckSecurity#2", FaultPlace::Before}}));
  EXPECT_EQ(Words(undone.world.mutations.end() - 7, undone.world.mutations.end()),
            (Words{"+Item10", "+Item009", "-Item2", "-Item1", "-Item0", "restore", "dacl"}));
}

TEST(Transaction, MemoryRunningOutIsAFailureLikeAnyOther) {
  Fixture run;
  EXPECT_FALSE(run.Run({}, [](std::string_view call, ModelWorld&) {
    if (call == "ReadRcs#3") {
      throw std::bad_alloc();
    }
  }));
  EXPECT_EQ(run.message, L"Not enough memory. Rollback complete (or no owned writes).");
  EXPECT_EQ(run.world.rcs, "old");
}

/// What holds however a run ended.
void ExpectLawfulEnd(const Fixture& run, bool success) {
  const bool is_old =
      run.world.rcs == "old" && SameValues(run.world.values, run.change.values_before);
  if (success) {
    EXPECT_EQ(run.world.rcs, "new");
    EXPECT_TRUE(SameValues(run.world.values, run.change.values_after));
  } else if (run.message.ends_with(L" Rollback complete (or no owned writes).")) {
    EXPECT_TRUE(is_old);
  } else {
    EXPECT_TRUE(run.message.ends_with(L" MANUAL RECOVERY REQUIRED; backups retained."));
    // Nothing is left half done without a try to put it back.
    EXPECT_TRUE(is_old || run.Called("RollBack") ||
                run.message.find(L" recovery blocked: ") != std::wstring::npos ||
                run.message.starts_with(L"Not enough memory."));
  }
}

/// One run with two refused allocations; the number of allocations that it asked for.
long RunWithRefusedAllocations(long first, long second, int& rollbacks) {
  Fixture run;
  long asked = 0;
  bool success = false;
  bool begun = true;
  {
    ModelStore store(run.world);
    const kestrune::ScarceMemory scarce(first, second);
    try {
      success = RunTransaction(store, run.change, run.message);
    } catch (const std::bad_alloc&) {
      begun = false;
    }
    asked = kestrune::ScarceMemory::Asked();
    run.calls = store.Calls();
  }
  rollbacks += run.Called("RollBack") ? 1 : 0;
  if (begun) {
    ExpectLawfulEnd(run, success);
  } else {
    EXPECT_EQ(run.calls, Words{});
  }
  return asked;
}

TEST(Transaction, EveryPairOfRefusedAllocationsIsRolledBackOrSaidToBeBlocked) {
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

TEST(Transaction, UnexpectedExceptionAtAnyCallIsRolledBackAndNamed) {
  Fixture whole;
  ASSERT_TRUE(whole.Run());
  for (const std::string& call : whole.calls) {
    SCOPED_TRACE(call);
    Fixture run;
    const bool success = run.Run({}, [&](std::string_view now, ModelWorld&) {
      if (now == call) {
        throw std::runtime_error("unexpected");
      }
    });
    // Only the line that says that everything is done may be missing.
    EXPECT_EQ(success, call == whole.calls.back());
    ExpectLawfulEnd(run, success);
    if (!success) {
      EXPECT_EQ(run.message, L"Unexpected failure. Rollback complete (or no owned writes).");
    }
  }
}

TEST(Transaction, ListOfThousandsOfForeignValuesIsAppliedAndUndone) {
  Fixture run;
  run.world.values.clear();
  for (int i = 0; i < 10'000; ++i) {
    run.world.values.push_back(Entry(L"Other" + std::to_wstring(i), L"x"));
  }
  run.change.values_before = run.world.values;
  run.change.values_after = run.world.values;
  run.change.values_after.push_back(Entry(L"Item0", L"K"));
  EXPECT_FALSE(run.Run({{"CheckSecurity#2", FaultPlace::Before}}));
  EXPECT_EQ(run.message, L"Read RCS security (Win32 5) Rollback complete (or no owned writes).");
  EXPECT_TRUE(SameValues(run.world.values, run.change.values_before));
  EXPECT_TRUE(run.Run());
}

}  // namespace
}  // namespace altium_registration
