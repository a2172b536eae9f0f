#include "registration/transaction/transaction.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <new>
#include <optional>
#include <utility>

#include "common/failure.h"
#include "common/ordinal.h"
#include "common/text.h"
#include "registration/transaction/global_projects.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

constexpr std::wstring_view kIdempotent = L"Idempotent: no changes.";
constexpr std::wstring_view kCommitted = L"Commit validated; file and registry updated.";
constexpr std::wstring_view kRegistryBlocked = L" Registry recovery blocked: ";
constexpr std::wstring_view kFileBlocked = L" File recovery blocked: ";
constexpr std::wstring_view kManualRecovery = L" MANUAL RECOVERY REQUIRED; backups retained.";
constexpr std::wstring_view kRolledBack = L" Rollback complete (or no owned writes).";

/// How many values a key may have to be read again before each step; with more the readings would
/// take minutes.
constexpr std::size_t kMostValuesReadBeforeEachStep = 256;

/// One write or removal in the key.
struct KeyStep {
  RegistryValue value;
  bool removes = false;
  std::optional<std::uint32_t> index;
};

KeyStep StepFor(const RegistryValue& value, bool removes) {
  KeyStep step{value, removes, std::nullopt};
  std::wstring ignored;
  static_cast<void>(ParseItemName(value.name, step.index, ignored));
  return step;
}

enum class WriteOrder { Ascending, Descending };

using ValuesByName = std::map<std::wstring_view, const RegistryValue*, kestrune::OrdinalLess>;

ValuesByName ByName(const std::vector<RegistryValue>& values) {
  ValuesByName by_name;
  for (const RegistryValue& value : values) {
    by_name.emplace(value.name, &value);
  }
  return by_name;
}

/// By list index; values that are no list entries come first. A name may have leading zeros, so
/// its text alone does not order it.
bool ComesBefore(const KeyStep& left, const KeyStep& right) {
  return left.index < right.index;
}

/// What turns `from` into `to`: first the values that differ, then the names that `to` lacks.
///
/// A plan never gives an entry a higher index than it had. So writing upwards before removing (and
/// downwards when undoing) leaves every entry of the list in it at every instant, wherever the
/// process may end.
std::vector<KeyStep> StepsBetween(const std::vector<RegistryValue>& from,
                                  const std::vector<RegistryValue>& to, WriteOrder order) {
  const ValuesByName old_values = ByName(from);
  const ValuesByName new_values = ByName(to);
  std::vector<KeyStep> writes;
  for (const RegistryValue& value : to) {
    const auto old = old_values.find(value.name);
    if (old == old_values.end() || old->second->type != value.type ||
        old->second->data != value.data) {
      writes.push_back(StepFor(value, false));
    }
  }
  std::vector<KeyStep> removals;
  for (const RegistryValue& value : from) {
    if (!new_values.contains(value.name)) {
      removals.push_back(StepFor(value, true));
    }
  }
  for (std::vector<KeyStep>* steps : {&writes, &removals}) {
    std::ranges::stable_sort(*steps, ComesBefore);
    if (order == WriteOrder::Descending) {
      std::ranges::reverse(*steps);
    }
  }
  std::ranges::move(removals, std::back_inserter(writes));
  return writes;
}

/// The key's content after the first `count` steps.
std::vector<RegistryValue> ContentAfter(const std::vector<RegistryValue>& before,
                                        const std::vector<KeyStep>& steps, std::size_t count) {
  ValuesByName content = ByName(before);
  for (std::size_t i = 0; i < count; ++i) {
    content.erase(steps[i].value.name);
    if (!steps[i].removes) {
      content.emplace(steps[i].value.name, &steps[i].value);
    }
  }
  std::vector<RegistryValue> values;
  for (const auto& [name, value] : content) {
    values.push_back(*value);
  }
  return values;
}

/// Runs an action; the text of its failure, or nothing when it succeeded.
template <class Action>
std::optional<std::wstring> FailureOf(Action action) {
  try {
    action();
    return std::nullopt;
  } catch (const kestrune::Failure& failure) {
    return failure.text;
  } catch (const std::bad_alloc&) {
    return kestrune::kNotEnoughMemory;
  }
}

/// One run. The steps that were begun in the key are kept, so that the rollback can tell its own
/// writes from somebody else's.
class Transaction {
 public:
  Transaction(Store& store, const RegistrationChange& change) : store_(store), change_(change) {}

  bool Run(std::wstring& message) {
    const std::optional<std::wstring> failure = FailureOf([&] { Commit(); });
    if (!failure) {
      message = outcome_;
      return true;
    }
    message = *failure + RollBack();
    static_cast<void>(FailureOf([&] { Log(message); }));
    return false;
  }

