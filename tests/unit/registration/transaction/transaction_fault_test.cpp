// Every way in which one call of a registration can go wrong, and what is left then. The rows stand
// in transaction_fault_table.h; here they are compared with what the transaction does, and a call
// without a row is a failure.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/text/text.h"
#include "registration/transaction/global_projects.h"
#include "registration/transaction/transaction.h"
#include "tests/support/registration/model_store.h"
#include "tests/unit/registration/transaction/transaction_fault_table.h"

namespace altium_registration {
namespace {

using kestrune::Utf8FromWide;

constexpr std::string_view kOld = "old";
constexpr std::string_view kNew = "new";

RegistryValue Entry(const wchar_t* name, const wchar_t* text) {
  return {name, kRegistryText, TextData(text)};
}

/// Two foreign projects with gaps in their numbering: A at Item1, B at Item3. Registering K makes
/// three writes and one removal.
ModelWorld WorldBefore() {
  ModelWorld world;
  world.rcs = kOld;
  world.values = {Entry(L"Item1", L"A"), Entry(L"Item3", L"B")};
  return world;
}

bool IsNew(std::string_view text) {
  return text == kNew;
}

std::vector<RegistryValue> PlanFor(const std::vector<RegistryValue>& values) {
  std::vector<RegistryValue> plan;
  std::wstring error;
  EXPECT_TRUE(PlanGlobalProjects(values, L"K", true, plan, error)) << Utf8FromWide(error);
  return plan;
}

RegistrationChange ChangeFor(const ModelWorld& world) {
  RegistrationChange change;
  change.rcs_before = world.rcs.value_or(std::string());
  change.rcs_after = kNew;
  change.values_before = world.values;
  change.values_after = PlanFor(world.values);
  change.validate = IsNew;
  return change;
}

/// "0=A 1=B 2=K", by name.
std::string KeyText(const std::vector<RegistryValue>& values) {
  std::map<std::string, std::string> sorted;
  for (const RegistryValue& value : values) {
    std::wstring text;
    std::wstring error;
    EXPECT_TRUE(ItemText(value, text, error));
    sorted[Utf8FromWide(value.name).substr(4)] = Utf8FromWide(text);
  }
  std::string joined;
  for (const auto& [index, text] : sorted) {
    joined.append(joined.empty() ? "" : " ").append(index).append("=").append(text);
  }
  return joined;
}

std::string Join(const std::vector<std::string>& words, const std::string& message = {}) {
  std::string joined;
  for (const std::string& word : words) {
    joined += (joined.empty() ? "" : " ") + (word == message ? "=" : word);
  }
  return joined;
}

struct Outcome {
  bool success = false;
  bool died = false;
  std::string message;
  std::vector<std::string> calls;
  /// Every place at which one of these calls can go wrong.
  std::vector<ModelFault> faults;
  bool all_faults_struck = false;
};

Outcome RunOnce(ModelWorld& world, const std::vector<ModelFault>& faults = {},
                const ModelStore::Interference& interference = {}) {
  const RegistrationChange change = ChangeFor(world);
  Outcome outcome;
  ModelStore store(world, faults, interference);
  std::wstring message;
  outcome.success = RunTransaction(store, change, message);
  outcome.died = store.Died();
  outcome.message = outcome.died ? "(dead)" : Utf8FromWide(message);
  outcome.calls = store.Calls();
  outcome.faults = store.Faults();
  outcome.all_faults_struck = store.AllFaultsStruck();
  return outcome;
}

struct OwnedRow {
  std::string fault, file, key, left, mutations, log, message;
  bool operator==(const OwnedRow&) const = default;
};

OwnedRow OwnedFrom(const FaultRow& row) {
  return {row.fault, row.file, row.key, row.left, row.mutations, row.log, row.message};
}

/// As it stands in the table.
std::ostream& operator<<(std::ostream& out, const OwnedRow& row) {
  const char* const separator = "\", \"";
  return out << "    {\"" << row.fault << separator << row.file << separator << row.key << separator
             << row.left << "\",\n     \"" << row.mutations << separator << row.log
             << "\",\n     \"" << row.message << "\"},";
}

/// "temp displaced=old"; a text that says more than the word does stands behind it.
std::vector<std::string> Leftovers(const ModelWorld& world) {
  std::vector<std::string> words;
  if (world.temporary) {
    words.push_back(world.temporary == kNew ? "temp" : "temp=" + *world.temporary);
  }
  if (world.displaced) {
    words.push_back("displaced=" + *world.displaced);
  }
  if (world.recovery) {
    words.push_back("recovery=" + *world.recovery);
  }
  return words;
}

OwnedRow Observe(const std::string& fault, const ModelWorld& world, const Outcome& outcome) {
  OwnedRow row;
  row.fault = fault;
  row.message = outcome.message;
  row.file = world.rcs.value_or("missing");
  if (world.rcs && world.security != "original") {
    row.file += ", security " + world.security;
  }
  row.key = KeyText(world.values);
  row.mutations = Join(world.mutations);
  row.log = Join(world.log, outcome.message);
  row.left = Join(Leftovers(world));
  return row;
}

/// Compares what was observed with the table, both ways.
template <std::size_t N>
void CompareWithTable(const std::vector<OwnedRow>& observed, const FaultRow (&table)[N]) {
  std::map<std::string, OwnedRow> expected;
  for (const FaultRow& row : table) {
    EXPECT_TRUE(expected.emplace(row.fault, OwnedFrom(row)).second) << "twice: " << row.fault;
  }
  for (const OwnedRow& row : observed) {
    const auto found = expected.find(row.fault);
    if (found == expected.end()) {
      ADD_FAILURE() << "no row for this fault; observed:\n" << row;
      continue;
    }
    EXPECT_EQ(row, found->second);
    expected.erase(found);
  }
  for (const auto& [fault, row] : expected) {
    ADD_FAILURE() << "row for a fault that cannot happen: " << fault;
  }
}

Outcome FullRun() {
  ModelWorld world = WorldBefore();
  Outcome outcome = RunOnce(world);
  EXPECT_TRUE(outcome.success);
  EXPECT_EQ(outcome.message, "Commit validated; file and registry updated.");
  return outcome;
}

std::string Name(const ModelFault& fault) {
  static const std::map<FaultPlace, std::string> kPlaces = {
      {FaultPlace::Before, "before"},           {FaultPlace::After, "after"},
      {FaultPlace::HalfWay, "half way"},        {FaultPlace::InGap, "in the gap"},
      {FaultPlace::Gone, "with the file gone"},
  };
  return fault.call + (fault.dies ? " dies " : " fails ") + kPlaces.at(fault.place);
}

/// The process ends where the call would have failed.
std::vector<ModelFault> Deaths(std::vector<ModelFault> faults) {
  for (ModelFault& fault : faults) {
    fault.dies = true;
  }
  return faults;
}

TEST(TransactionFaults, FullRunMakesTheseCalls) {
  EXPECT_EQ(Join(FullRun().calls),
            "ReadRcs#1 CheckSecurity#1 ReadValues#1 CreateBackups#1 Log#1 Prepare#1 Log#2 "
            "ReadReplacement#1 ReadRcs#2 ReadValues#2 Commit#1 RestoreSecurity#1 ReadRcs#3 "
            "ReadValues#3 WriteValue#1 ReadValues#4 WriteValue#2 ReadValues#5 WriteValue#3 "
            "ReadValues#6 RemoveValue#1 ReadRcs#4 ReadValues#7 CheckSecurity#2 Log#3");
}

TEST(TransactionFaults, TheseOperationsCanStopHalfWay) {
  std::vector<std::string> partial;
  for (const ModelFault& fault : FullRun().faults) {
    if (fault.place != FaultPlace::Before && fault.place != FaultPlace::After) {
      partial.push_back(Name(fault) + ",");
    }
  }
  EXPECT_EQ(Join(partial),
            "CreateBackups#1 fails half way, Log#1 fails half way, Prepare#1 fails half way, "
            "Log#2 fails half way, Commit#1 fails half way, Commit#1 fails in the gap, "
            "Commit#1 fails with the file gone, RestoreSecurity#1 fails half way, "
            "Log#3 fails half way,");
}

TEST(TransactionFaults, EveryCallFailingHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const ModelFault& fault : FullRun().faults) {
    ModelWorld world = WorldBefore();
    const Outcome outcome = RunOnce(world, {fault});
    EXPECT_TRUE(outcome.all_faults_struck);
    observed.push_back(Observe(Name(fault), world, outcome));
  }
  CompareWithTable(observed, kSingleFaults);
}

/// The faults that can strike in the rollback of a run that fails so.
std::vector<ModelFault> FaultsOfTheRollback(const ModelFault& fault) {
  ModelWorld world = WorldBefore();
  const Outcome outcome = RunOnce(world, {fault});
  // An operation that fails after its effect has made its own inner call before.
  const bool has_inner_call =
      fault.call == "Commit#1" || fault.call == "CreateBackups#1" || fault.call == "Prepare#1";
  const bool is_inner_call_made = has_inner_call && fault.place == FaultPlace::After;
  const auto struck = std::ranges::find(outcome.calls, fault.call);
  const std::set<std::string> rollback(struck + (is_inner_call_made ? 2 : 1), outcome.calls.end());
  std::vector<ModelFault> faults = outcome.faults;
  std::erase_if(faults, [&](const ModelFault& other) { return !rollback.contains(other.call); });
  return faults;
}

TEST(TransactionFaults, EveryCallFailingPairedWithEveryFailingCallOfItsRollbackHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const ModelFault& first : FullRun().faults) {
    for (const ModelFault& second : FaultsOfTheRollback(first)) {
      ModelWorld world = WorldBefore();
      const Outcome outcome = RunOnce(world, {first, second});
      EXPECT_TRUE(outcome.all_faults_struck);
      observed.push_back(Observe(Name(first) + ", " + Name(second), world, outcome));
    }
  }
  CompareWithTable(observed, kFaultPairs);
}

