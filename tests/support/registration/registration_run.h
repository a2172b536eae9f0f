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

/// A moment of a run: right before the `number`-th operation of a kind, or, with a call, right
/// before the `repeat`-th such call that the operation makes. The texts are literals.
struct Moment {
  /// An operation of Store; "Validate" is the judgement of a text, "Close" the end of the store.
  std::string_view operation{};
  int number = 1;
  /// A call of SystemCalls, empty for the operation itself.
  std::string_view call{};
  /// The file that the call is about: "rcs", "temp", "displaced", "undone", "recovery", "spare" and
  /// the backups "saved", "values", "instance", "security", "log"; empty for any other call.
  std::string_view role{};
  int repeat = 1;
  /// The call changes something outside the process.
  bool changes = false;

  [[nodiscard]] bool IsSame(const Moment& other) const;
  /// "Commit#1", "Commit#1/Replace:rcs", "Prepare#1/GetSecurity:temp#2".
  [[nodiscard]] std::string Text() const;
};

/// What happens at a moment: "fails" and "fails after" its effect, "all fail" (this call and every
/// later one), "dies" and "dies after" its
/// effect (the process ends), "stops in the gap" of a replacement (the old file is displaced and
/// none is in its place), "loses the file", "comes out otherwise" (the access list of the file is
/// another one afterwards), or the name of an act of another program.
struct Disturbance {
  Moment moment;
  std::string_view what;
};

/// One registration with everything that disturbs it. As a text: the kind and the disturbances,
/// separated by "; ".
struct Scenario {
  std::string_view kind = "install";
  std::vector<Disturbance> disturbances{};

  [[nodiscard]] std::string Text() const;
  /// Reads the text of a scenario, which the result refers to.
  static Scenario Parse(std::string_view text);
};

/// How the security of a file differs from the original one, as a sum.
enum SecurityMark : unsigned {
  kOtherOwner = 1,
  kOtherGroup = 2,
  kOtherDacl = 4,
  /// The access list that Windows made of a written one.
  kOddDacl = 8
};

/// Thrown where the process ends, and by every operation and call after that.
struct ProcessDeath {};

/// The code of every call that a script lets fail; no code of a lock, which would be tried again.
inline constexpr std::uint32_t kFaultCode = 1117;
/// The code of a replacement that stops half way.
inline constexpr std::uint32_t kGapCode = 1177;

/// Counts the moments of a run and says what happens at each.
class RunScript {
 public:
  using Act = std::function<void(std::string_view what)>;

  RunScript(const std::vector<Disturbance>& disturbances, Act act)
      : disturbances_(disturbances), act_(std::move(act)), struck_(disturbances.size()) {}

  enum class Fate { Goes, Fails, FailsAfter, DiesAfter, InGap, Gone, Odd };

  /// Begins an operation. Throws ProcessDeath where the process ends or has ended.
  Fate Begin(std::string_view operation);
  /// Meets a call of the operation; throws like Begin.
  Fate Meet(std::string_view call, std::string_view role, bool changes);
  [[noreturn]] void Die();

  /// Called at every moment, for tests that do something of their own there.
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
  /// How often the operation made each call, with its role.
  std::vector<std::pair<std::pair<std::string_view, std::string_view>, int>> made_;
  bool is_dead_ = false;
  bool do_all_fail_ = false;
};

/// What a run leaves.
struct Remains {
  /// DXP.RCS; empty when it is missing.
  std::optional<std::string> rcs;
  /// A sum of SecurityMark.
  unsigned security = 0;
  /// Empty when there is no key.
  std::optional<std::vector<RegistryValue>> values;
  /// The working files beside DXP.RCS, by role.
  std::map<std::string, std::string> left;
  /// The saved file.
  std::optional<std::string> saved;
  std::vector<std::string> log;
};

/// What exists outside the process: a file, a key, and what a store makes of them.
class RegistrationWorld {
 public:
  RegistrationWorld() = default;
  RegistrationWorld(const RegistrationWorld&) = delete;
  RegistrationWorld& operator=(const RegistrationWorld&) = delete;
  virtual ~RegistrationWorld() = default;

  /// Begins anew with a DXP.RCS and a list; without values there is no key.
  virtual void Begin(std::string_view rcs,
                     const std::optional<std::vector<RegistryValue>>& values) = 0;
  /// Opens a store whose every call meets the script.
  virtual std::unique_ptr<Store> Open(RunScript& script) = 0;
  [[nodiscard]] virtual Remains Look() = 0;

  // What another program does

  /// Writes a file of a role, keeping its security, or deletes it.
  virtual void SetFile(std::string_view role, std::optional<std::string_view> text) = 0;
  virtual void MarkSecurity(std::string_view role, SecurityMark mark) = 0;
  /// From now on DXP.RCS can be read and not replaced.
  virtual void MakeReadOnly() = 0;
  /// Writes or removes an entry of the list.
  virtual void SetEntry(const wchar_t* name, const wchar_t* text) = 0;
  virtual void DeleteKey() = 0;
};

/// The state that a kind of run begins with and the one that it wants. DXP.RCS holds "old" and is
/// to hold "new", or holds "new" already.
struct RunKind {
  std::string_view name;
  std::string_view rcs_before;
  std::optional<std::vector<RegistryValue>> values_before;
  std::vector<RegistryValue> values_after;
};

/// Returns the kinds: "install" (both), "first" (both, without a key), "file" and "list" (one of
/// them), "remove" (both, the script project twice in the list) and "idempotent".
const std::vector<RunKind>& RunKinds();
const RunKind& KindOf(std::string_view name);

struct RunOutcome {
  bool success = false;
  bool died = false;
  bool all_struck = false;
  std::string message;
  Remains remains;
  std::vector<Moment> moments;

  /// As the rows show it: "file | list | working files | message".
  [[nodiscard]] std::string Line() const;
};

/// Begins the world anew and plays a scenario in it.
RunOutcome Play(RegistrationWorld& world, const Scenario& scenario);
/// Plays one in the world as it is.
RunOutcome Continue(RegistrationWorld& world, const Scenario& scenario);
/// Returns the change that a kind of run wants, validated with a moment "Validate" of the script.
RegistrationChange ChangeOf(const RunKind& kind, RunScript& script);
/// Returns a store that announces each operation to the script before it begins.
std::unique_ptr<Store> Observed(std::unique_ptr<Store> store, RunScript& script);

/// Returns "0=A 1=B", by name, or "no key".
std::string ListText(const std::optional<std::vector<RegistryValue>>& values);
/// Returns a value with a text.
RegistryValue TextEntry(const wchar_t* name, const wchar_t* text);

/// Returns the laws that a run broke in which no other program acted; "" when all hold.
std::string BrokenLaws(const RunKind& kind, const RunOutcome& outcome);

}  // namespace altium_registration
