#include "registration/transaction/transaction.h"

#include <cstddef>
#include <exception>
#include <new>
#include <utility>

#include "common/failure/failure.h"
#include "common/text/text.h"
#include "registration/transaction/global_projects.h"
#include "registration/transaction/list_steps.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

constexpr std::wstring_view kIdempotent = L"Idempotent: no changes.";
constexpr std::wstring_view kCommitted = L"Commit validated; file and registry updated.";
constexpr std::wstring_view kRegistryBlocked = L" Registry recovery blocked: ";
constexpr std::wstring_view kFileBlocked = L" File recovery blocked: ";
constexpr std::wstring_view kManualRecovery = L" MANUAL RECOVERY REQUIRED; backups retained.";
constexpr std::wstring_view kRolledBack = L" Rollback complete (or no owned writes).";
constexpr std::wstring_view kUnexpected = L"Unexpected failure.";

/// The key is read again before each step only up to this number of values; with more values this
/// would take minutes.
constexpr std::size_t kMostValuesReadBeforeEachStep = 256;

/// The memory reserved for each message without the text of a failure.
constexpr std::size_t kReservedMessage = 128;

/// Holds how far a plan was applied to the key.
struct ListProgress {
  std::vector<ListStep> steps;
  std::size_t begun = 0;
  std::size_t done = 0;
};

/// Runs one transaction. An exception is kept and converted to text only after the rollback, since
/// text needs memory, which may have run out.
class Transaction {
 public:
  Transaction(Store& store, const RegistrationChange& change) : store_(store), change_(change) {}

  bool Run(std::wstring& message) {
    message.reserve(kReservedMessage);
    const std::exception_ptr failure = Attempt([&] { Commit(message); });
    if (!failure) {
      return true;
    }
    RollBack(failure, message);
    static_cast<void>(Attempt([&] { Log(message); }));
    return false;
  }

 private:
  void Commit(std::wstring& outcome) {
    RequireRcs(change_.rcs_before, L"Source file changed before commit.");
    store_.CheckSourceSecurity();
    RequireValues(change_.values_before);
    Require(change_.validate(change_.rcs_after), L"In-memory validation failed.");
    const bool file_changes = change_.rcs_after != change_.rcs_before;
    if (!file_changes && SameValues(change_.values_after, change_.values_before)) {
      Log(kIdempotent);
      outcome = kIdempotent;
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
    committed_.steps =
        StepsBetween(change_.values_before, change_.values_after, StepOrder::Ascending);
    RequireValues(change_.values_before);
    Apply(change_.values_before, committed_);
    RequireFinalState();
    store_.CheckSourceSecurity();
    // All changes are made and verified. Nothing may fail from here on: the memory for the message
    // is reserved, and a log that cannot be written is no reason for a rollback.
    outcome = kCommitted;
    static_cast<void>(Attempt([&] { Log(kCommitted); }));
  }

  void PrepareReplacement() {
    store_.PrepareReplacement(change_.rcs_after);
    const std::string written = store_.ReadReplacement();
    Require(written == change_.rcs_after && change_.validate(written),
            L"Temporary file validation failed.");
  }

  /// Performs the steps on the key, whose content was just verified as `from`. Throws when another
  /// program changes the key meanwhile.
  void Apply(const std::vector<RegistryValue>& from, ListProgress& progress) {
    for (const ListStep& step : progress.steps) {
      RequireUndisturbed(from, progress);
      ++progress.begun;
      Perform(step);
      ++progress.done;
    }
  }

  /// Throws when another program has changed the key. Skips the first step, for which the caller
  /// has checked this.
  void RequireUndisturbed(const std::vector<RegistryValue>& from, const ListProgress& progress) {
    if (progress.done > 0 && from.size() + progress.done <= kMostValuesReadBeforeEachStep) {
      RequireValues(ContentAfter(from, progress.steps, progress.done));
    }
  }

  void Perform(const ListStep& step) {
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

  /// Rolls back the key and the file. Tries both before it composes any text.
  void RollBack(const std::exception_ptr& failure, std::wstring& message) {
    const std::exception_ptr list_failure = Attempt([&] { RollBackList(); });
    const std::exception_ptr file_failure = Attempt([&] { RollBackFile(); });
    const bool is_blocked = list_failure || file_failure;
    const std::wstring_view ending = is_blocked ? kManualRecovery : kRolledBack;
    const bool has_text = !Attempt([&] {
      std::wstring text = TextOf(failure);
      if (list_failure) {
        text.append(kRegistryBlocked).append(TextOf(list_failure));
      }
      if (file_failure) {
        text.append(kFileBlocked).append(TextOf(file_failure));
      }
      text.append(ending);
      message = std::move(text);
    });
    if (!has_text) {
      message.assign(kestrune::kNotEnoughMemory).append(ending);
    }
  }

  void RollBackList() {
    if (committed_.begun == 0) {
      return;
    }
    const std::vector<RegistryValue> owned = OwnedValues();
    ListProgress undone = {StepsBetween(owned, change_.values_before, StepOrder::Descending)};
    Apply(owned, undone);
    if (!undone.steps.empty()) {
      RequireValues(change_.values_before);
    }
  }

  /// Returns the content that this run left in the key. A failed step may or may not have taken
  /// effect; any other content comes from another program.
  std::vector<RegistryValue> OwnedValues() {
    const std::vector<RegistryValue> found = store_.ReadGlobalProjects();
    for (std::size_t count = committed_.done; count <= committed_.begun; ++count) {
      std::vector<RegistryValue> owned =
          ContentAfter(change_.values_before, committed_.steps, count);
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

  void Log(std::wstring_view line) { store_.AppendLog(kestrune::Utf8FromWide(line)); }

  /// Runs an action and returns its exception, if any. Allocates no memory.
  template <class Action>
  static std::exception_ptr Attempt(Action action) noexcept {
    try {
      action();
      return nullptr;
    } catch (...) {
      return std::current_exception();
    }
  }

  static std::wstring TextOf(const std::exception_ptr& thrown) {
    try {
      std::rethrow_exception(thrown);
    } catch (const kestrune::Failure& failure) {
      return failure.text;
    } catch (const std::bad_alloc&) {
      return kestrune::kNotEnoughMemory;
    } catch (...) {
      return std::wstring(kUnexpected);
    }
  }

  Store& store_;
  const RegistrationChange& change_;
  /// The steps that the commit began in the key, by which the rollback distinguishes its own writes
  /// from another program's.
  ListProgress committed_;
};

}  // namespace

bool RunTransaction(Store& store, const RegistrationChange& change, std::wstring& message) {
  return Transaction(store, change).Run(message);
}

}  // namespace altium_registration