TEST(TransactionFaults, ProcessDeathAtEveryCallHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const ModelFault& death : Deaths(FullRun().faults)) {
    ModelWorld world = WorldBefore();
    const Outcome outcome = RunOnce(world, {death});
    EXPECT_TRUE(outcome.died);
    observed.push_back(Observe(Name(death), world, outcome));
  }
  CompareWithTable(observed, kDeathRows);
}

/// The laws of DXP.RCS after a death. Where the file is missing, some other one holds the old text
/// whole, and the user renames it.
void CheckFileAndPutItBack(ModelWorld& world) {
  EXPECT_TRUE(!world.rcs || world.rcs == kOld || world.rcs == kNew);
  EXPECT_TRUE(world.rcs == kOld || world.backup == kOld);
  if (!world.rcs) {
    std::optional<std::string>& found = world.displaced == kOld  ? world.displaced
                                        : world.recovery == kOld ? world.recovery
                                                                 : world.backup;
    EXPECT_EQ(found, kOld);
    world.rcs = found;
    found.reset();
  }
}

void CheckNoForeignEntryIsLost(const ModelWorld& world) {
  const std::string key = KeyText(world.values);
  EXPECT_NE(key.find("=A"), std::string::npos) << key;
  EXPECT_NE(key.find("=B"), std::string::npos) << key;
}

