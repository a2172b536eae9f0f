#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "registration/transaction/store.h"

namespace altium_registration {

/// What exists outside the process and outlives it, as a model store sees it.
struct ModelWorld {
  /// DXP.RCS; empty when it is missing.
  std::optional<std::string> rcs;
  std::vector<RegistryValue> values;
  /// Stands for owner, group and DACL of DXP.RCS.
  std::string security = "original";
  /// The working files beside DXP.RCS: the new text before it is put in place, the file that a
  /// replacement moved away, and the saved text before it is put back.
  std::optional<std::string> temporary;
  std::optional<std::string> displaced;
  std::optional<std::string> recovery;
  /// The saved file; set only once all backups are complete.
  std::optional<std::string> backup;
  std::vector<std::string> log;
  /// Every change of file, key, security and backups in order, as words.
  std::vector<std::string> mutations;
};

/// Ends the process at this point: every later call is thrown out of as well, without any effect.
struct ProcessDeath {};

/// Where a call goes wrong: before its effect, after it, half way through it, with DXP.RCS moved
/// away and nothing in its place, or with the moved file gone as well. Every call has the first two
/// places; the others are there only for operations that can stop so.
enum class FaultPlace { Before, After, HalfWay, InGap, Gone };

/// The n-th call of an operation ("WriteValue#2") goes wrong: it fails, or the process ends there.
struct ModelFault {
  std::string call;
  FaultPlace place = FaultPlace::Before;
  bool dies = false;
};

/// A Store in memory that keeps the contract of Store, with faults at chosen calls and other
/// programs that act between any two of them.
class ModelStore final : public Store {
 public:
  /// Called with the call's name before the call begins: the moment of another program.
  using Interference = std::function<void(std::string_view call, ModelWorld& world)>;

  explicit ModelStore(ModelWorld& world, std::vector<ModelFault> faults = {},
                      Interference interference = {});
  ~ModelStore() override;

  std::string ReadRcs() override;
  std::vector<RegistryValue> ReadGlobalProjects() override;
  void CreateBackups(std::string_view rcs, const std::vector<RegistryValue>& values) override;
  void PrepareReplacement(std::string_view new_text) override;
  std::string ReadReplacement() override;
  void CommitReplacement() override;
  bool HasReplacedRcs() const noexcept override { return replaced_; }
  void CheckSourceSecurity() override;
  void WriteGlobalProjectsValue(const RegistryValue& value) override;
  void RemoveGlobalProjectsValue(const std::wstring& name) override;
  void RollBackRcs() override;
  void AppendLog(std::string_view line) override;
  void RestoreRcsSecurity() override;

  /// The calls begun so far, in order.
  [[nodiscard]] const std::vector<std::string>& Calls() const { return calls_; }
  /// Every place at which one of these calls can go wrong, in the same order.
  [[nodiscard]] const std::vector<ModelFault>& Faults() const { return offered_; }
  /// Whether the process ended.
  [[nodiscard]] bool Died() const { return dead_; }
  /// Whether every fault that was asked for has struck.
  [[nodiscard]] bool AllFaultsStruck() const { return struck_ == faults_.size(); }

  /// The text with which an operation fails here.
  static std::wstring FailureText(std::string_view operation, FaultPlace place);

 private:
  using Effect = std::function<void()>;
  /// What an operation has done where it stops; never asked for a place before its effect.
  using Effects = std::map<FaultPlace, Effect>;

  void Act(const std::string& operation, const Effect& effect, Effects partial = {});
  void RequireCommittable() const;
  void MoveAway();
  void PutNewTextInPlace();
  void RequireOwnFile() const;
  void PutOldTextBack();
  void StopRestoringInGap();
  void Mutate(std::string word) { world_.mutations.push_back(std::move(word)); }

  ModelWorld& world_;
  std::vector<ModelFault> faults_;
  Interference interference_;
  std::vector<std::string> calls_;
  std::vector<ModelFault> offered_;
  std::map<std::string, int> counts_;
  std::size_t struck_ = 0;
  std::string opened_rcs_;
  std::string opened_security_;
  std::string committed_rcs_;
  bool replaced_ = false;
  /// The commit left no DXP.RCS.
  bool lost_ = false;
  bool owns_recovery_ = false;
  bool dead_ = false;
};

}  // namespace altium_registration
