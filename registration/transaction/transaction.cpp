#include "registration/transaction/transaction.h"

#include <cstddef>
#include <exception>
#include <utility>

#include "common/failure/failure.h"
#include "common/text/text.h"
#include "registration/transaction/attempt.h"
#include "registration/transaction/global_projects.h"
#include "registration/transaction/list_change.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

class Transaction {
 public:
  Transaction(Store& store, const RegistrationChange& change)
      : store_(store), change_(change), list_(store, change.values_before) {}

  /// Makes the change. Throws the first failure, and leaves everything as it is then.
  void Commit(std::wstring& message) {
    RequireRcs(change_.rcs_before, L"Source file changed before commit.");
    store_.CheckSourceSecurity();
    RequireValues(store_, change_.values_before);
    Require(change_.validate(change_.rcs_after), L"In-memory validation failed.");
    const bool file_changes = change_.rcs_after != change_.rcs_before;
    if (!file_changes && SameValues(change_.values_after, change_.values_before)) {
      Log(kIdempotent);
      message = kIdempotent;
      return;
    }
    store_.CreateBackups(change_.rcs_before, change_.values_before);
    PrepareReplacement();
    RequireRcs(change_.rcs_before, L"Source changed before replacement.");
    RequireValues(store_, change_.values_before);
    if (file_changes) {
      store_.CommitReplacement();
    }
    RequireRcs(change_.rcs_after, L"Final file readback mismatch.");
    CommitList();
    RequireFinalState();
    store_.CheckSourceSecurity();
    // All changes are made and verified. Nothing may fail from here on: the memory for the message
    // is reserved, and a log that cannot be written is no reason for a rollback.
    message = kCommitted;
    static_cast<void>(Attempt([&] { Log(kCommitted); }));
  }

  /// Undoes what the commit has done, the key first, and composes the message. Undoes both before
  /// it composes any text, since memory may have run out.
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
    static_cast<void>(Attempt([&] { Log(message); }));
  }

 private:
  void PrepareReplacement() {
    store_.PrepareReplacement(change_.rcs_after);
    const std::string written = store_.ReadReplacement();
    Require(written == change_.rcs_after && change_.validate(written),
            L"Temporary file validation failed.");
  }

  void CommitList() {
    std::vector<ListStep> steps =
        StepsBetween(change_.values_before, change_.values_after, StepOrder::Ascending);
    RequireValues(store_, change_.values_before);
    list_.Apply(std::move(steps));
  }

  void RequireFinalState() {
    const bool file_holds = change_.validate(store_.ReadRcs());
    const bool list_holds = SameValues(store_.ReadGlobalProjects(), change_.values_after);
    Require(file_holds && list_holds, L"Final state validation failed.");
  }

  void RollBackList() {
    if (!list_.HasBegun()) {
      return;
    }
    const std::vector<RegistryValue> own = list_.OwnContent();
    std::vector<ListStep> steps = StepsBetween(own, change_.values_before, StepOrder::Descending);
    if (!steps.empty()) {
      ListChange(store_, own).Apply(std::move(steps));
      RequireValues(store_, change_.values_before);
    }
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

  void Log(std::wstring_view line) { store_.AppendLog(kestrune::Utf8FromWide(line)); }

  static constexpr std::wstring_view kIdempotent = L"Idempotent: no changes.";
  static constexpr std::wstring_view kCommitted = L"Commit validated; file and registry updated.";
  static constexpr std::wstring_view kRegistryBlocked = L" Registry recovery blocked: ";
  static constexpr std::wstring_view kFileBlocked = L" File recovery blocked: ";
  static constexpr std::wstring_view kManualRecovery =
      L" MANUAL RECOVERY REQUIRED; backups retained.";
  static constexpr std::wstring_view kRolledBack = L" Rollback complete (or no owned writes).";

  Store& store_;
  const RegistrationChange& change_;
  /// The commit's own steps, by which the rollback distinguishes its writes from another program's.
  ListChange list_;
};

}  // namespace

bool RunTransaction(Store& store, const RegistrationChange& change, std::wstring& message) {
  // The size of the longest message without the text of a failure, rounded up.
  constexpr std::size_t kReservedMessage = 128;
  message.reserve(kReservedMessage);
  Transaction transaction(store, change);
  const std::exception_ptr failure = Attempt([&] { transaction.Commit(message); });
  if (failure) {
    transaction.RollBack(failure, message);
  }
  return !failure;
}

}  // namespace altium_registration