/// A death between the writes may leave one of the entries twice; none is ever missing.
void CheckNextRun(ModelWorld& world) {
  CheckNoForeignEntryIsLost(world);
  EXPECT_TRUE(RunOnce(world).success);
  CheckNoForeignEntryIsLost(world);
  EXPECT_EQ(world.rcs, kNew);
  EXPECT_EQ(std::ranges::count(KeyText(world.values), 'K'), 1);
  EXPECT_FALSE(world.temporary);
}

TEST(TransactionFaults, AfterProcessDeathAnywhereBackupsAreCompleteUnlessFileIsOldAndNextRunEnds) {
  // Dead before the DACL was restored: that one cannot be told from the user's own any more.
  const std::set<std::string> without_exact_security = {
      "RestoreSecurity#1 dies before", "RestoreSecurity#1 dies half way", "Commit#1 dies half way"};
  for (const ModelFault& death : Deaths(FullRun().faults)) {
    SCOPED_TRACE(Name(death));
    ModelWorld world = WorldBefore();
    RunOnce(world, {death});
    CheckFileAndPutItBack(world);
    const std::string security = world.security;
    EXPECT_EQ(security != "original", without_exact_security.contains(Name(death)));
    CheckNextRun(world);
    EXPECT_EQ(world.security, security);
  }
}

/// The last check refuses: everything is in place, and all of it is to be undone.
const ModelFault kLastFault = {"CheckSecurity#2", FaultPlace::Before};

/// The replacement lost DXP.RCS half way.
const ModelFault kFileLost = {"Commit#1", FaultPlace::InGap};

/// The calls that a run makes behind the one that fails.
std::vector<std::string> CallsBehind(const ModelFault& fault) {
  ModelWorld world = WorldBefore();
  const std::vector<std::string> calls = RunOnce(world, {fault}).calls;
  // These are two iterators, whose texts are copied.
  // cppcheck-suppress returnDanglingLifetime
  return {std::ranges::find(calls, fault.call) + 1, calls.end()};
}

TEST(TransactionFaults, ProcessDeathAtEveryCallOfTheLongestRollbackHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const ModelFault& death : Deaths(FaultsOfTheRollback(kLastFault))) {
    ModelWorld world = WorldBefore();
    const Outcome outcome = RunOnce(world, {kLastFault, death});
    EXPECT_TRUE(outcome.died);
    observed.push_back(Observe(Name(death), world, outcome));
  }
  CompareWithTable(observed, kRollbackDeathRows);
}

