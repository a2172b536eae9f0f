#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "registration/transaction/store.h"
#include "registration/transaction/transaction.h"

namespace altium_registration {

/// A moment of a run: immediately before the `number`-th operation of a kind, or, with a call,
/// before the `repeat`-th such call of that operation. The texts are literals.
struct Moment {
  /// An operation of Store; "Validate" is the validation of a text, "Close" the end of the store.
  std::string_view operation{};
  int number = 1;
  /// A call of SystemCalls, empty for the operation itself.
  std::string_view call{};
  /// The file on which the call acts: "rcs", "temp", "displaced", "undone", "recovery", "spare" and
  /// the backups "saved", "values", "instance", "security", "log"; empty for any other call.
  std::string_view role{};
  int repeat = 1;
  /// Whether the call changes something outside the process.
  bool changes = false;

  [[nodiscard]] bool IsSame(const Moment& other) const;
  /// Returns for example "Commit#1", "Commit#1/Replace:rcs" or "Prepare#1/GetSecurity:temp#2".
  [[nodiscard]] std::string Text() const;
};

/// What happens at a moment: the call "fails" before or "fails after" its effect; "all fail", this
/// call and all later ones; the process "dies" before or "dies after" the effect; a replacement
/// "stops in the gap" after it displaced the old file, or "loses the file", that is, deletes it; a
/// written access list "comes out otherwise" than requested; or the name of a change by another
/// program.
struct Disturbance {
  Moment moment;
  std::string_view what;
};

/// One registration with all its disturbances. As a text: the kind and the disturbances, separated
/// by "; ".
struct Scenario {
  std::string_view kind = "install";
  std::vector<Disturbance> disturbances{};

  [[nodiscard]] std::string Text() const;
  /// Parses a scenario. The result refers to the text, which must exist as long.
  static Scenario Parse(std::string_view text);
};

/// The differences of a file's security from the original one; their sum is stored.
enum SecurityMark : unsigned {
  kOtherOwner = 1,
  kOtherGroup = 2,
  kOtherDacl = 4,
  /// Windows changed the access list while writing it.
  kOddDacl = 8
};

/// Thrown where the simulated process ends, and by every operation and call after that.
struct ProcessDeath {};

/// The code of every call that a script makes fail. No sharing violation, which is retried.
inline constexpr std::uint32_t kFaultCode = 1117;
/// The code of a replacement that stops half way.
inline constexpr std::uint32_t kGapCode = 1177;

/// Counts the moments of a run and decides what happens at each.
class RunScript {
 public:
  using Act = std::function<void(std::string_view what)>;

  RunScript(const std::vector<Disturbance>& disturbances, Act act)
      : disturbances_(disturbances), act_(std::move(act)), struck_(disturbances.size()) {}

  enum class Fate { Goes, Fails, FailsAfter, DiesAfter, InGap, Gone, Odd };

  /// Counts the begin of an operation. Throws ProcessDeath if the process ends or has ended.
  Fate Begin(std::string_view operation);
  /// Counts a call of the operation; throws like Begin.
  Fate Meet(std::string_view call, std::string_view role, bool changes);
  [[noreturn]] void Die();

  /// Called at every moment, if a test sets it.
  std::function<void(const Moment& moment)> on_moment;

  [[nodiscard]] const std::vector<Moment>& Moments() const { return moments_; }
  [[nodiscard]] bool IsRunning() const { return !moments_.empty(); }
  [[nodiscard]] bool IsDead() const { return is_dead_; }
  [[nodiscard]] bool HasAllStruck() const;

 private:
  Fate Pass(const Moment& moment);

  const std::vector<Disturbance>& disturbances_;
  Act act_;
  std::vector<bool> struck_;
  std::vector<Moment> moments_;
  std::map<std::string_view, int> operations_;
  std::size_t operation_at_ = 0;
  /// The number of times that the operation made each call, by call and role.
  std::vector<std::pair<std::pair<std::string_view, std::string_view>, int>> made_;
  bool is_dead_ = false;
  bool do_all_fail_ = false;
};

/// The end state of a run.
struct Remains {
  /// DXP.RCS; empty when it is missing.
  std::optional<std::string> rcs;
  /// The sum of SecurityMark of DXP.RCS.
  unsigned security = 0;
  /// Empty when there is no key.
  std::optional<std::vector<RegistryValue>> values;
  /// The working files beside DXP.RCS, by role.
  std::map<std::string, std::string> left;
  /// The backup of DXP.RCS.
  std::optional<std::string> saved;
  std::vector<std::string> log;
};

/// The state outside the process: the files and the registry key.
class RegistrationWorld {
 public:
  RegistrationWorld() = default;
  RegistrationWorld(const RegistrationWorld&) = delete;
  RegistrationWorld& operator=(const RegistrationWorld&) = delete;
  virtual ~RegistrationWorld() = default;

  /// Replaces the whole state by a DXP.RCS and a list; without values there is no key.
  virtual void Begin(std::string_view rcs,
                     const std::optional<std::vector<RegistryValue>>& values) = 0;
  /// Opens a store that announces every call to the script.
  virtual std::unique_ptr<Store> Open(RunScript& script) = 0;
  [[nodiscard]] virtual Remains Look() = 0;

  // Changes by another program

  /// Writes a file of this role, keeping its security, or deletes it.
  virtual void SetFile(std::string_view role, std::optional<std::string_view> text) = 0;
  virtual void MarkSecurity(std::string_view role, SecurityMark mark) = 0;
  /// Makes DXP.RCS a file that can be read but not replaced.
  virtual void MakeReadOnly() = 0;
  /// Writes or removes an entry of the list.
  virtual void SetEntry(const wchar_t* name, const wchar_t* text) = 0;
  virtual void DeleteKey() = 0;
};

/// The initial state and the planned end state of a kind of run. DXP.RCS has the text "old" and
/// shall get "new", or has "new" already.
struct RunKind {
  std::string_view name;
  std::string_view rcs_before;
  std::optional<std::vector<RegistryValue>> values_before;
  std::vector<RegistryValue> values_after;
};

/// Returns the kinds: "install" changes file and list, "first" too but without a key, "file" and
/// "list" one of them, "remove" both with the project twice in the list, "idempotent" nothing.
const std::vector<RunKind>& RunKinds();
const RunKind& KindOf(std::string_view name);

struct RunOutcome {
  bool success = false;
  bool died = false;
  bool all_struck = false;
  std::string message;
  Remains remains;
  std::vector<Moment> moments;

  /// Returns "file | list | working files | message", as in the rows.
  [[nodiscard]] std::string Line() const;
};

/// Replaces the state of the world by the initial one of the scenario, and runs the scenario.
RunOutcome Play(RegistrationWorld& world, const Scenario& scenario);
/// Runs a scenario with the current state of the world.
RunOutcome Continue(RegistrationWorld& world, const Scenario& scenario);
/// Returns the change of a kind of run; its validation is a moment "Validate" of the script.
RegistrationChange ChangeOf(const RunKind& kind, RunScript& script);
/// Returns a store that announces each operation to the script before it begins.
std::unique_ptr<Store> Observed(std::unique_ptr<Store> store, RunScript& script);

/// Returns the list as a text such as "0=A 1=B", sorted by name, or "no key".
std::string ListText(const std::optional<std::vector<RegistryValue>>& values);
/// Returns a REG_SZ value.
RegistryValue TextEntry(const wchar_t* name, const wchar_t* text);

/// Returns the laws that a run without changes by other programs broke; "" when all hold.
std::string BrokenLaws(const RunKind& kind, const RunOutcome& outcome);

}  // namespace altium_registration