 private:
  void Commit() {
    RequireRcs(change_.rcs_before, L"Source file changed before commit.");
    store_.CheckSourceSecurity();
    RequireValues(change_.values_before);
    Require(change_.validate(change_.rcs_after), L"In-memory validation failed.");
    const bool file_changes = change_.rcs_after != change_.rcs_before;
    if (!file_changes && SameValues(change_.values_after, change_.values_before)) {
      Log(kIdempotent);
      outcome_ = kIdempotent;
      return;
    }
    store_.CreateBackups(change_.rcs_before, change_.values_before);
    PrepareReplacement();
    RequireRcs(change_.rcs_before, L"Source changed before replacement.");
    RequireValues(change_.values_before);
    if (file_changes) {
      store_.CommitReplacement();
    }
    RequireRcs(change_.rcs_after, L"Final file readback mismatch.");
    ApplyPlan();
    RequireFinalState();
    store_.CheckSourceSecurity();
    outcome_ = kCommitted;
    // Everything is in place and verified: an unwritable log is no reason to undo it.
    static_cast<void>(FailureOf([&] { Log(kCommitted); }));
  }

  static void Require(bool holds, std::wstring_view sentence) {
    if (!holds) {
      throw Refusal(sentence);
    }
  }

  void RequireRcs(const std::string& expected, std::wstring_view sentence) {
    Require(store_.ReadRcs() == expected, sentence);
  }

  void RequireValues(const std::vector<RegistryValue>& expected) {
    Require(SameValues(store_.ReadGlobalProjects(), expected), L"Registry changed concurrently.");
  }

  void PrepareReplacement() {
    store_.PrepareReplacement(change_.rcs_after);
    const std::string written = store_.ReadReplacement();
    Require(written == change_.rcs_after && change_.validate(written),
            L"Temporary file validation failed.");
  }

  void ApplyPlan() {
    steps_ = StepsBetween(change_.values_before, change_.values_after, WriteOrder::Ascending);
    RequireValues(change_.values_before);
    for (std::size_t i = 0; i < steps_.size(); ++i) {
      RequireUndisturbed(change_.values_before, steps_, i);
      ++begun_steps_;
      Perform(steps_[i]);
      ++done_steps_;
    }
  }

  /// Nobody else may have come between the steps. The first one has its check behind it.
  void RequireUndisturbed(const std::vector<RegistryValue>& from, const std::vector<KeyStep>& steps,
                          std::size_t done) {
    if (done > 0 && from.size() + done <= kMostValuesReadBeforeEachStep) {
      RequireValues(ContentAfter(from, steps, done));
    }
  }

  void Perform(const KeyStep& step) {
    if (step.removes) {
      store_.RemoveGlobalProjectsValue(step.value.name);
    } else {
      store_.WriteGlobalProjectsValue(step.value);
    }
  }

  void RequireFinalState() {
    const bool file_holds = change_.validate(store_.ReadRcs());
    const bool list_holds = SameValues(store_.ReadGlobalProjects(), change_.values_after);
    Require(file_holds && list_holds, L"Final state validation failed.");
  }

  /// Both halves are always tried, before any text is made of what became of them. Returns what the
  /// message has to say.
  std::wstring RollBack() {
    const auto registry_failure = FailureOf([&] { RollBackRegistry(); });
    const auto file_failure = FailureOf([&] { RollBackFile(); });
    std::wstring report;
    if (registry_failure) {
      report.append(kRegistryBlocked).append(*registry_failure);
    }
    if (file_failure) {
      report.append(kFileBlocked).append(*file_failure);
    }
    return report.append(report.empty() ? kRolledBack : kManualRecovery);
  }

  void RollBackRegistry() {
    if (begun_steps_ == 0) {
      return;
    }
    const std::vector<RegistryValue> owned = OwnedValues();
    const std::vector<KeyStep> steps =
        StepsBetween(owned, change_.values_before, WriteOrder::Descending);
    for (std::size_t i = 0; i < steps.size(); ++i) {
      RequireUndisturbed(owned, steps, i);
      Perform(steps[i]);
    }
    if (!steps.empty()) {
      RequireValues(change_.values_before);
    }
  }

  /// What this run left in the key. A step that failed may or may not have taken effect; any other
  /// content is somebody else's.
  std::vector<RegistryValue> OwnedValues() {
    const std::vector<RegistryValue> found = store_.ReadGlobalProjects();
    for (std::size_t count = done_steps_; count <= begun_steps_; ++count) {
      std::vector<RegistryValue> owned = ContentAfter(change_.values_before, steps_, count);
      if (SameValues(found, owned)) {
        return owned;
      }
    }
    throw Refusal(L"Registry changed concurrently.");
  }

  void RollBackFile() {
    if (store_.HasReplacedRcs()) {
      store_.RollBackRcs();
    }
  }

  void Log(std::wstring_view line) { store_.AppendLog(kestrune::Utf8FromWide(line)); }

  Store& store_;
  const RegistrationChange& change_;
  std::vector<KeyStep> steps_;
  std::size_t begun_steps_ = 0;
  std::size_t done_steps_ = 0;
  std::wstring outcome_;
};

}  // namespace

bool RunTransaction(Store& store, const RegistrationChange& change, std::wstring& message) {
  return Transaction(store, change).Run(message);
}

}  // namespace altium_registration
