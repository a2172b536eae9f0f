// Every way in which one call of a registration can go wrong, and what is left then. The rows stand
// in transaction_fault_table.h; here they are compared with what the transaction does, and a call
// without a row is a failure.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/text.h"
#include "registration/global_projects.h"
#include "registration/transaction.h"
#include "tests/support/model_store.h"
#include "tests/unit/registration/transaction_fault_table.h"

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
  bool all_faults_struck = false;
};

Outcome RunOnce(ModelWorld& world, const std::vector<ModelFault>& faults = {},
                const ModelStore::Interference& interference = {}) {
  const RegistrationChange change = ChangeFor(world);
  Outcome outcome;
  ModelStore store(world, faults, interference);
  try {
    std::wstring message;
    outcome.success = RunTransaction(store, change, message);
    outcome.message = Utf8FromWide(message);
  } catch (const ProcessDeath&) {
    outcome.died = true;
    outcome.message = "(dead)";
  }
  outcome.calls = store.Calls();
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

OwnedRow Observe(const std::string& fault, const ModelWorld& world, const Outcome& outcome) {
  OwnedRow row;
  row.fault = fault;
  row.message = outcome.message;
  row.file = world.rcs.value_or("missing");
  if (world.security != "original") {
    row.file += ", security " + world.security;
  }
  row.key = KeyText(world.values);
  row.mutations = Join(world.mutations);
  row.log = Join(world.log, outcome.message);
  row.left = world.temporary ? "temp" : "";
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

std::vector<std::string> CallsOfAFullRun() {
  ModelWorld world = WorldBefore();
  const Outcome outcome = RunOnce(world);
  EXPECT_TRUE(outcome.success);
  EXPECT_EQ(outcome.message, "Commit validated; file and registry updated.");
  return outcome.calls;
}

std::string Name(FaultKind kind) {
  switch (kind) {
    case FaultKind::FailBefore:
      return " fails before";
    case FaultKind::FailAfter:
      return " fails after";
    case FaultKind::DieBefore:
      return " dies before";
    case FaultKind::DieAfter:
      return " dies after";
  }
  return {};
}

constexpr FaultKind kFailures[] = {FaultKind::FailBefore, FaultKind::FailAfter};
constexpr FaultKind kDeaths[] = {FaultKind::DieBefore, FaultKind::DieAfter};

TEST(TransactionFaults, FullRunMakesTheseCalls) {
  EXPECT_EQ(Join(CallsOfAFullRun()),
            "ReadRcs#1 CheckSecurity#1 ReadValues#1 CreateBackups#1 Log#1 Prepare#1 Log#2 "
            "ReadReplacement#1 ReadRcs#2 ReadValues#2 Commit#1 RestoreSecurity#1 ReadRcs#3 "
            "ReadValues#3 WriteValue#1 ReadValues#4 WriteValue#2 ReadValues#5 WriteValue#3 "
            "ReadValues#6 RemoveValue#1 ReadRcs#4 ReadValues#7 CheckSecurity#2 Log#3");
}

TEST(TransactionFaults, EveryCallFailingHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const std::string& call : CallsOfAFullRun()) {
    for (const FaultKind kind : kFailures) {
      ModelWorld world = WorldBefore();
      const Outcome outcome = RunOnce(world, {{call, kind}});
      EXPECT_TRUE(outcome.all_faults_struck);
      observed.push_back(Observe(call + Name(kind), world, outcome));
    }
  }
  CompareWithTable(observed, kSingleFaults);
}

TEST(TransactionFaults, EveryCallFailingPairedWithEveryFailingCallOfItsRollbackHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const std::string& first : CallsOfAFullRun()) {
    for (const FaultKind first_kind : kFailures) {
      ModelWorld single = WorldBefore();
      const std::vector<std::string> calls = RunOnce(single, {{first, first_kind}}).calls;
      const auto struck = std::ranges::find(calls, first);
      // An operation that fails after its effect has made its own inner call before.
      const bool has_inner_call =
          first == "Commit#1" || first == "CreateBackups#1" || first == "Prepare#1";
      const std::ptrdiff_t own_calls = has_inner_call && first_kind == FaultKind::FailAfter ? 2 : 1;
      const std::vector<std::string> rollback(struck + own_calls, calls.end());
      for (const std::string& second : rollback) {
        for (const FaultKind second_kind : kFailures) {
          ModelWorld world = WorldBefore();
          const Outcome outcome = RunOnce(world, {{first, first_kind}, {second, second_kind}});
          EXPECT_TRUE(outcome.all_faults_struck);
          observed.push_back(Observe(first + Name(first_kind) + ", " + second + Name(second_kind),
                                     world, outcome));
        }
      }
    }
  }
  CompareWithTable(observed, kFaultPairs);
}