TEST(TransactionFaults, AfterProcessDeathAnywhereInAnyRollbackNothingIsLostAndNextRunEnds) {
  for (const ModelFault& fault : FullRun().faults) {
    for (const ModelFault& death : Deaths(FaultsOfTheRollback(fault))) {
      SCOPED_TRACE(Name(fault) + ", " + Name(death));
      ModelWorld world = WorldBefore();
      EXPECT_TRUE(RunOnce(world, {fault, death}).died);
      CheckFileAndPutItBack(world);
      CheckNextRun(world);
    }
  }
}

struct Foreigner {
  const char* name;
  void (*act)(ModelWorld& world);
};

void ChangeFile(ModelWorld& world) {
  world.rcs = "foreign";
}
void ChangeSecurity(ModelWorld& world) {
  if (world.rcs) {
    world.security = "foreign";
  }
}
void AddEntry(ModelWorld& world) {
  world.values.push_back(Entry(L"Item9", L"F"));
}

constexpr Foreigner kForeigners[] = {
    {"file", ChangeFile}, {"security", ChangeSecurity}, {"list", AddEntry}};

void SetText(ModelWorld& world, const wchar_t* name) {
  std::erase_if(world.values, [&](const RegistryValue& value) { return value.name == name; });
  world.values.push_back(Entry(name, L"F"));
}
void TakeFirst(ModelWorld& world) {
  SetText(world, L"Item0");
}
void ChangeEntry(ModelWorld& world) {
  SetText(world, L"Item1");
}
void TakeNextFree(ModelWorld& world) {
  SetText(world, L"Item2");
}
void RemoveEntry(ModelWorld& world) {
  std::erase_if(world.values, [](const RegistryValue& value) { return value.name == L"Item3"; });
}

/// Changes under names that the plan touches.
constexpr Foreigner kCollidingForeigners[] = {
    {"Item0", TakeFirst}, {"Item1", ChangeEntry}, {"Item2", TakeNextFree}, {"Item3", RemoveEntry}};

std::vector<Foreigner> AllForeigners() {
  std::vector<Foreigner> all(std::begin(kForeigners), std::end(kForeigners));
  all.insert(all.end(), std::begin(kCollidingForeigners), std::end(kCollidingForeigners));
  return all;
}

TEST(TransactionFaults, AnotherProgramChangingSomethingBeforeAnyCallHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const Foreigner& foreigner : AllForeigners()) {
    for (const std::string& call : FullRun().calls) {
      ModelWorld world = WorldBefore();
      const Outcome outcome = RunOnce(world, {}, [&](std::string_view at, ModelWorld& changing) {
        if (at == call) {
          foreigner.act(changing);
        }
      });
      observed.push_back(Observe(foreigner.name + (" changes before " + call), world, outcome));
    }
  }
  CompareWithTable(observed, kInterferenceRows);
}

/// Another program acting before any call behind the one that fails.
std::vector<OwnedRow> InterfereBehind(const ModelFault& fault) {
  std::vector<OwnedRow> observed;
  for (const Foreigner& foreigner : AllForeigners()) {
    for (const std::string& call : CallsBehind(fault)) {
      ModelWorld world = WorldBefore();
      const Outcome outcome =
          RunOnce(world, {fault}, [&](std::string_view at, ModelWorld& changing) {
            if (at == call) {
              foreigner.act(changing);
            }
          });
      observed.push_back(Observe(foreigner.name + (" changes before " + call), world, outcome));
    }
  }
  return observed;
}

TEST(TransactionFaults, AnotherProgramChangingSomethingDuringTheLongestRollbackHasItsRow) {
  CompareWithTable(InterfereBehind(kLastFault), kRollbackInterferenceRows);
}

TEST(TransactionFaults, AnotherProgramChangingSomethingWhileTheFileIsLostHasItsRow) {
  CompareWithTable(InterfereBehind(kFileLost), kGapInterferenceRows);
}

