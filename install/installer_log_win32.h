#pragma once

#include <string_view>

#include "common/failure/failure.h"
#include "install/installer_options.h"

namespace kestrune {

/// What an installer command leaves in the diagnostic log for an administrator, who sees nothing of
/// a quiet run. Asking for the status logs nothing. What there is no memory for is not logged.
class InstallerLog {
 public:
  explicit InstallerLog(InstallerCommand command) : command_(command) {}

  /// An instance, or without a GUID the whole command, that failed.
  void Failed(const Failure& failure, std::wstring_view guid = {}) const;
  void FailedWithoutMemory() const noexcept;
  void Skipped(std::wstring_view reason, std::wstring_view guid) const;
  /// What refused the deployment: a sentence that the failure's subject ends.
  void DeploymentRefused(const Failure& refusal, std::wstring_view package) const;
  /// A deployment from the program's own copy in the runtime directory, which cannot replace
  /// itself.
  void ProgramKept(std::wstring_view package) const;

 private:
  void Write(std::wstring_view stage, std::wstring_view detail) const noexcept;

  InstallerCommand command_;
};

}  // namespace kestrune