TEST(TransactionFaults, ProcessDeathAtEveryCallHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const std::string& call : CallsOfAFullRun()) {
    for (const FaultKind kind : kDeaths) {
      ModelWorld world = WorldBefore();
      const Outcome outcome = RunOnce(world, {{call, kind}});
      EXPECT_TRUE(outcome.died);
      observed.push_back(Observe(call + Name(kind), world, outcome));
    }
  }
  CompareWithTable(observed, kDeathRows);
}

TEST(TransactionFaults, AfterProcessDeathAnywhereBackupsAreCompleteUnlessFileIsOldAndNextRunEnds) {
  for (const std::string& call : CallsOfAFullRun()) {
    for (const FaultKind kind : kDeaths) {
      SCOPED_TRACE(call + Name(kind));
      ModelWorld world = WorldBefore();
      RunOnce(world, {{call, kind}});
      EXPECT_TRUE(world.rcs == kOld || world.rcs == kNew);
      EXPECT_TRUE(world.rcs == kOld || world.backup == kOld);
      // Dead before the DACL was restored: that one cannot be told from the user's own any more.
      const std::string security = world.security;
      EXPECT_EQ(security == "original", call + Name(kind) != "RestoreSecurity#1 dies before");
      EXPECT_TRUE(RunOnce(world).success);
      EXPECT_EQ(world.rcs, kNew);
      EXPECT_EQ(world.security, security);
      EXPECT_FALSE(world.temporary);
      // A death between the writes may leave one of the entries twice; none is ever missing.
      const std::string key = KeyText(world.values);
      EXPECT_NE(key.find("=A"), std::string::npos) << key;
      EXPECT_NE(key.find("=B"), std::string::npos) << key;
      EXPECT_EQ(std::ranges::count(key, 'K'), 1) << key;
    }
  }
}

/// The last check refuses: everything is in place, and all of it is to be undone.
const ModelFault kLastFault = {"CheckSecurity#2", FaultKind::FailBefore};

/// The calls that a run makes behind the one that fails.
std::vector<std::string> CallsBehind(const ModelFault& fault) {
  ModelWorld world = WorldBefore();
  const std::vector<std::string> calls = RunOnce(world, {fault}).calls;
  return {std::ranges::find(calls, fault.call) + 1, calls.end()};
}

TEST(TransactionFaults, ProcessDeathAtEveryCallOfTheLongestRollbackHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const std::string& call : CallsBehind(kLastFault)) {
    for (const FaultKind kind : kDeaths) {
      ModelWorld world = WorldBefore();
      const Outcome outcome = RunOnce(world, {kLastFault, {call, kind}});
      EXPECT_TRUE(outcome.died);
      observed.push_back(Observe(call + Name(kind), world, outcome));
    }
  }
  CompareWithTable(observed, kRollbackDeathRows);
}

