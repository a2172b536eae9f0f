// Whole registrations over a store in memory, disturbed at every moment: exact rows, and laws where
// rows would be too many. transaction_runs_win32_test.cpp runs the same rows with the real store.

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "registration/transaction/global_projects.h"
#include "tests/support/registration/model_store.h"
#include "tests/support/registration/registration_run.h"
#include "tests/support/registration/run_generator.h"
#include "tests/support/registration/run_rows.h"

namespace altium_registration {
namespace {

std::string RowOf(RegistrationWorld& world, const Scenario& scenario) {
  const RunOutcome outcome = Play(world, scenario);
  EXPECT_TRUE(outcome.all_struck) << scenario.Text();
  return scenario.Text() + " -> " + outcome.Line();
}

/// Returns the rows with their current results: those of the file and those that it must have.
std::set<std::string> RowsNow(RegistrationWorld& world) {
  std::map<std::string, Scenario> scenarios;
  for (const RunRow& row : RunRows()) {
    scenarios.emplace(row.scenario.Text(), row.scenario);
  }
  for (const Scenario& scenario : ScenariosWithRows(world)) {
    scenarios.emplace(scenario.Text(), scenario);
  }
  std::set<std::string> rows;
  for (const auto& [text, scenario] : scenarios) {
    rows.insert(RowOf(world, scenario));
  }
  return rows;
}

// If rows differ: print the file with DISABLED_PrintRows, and compare.
TEST(TransactionRuns, EveryRowOfTheFileHolds) {
  ModelWorld world;
  std::set<std::string> rows;
  for (const RunRow& row : RunRows()) {
    rows.insert(std::string(row.text));
  }
  const std::set<std::string> now = RowsNow(world);
  for (const std::string& row : now) {
    EXPECT_TRUE(rows.contains(row)) << "now: " << row;
  }
  EXPECT_EQ(rows.size(), now.size());
  EXPECT_TRUE(std::ranges::is_sorted(RunRows(), {}, &RunRow::text));
}

/// Prints tests/support/registration/run_rows.inc with the current results.
TEST(TransactionRuns, DISABLED_PrintRows) {
  ModelWorld world;
  for (const std::string& row : RowsNow(world)) {
    std::cout << '"' << row << "\",\n";
  }
}

/// Runs a scenario without changes by other programs, and checks the laws.
RunOutcome PlayLawfully(ModelWorld& world, const Scenario& scenario) {
  RunOutcome outcome = Play(world, scenario);
  EXPECT_TRUE(outcome.all_struck) << scenario.Text();
  EXPECT_EQ(BrokenLaws(KindOf(scenario.kind), outcome), "")
      << scenario.Text() << " -> " << outcome.Line();
  return outcome;
}

TEST(TransactionRuns, EveryFaultObeysTheLaws) {
  ModelWorld world;
  for (const RunKind& kind : RunKinds()) {
    for (const Disturbance& fault : FaultsAt(MomentsOf(world, {kind.name}))) {
      PlayLawfully(world, {kind.name, {fault}});
      // A temporary file may remain only when deleting it failed.
      const Remains remains = world.Look();
      EXPECT_TRUE(remains.left.empty() || fault.moment.operation == "Close" ||
                  fault.moment.call == "Delete")
          << Scenario{kind.name, {fault}}.Text();
    }
  }
}

/// Registers or removes K again, planned on the current state, and checks the end state.
void CheckNextRun(ModelWorld& world, bool installs) {
  const std::vector<Disturbance> none;
  RunScript script(none, {});
  RegistrationChange change = ChangeOf(KindOf("install"), script);
  change.rcs_before = world.files.at("rcs").text;
  change.values_before = world.values.value_or(std::vector<RegistryValue>());
  std::wstring text;
  ASSERT_TRUE(PlanGlobalProjects(change.values_before, L"K", installs, change.values_after, text));
  {
    const auto store = world.Open(script);
    script.Begin("Next");
    EXPECT_TRUE(RunTransaction(*store, change, text));
  }
  const Remains remains = world.Look();
  EXPECT_EQ(remains.rcs, "new");
  EXPECT_EQ(remains.security, 0U);
  EXPECT_TRUE(
      SameValues(remains.values.value_or(std::vector<RegistryValue>()), change.values_after));
  EXPECT_EQ(std::ranges::count(ListText(remains.values), 'K'), installs ? 1 : 0);
  for (const char entry : {'A', 'B'}) {
    EXPECT_EQ(ListText(remains.values).find(entry) != std::string::npos,
              ListText(change.values_before).find(entry) != std::string::npos);
  }
}

/// Checks the laws for a killed process, acts as the user would, and runs again.
void CheckAfterDeath(ModelWorld& world, const Scenario& scenario) {
  SCOPED_TRACE(scenario.Text());
  EXPECT_TRUE(PlayLawfully(world, scenario).died);
  if (!world.files.contains("rcs")) {
    // The user renames the file with the complete old text.
    const auto whole = std::ranges::find_if(
        world.files, [](const auto& file) { return file.second.text == "old"; });
    ASSERT_NE(whole, world.files.end());
    world.files["rcs"] = whole->second;
  }
  // The next run deletes the files of a dead one; its own files have other names.
  for (const char* working : {"temp", "displaced", "undone", "spare"}) {
    world.files.erase(working);
  }
  CheckNextRun(world, scenario.kind != "remove");
}

TEST(TransactionRuns, EveryDeathObeysTheLaws) {
  ModelWorld world;
  for (const RunKind& kind : RunKinds()) {
    for (const Disturbance& death : DeathsAt(MomentsOf(world, {kind.name}))) {
      CheckAfterDeath(world, {kind.name, {death}});
    }
    if (kind.name == "idempotent") {
      continue;
    }
    const Disturbance late = Scenario::Parse(kLateFailure).disturbances.front();
    for (const Disturbance& death : DeathsAt(MomentsOf(world, {kind.name, {late}}))) {
      CheckAfterDeath(world, {kind.name, {late, death}});
    }
  }
}

/// Returns the faults after which different changes must be rolled back: those of the replacement,
/// and the last one of every other operation except reading the list.
std::vector<Disturbance> FirstFaults(ModelWorld& world, std::string_view kind) {
  const std::vector<Disturbance> all = FaultsAt(MomentsOf(world, {kind}));
  std::vector<Disturbance> firsts;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const Moment& moment = all[i].moment;
    const bool is_last = i + 1 == all.size() || all[i + 1].moment.operation != moment.operation ||
                         all[i + 1].moment.number != moment.number;
    if (moment.operation != "Close" && moment.operation != "ReadValues" &&
        (is_last || (moment.operation == "Commit" && moment.changes))) {
      firsts.push_back(all[i]);
    }
  }
  return firsts;
}

/// Returns the text of the failure alone, without the outcome of the rollback.
std::string FailureOf(std::string message) {
  for (const char* next : {" Registry recovery blocked: ", " File recovery blocked: ",
                           " MANUAL RECOVERY", " Rollback complete"}) {
    message.resize(std::min(message.find(next), message.size()));
  }
  return message;
}

bool IsInSameOperation(const Disturbance& left, const Disturbance& right) {
  return left.moment.operation == right.moment.operation &&
         left.moment.number == right.moment.number;
}

TEST(TransactionRuns, PairOfFaultsNamesFirstAndBlocked) {
  ModelWorld world;
  for (const char* kind : {"install", "remove"}) {
    for (const Disturbance& first : FirstFaults(world, kind)) {
      if (std::string_view(kind) == "remove" && first.moment.operation != "RemoveValue") {
        continue;
      }
      const RunOutcome single = PlayLawfully(world, {kind, {first}});
      if (single.success) {
        continue;
      }
      for (const Disturbance& second : FaultsAt(MomentsOf(world, {kind, {first}}))) {
        if (!second.moment.changes && second.moment.repeat > 1) {
          continue;
        }
        const Scenario pair = {kind, {first, second}};
        const RunOutcome outcome = PlayLawfully(world, pair);
        // Of two faults in one operation the later one may be reported.
        const bool is_named =
            FailureOf(outcome.message) == FailureOf(single.message) ||
            (IsInSameOperation(first, second) &&
             FailureOf(outcome.message) == FailureOf(Play(world, {kind, {second}}).message));
        EXPECT_TRUE(is_named) << pair.Text() << " -> " << outcome.Line();
      }
    }
  }
}

/// A change by another program, and its result unless it is overwritten.
struct ForeignAct {
  const char* what;
  bool (*stays)(const Remains& remains);
};

bool HasEntry(const Remains& remains, const char* entry) {
  return ListText(remains.values).find(entry) != std::string::npos;
}

constexpr ForeignAct kForeignActs[] = {
    {"file changes", [](const Remains& remains) { return remains.rcs == "foreign"; }},
    {"file deleted", [](const Remains& remains) { return !remains.rcs; }},
    {"owner changes", [](const Remains& remains) { return (remains.security & kOtherOwner) != 0; }},
    {"dacl changes", [](const Remains& remains) { return (remains.security & kOtherDacl) != 0; }},
    {"list grows", [](const Remains& remains) { return HasEntry(remains, "9=F"); }},
    {"Item0 changes", [](const Remains& remains) { return HasEntry(remains, "0=F"); }},
    {"Item1 changes", [](const Remains& remains) { return HasEntry(remains, "1=F"); }},
    {"Item2 changes", [](const Remains& remains) { return HasEntry(remains, "2=F"); }},
};

/// Returns whether the change is made between the check and the write of the same value; the
/// registry has no write on condition that a value is unchanged.
bool IsOverwritten(const Moment& moment, const ForeignAct& act) {
  return std::string_view(act.what).starts_with("Item") &&
         (moment.operation == "WriteValue" || moment.operation == "RemoveValue");
}

/// Returns whether the file that the change needs is absent.
bool IsIdle(const Scenario& scenario, const ForeignAct& act) {
  const std::string_view what = act.what;
  return !scenario.disturbances.empty() && scenario.disturbances[0].what == "loses the file" &&
         (what == "file deleted" || what == "owner changes" || what == "dacl changes");
}

TEST(TransactionRuns, ForeignChangeStaysInEveryFailure) {
  ModelWorld world;
  for (const RunKind& kind : RunKinds()) {
    std::vector<Scenario> scenarios = {{kind.name}};
    for (const Disturbance& fault : FirstFaults(world, kind.name)) {
      if (kind.name == "install" || fault.moment.operation == "RemoveValue") {
        scenarios.push_back({kind.name, {fault}});
      }
    }
    for (const Scenario& scenario : scenarios) {
      for (const Moment& moment : OperationsOf(world, scenario)) {
        for (const ForeignAct& act : kForeignActs) {
          if (IsOverwritten(moment, act) || IsIdle(scenario, act)) {
            continue;
          }
          Scenario disturbed = scenario;
          disturbed.disturbances.push_back({moment, act.what});
          const RunOutcome outcome = Play(world, disturbed);
          EXPECT_TRUE(act.stays(outcome.remains)) << disturbed.Text() << " -> " << outcome.Line();
        }
      }
    }
  }
}

}  // namespace
}  // namespace altium_registration