TEST(TransactionFaults, ForeignChangeUnderAPlannedNameStaysUnlessItComesRightBeforeAWrite) {
  for (const ModelFault& fault : FullRun().faults) {
    ModelWorld single = WorldBefore();
    const std::vector<std::string> calls = RunOnce(single, {fault}).calls;
    for (const Foreigner& foreigner : kCollidingForeigners) {
      for (const std::string& at : calls) {
        // Between a check and the next call nobody can be noticed.
        if (at.starts_with("WriteValue") || at.starts_with("RemoveValue")) {
          continue;
        }
        SCOPED_TRACE(Name(fault) + ", " + foreigner.name + " changes before " + at);
        ModelWorld world = WorldBefore();
        std::string changed;
        RunOnce(world, {fault}, [&](std::string_view call, ModelWorld& changing) {
          if (call == at) {
            const std::string before = KeyText(changing.values);
            foreigner.act(changing);
            const std::string after = KeyText(changing.values);
            changed = after == before ? "" : after;
          }
        });
        // A removal that failed looks like one that worked when somebody else made it meanwhile.
        const bool looks_like_ours = Name(fault) == "RemoveValue#1 fails before" &&
                                     at == "ReadValues#7" && foreigner.act == RemoveEntry;
        if (!changed.empty()) {
          EXPECT_EQ(KeyText(world.values), looks_like_ours ? "1=A 3=B" : changed);
        }
      }
    }
  }
}

/// Every failing call, with another program acting before every call of the run that fails so; the
/// calls of the rollback included.
template <class Check>
void ForEveryFaultAndForeigner(Check check) {
  for (const ModelFault& fault : FullRun().faults) {
    ModelWorld single = WorldBefore();
    const std::vector<std::string> calls = RunOnce(single, {fault}).calls;
    for (const Foreigner& foreigner : kForeigners) {
      for (const std::string& at : calls) {
        check(fault, foreigner, at);
      }
    }
  }
}

TEST(TransactionFaults, ForeignFileAndForeignEntryAreNeverOverwrittenWhateverElseFails) {
  ForEveryFaultAndForeigner(
      [](const ModelFault& fault, const Foreigner& foreigner, const std::string& at) {
        SCOPED_TRACE(Name(fault) + ", " + foreigner.name + " changes before " + at);
        ModelWorld world = WorldBefore();
        bool acted = false;
        RunOnce(world, {fault}, [&](std::string_view call, ModelWorld& changing) {
          if (call == at) {
            // Where there is no file, nobody can change its security.
            acted = foreigner.act != ChangeSecurity || changing.rcs;
            foreigner.act(changing);
          }
          const std::string key = KeyText(changing.values);
          EXPECT_NE(key.find("=A"), std::string::npos) << call;
          EXPECT_NE(key.find("=B"), std::string::npos) << call;
        });
        if (acted && foreigner.act == ChangeFile) {
          EXPECT_EQ(world.rcs, "foreign");
        }
        if (acted && foreigner.act == ChangeSecurity && !at.starts_with("RestoreSecurity")) {
          EXPECT_EQ(world.security, "foreign");
        }
        if (acted && foreigner.act == AddEntry) {
          EXPECT_NE(KeyText(world.values).find("9=F"), std::string::npos);
        }
        EXPECT_FALSE(world.temporary);
      });
}

TEST(TransactionFaults, RunThatChangesOnlyTheListNeverReplacesTheFileWhateverFails) {
  ModelWorld installed = WorldBefore();
  installed.rcs = kNew;
  ModelWorld full = installed;
  const Outcome full_run = RunOnce(full);
  EXPECT_EQ(std::ranges::count(full_run.calls, "Commit#1"), 0);
  for (const ModelFault& fault : full_run.faults) {
    SCOPED_TRACE(Name(fault));
    ModelWorld world = installed;
    const Outcome outcome = RunOnce(world, {fault});
    EXPECT_EQ(world.rcs, kNew);
    EXPECT_FALSE(world.temporary);
    EXPECT_EQ(std::ranges::count(world.mutations, "replace"), 0);
    EXPECT_EQ(std::ranges::count(world.mutations, "restore"), 0);
    EXPECT_EQ(KeyText(world.values), outcome.success ? "0=A 1=B 2=K" : "1=A 3=B");
  }
}

TEST(TransactionFaults, WithoutForeignersTheEndStateIsTheNewOneOrTheOldOneOrTheMessageSaysNeither) {
  for (const ModelFault& fault : FullRun().faults) {
    SCOPED_TRACE(Name(fault));
    ModelWorld world = WorldBefore();
    const Outcome outcome = RunOnce(world, {fault});
    if (outcome.success) {
      EXPECT_EQ(world.rcs, kNew);
      EXPECT_EQ(KeyText(world.values), "0=A 1=B 2=K");
    } else if (outcome.message.ends_with(" Rollback complete (or no owned writes).")) {
      EXPECT_EQ(world.rcs, kOld);
      EXPECT_EQ(KeyText(world.values), "1=A 3=B");
      EXPECT_EQ(world.security, "original");
    } else {
      EXPECT_TRUE(outcome.message.ends_with(" MANUAL RECOVERY REQUIRED; backups retained."));
      EXPECT_EQ(world.backup, kOld);
    }
  }
}

}  // namespace
}  // namespace altium_registration