TEST(TransactionFaults, AfterProcessDeathAnywhereInAnyRollbackNothingIsLostAndNextRunEnds) {
  for (const std::string& fault : CallsOfAFullRun()) {
    for (const FaultKind fault_kind : kFailures) {
      for (const std::string& call : CallsBehind({fault, fault_kind})) {
        for (const FaultKind kind : kDeaths) {
          SCOPED_TRACE(fault + Name(fault_kind) + ", " + call + Name(kind));
          ModelWorld world = WorldBefore();
          EXPECT_TRUE(RunOnce(world, {{fault, fault_kind}, {call, kind}}).died);
          EXPECT_TRUE(world.rcs == kOld || world.rcs == kNew);
          EXPECT_TRUE(world.rcs == kOld || world.backup == kOld);
          for (const bool is_next_run_over : {false, true}) {
            const std::string key = KeyText(world.values);
            EXPECT_NE(key.find("=A"), std::string::npos) << key;
            EXPECT_NE(key.find("=B"), std::string::npos) << key;
            EXPECT_TRUE(is_next_run_over || RunOnce(world).success);
          }
          EXPECT_EQ(world.rcs, kNew);
          EXPECT_EQ(std::ranges::count(KeyText(world.values), 'K'), 1);
          EXPECT_FALSE(world.temporary);
        }
      }
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
  world.security = "foreign";
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
    for (const std::string& call : CallsOfAFullRun()) {
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

TEST(TransactionFaults, AnotherProgramChangingSomethingDuringTheLongestRollbackHasItsRow) {
  std::vector<OwnedRow> observed;
  for (const Foreigner& foreigner : AllForeigners()) {
    for (const std::string& call : CallsBehind(kLastFault)) {
      ModelWorld world = WorldBefore();
      const Outcome outcome =
          RunOnce(world, {kLastFault}, [&](std::string_view at, ModelWorld& changing) {
            if (at == call) {
              foreigner.act(changing);
            }
          });
      observed.push_back(Observe(foreigner.name + (" changes before " + call), world, outcome));
    }
  }
  CompareWithTable(observed, kRollbackInterferenceRows);
}

TEST(TransactionFaults, ForeignChangeUnderAPlannedNameStaysUnlessItComesRightBeforeAWrite) {
  for (const std::string& fault : CallsOfAFullRun()) {
    ModelWorld single = WorldBefore();
    const std::vector<std::string> calls = RunOnce(single, {{fault, FaultKind::FailAfter}}).calls;
    for (const Foreigner& foreigner : kCollidingForeigners) {
      for (const std::string& at : calls) {
        // Between a check and the next call nobody can be noticed.
        if (at.starts_with("WriteValue") || at.starts_with("RemoveValue")) {
          continue;
        }
        SCOPED_TRACE(fault + " fails, " + foreigner.name + " changes before " + at);
        ModelWorld world = WorldBefore();
        std::string changed;
        RunOnce(world, {{fault, FaultKind::FailAfter}},
                [&](std::string_view call, ModelWorld& changing) {
                  if (call == at) {
                    const std::string before = KeyText(changing.values);
                    foreigner.act(changing);
                    const std::string after = KeyText(changing.values);
                    changed = after == before ? "" : after;
                  }
                });
        if (!changed.empty()) {
          EXPECT_EQ(KeyText(world.values), changed);
        }
      }
    }
  }
}

/// Every failing call, with another program acting before every call of the run that fails so; the
/// calls of the rollback included.
template <class Check>
void ForEveryFaultAndForeigner(Check check) {
  for (const std::string& call : CallsOfAFullRun()) {
    for (const FaultKind kind : kFailures) {
      ModelWorld single = WorldBefore();
      const std::vector<std::string> calls = RunOnce(single, {{call, kind}}).calls;
      for (const Foreigner& foreigner : kForeigners) {
        for (const std::string& at : calls) {
          check(ModelFault{call, kind}, foreigner, at);
        }
      }
    }
  }
}

TEST(TransactionFaults, ForeignFileAndForeignEntryAreNeverOverwrittenWhateverElseFails) {
  ForEveryFaultAndForeigner([](const ModelFault& fault, const Foreigner& foreigner,
                               const std::string& at) {
    SCOPED_TRACE(fault.call + Name(fault.kind) + ", " + foreigner.name + " changes before " + at);
    ModelWorld world = WorldBefore();
    bool acted = false;
    RunOnce(world, {fault}, [&](std::string_view call, ModelWorld& changing) {
      if (call == at) {
        foreigner.act(changing);
        acted = true;
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
  const std::vector<std::string> calls = RunOnce(full).calls;
  EXPECT_EQ(std::ranges::count(calls, "Commit#1"), 0);
  for (const std::string& call : calls) {
    for (const FaultKind kind : kFailures) {
      SCOPED_TRACE(call + Name(kind));
      ModelWorld world = installed;
      const Outcome outcome = RunOnce(world, {{call, kind}});
      EXPECT_EQ(world.rcs, kNew);
      EXPECT_FALSE(world.temporary);
      EXPECT_EQ(std::ranges::count(world.mutations, "replace"), 0);
      EXPECT_EQ(std::ranges::count(world.mutations, "restore"), 0);
      EXPECT_EQ(KeyText(world.values), outcome.success ? "0=A 1=B 2=K" : "1=A 3=B");
    }
  }
}

TEST(TransactionFaults, WithoutForeignersTheEndStateIsTheNewOneOrTheOldOneOrTheMessageSaysNeither) {
  for (const std::string& call : CallsOfAFullRun()) {
    for (const FaultKind kind : kFailures) {
      SCOPED_TRACE(call + Name(kind));
      ModelWorld world = WorldBefore();
      const Outcome outcome = RunOnce(world, {{call, kind}});
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
}

}  // namespace
}  // namespace altium_registration
