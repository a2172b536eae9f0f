#pragma once

#include <string_view>

#include "common/failure/failure.h"
#include "common/system/system_calls_win32.h"
#include "install/installer_options.h"

namespace kestrune {

/// Writes an installer command's entries to the diagnostic log, from which an administrator learns
/// what a quiet run did. Nothing is logged for `--status`. An entry for which memory is missing is
/// dropped.
class InstallerLog {
 public:
  InstallerLog(SystemCalls& calls, InstallerCommand command) : calls_(calls), command_(command) {}

  /// Logs the failure of an instance, or of the whole command when there is no GUID.
  void Failed(const Failure& failure, std::wstring_view guid = {}) const;
  void FailedWithoutMemory() const noexcept;
  void Skipped(std::wstring_view reason, std::wstring_view guid) const;
  /// Logs the failure of the deployment: a sentence completed by the failure's subject.
  void DeploymentRefused(const Failure& refusal, std::wstring_view package) const;
  /// Logs that the program runs from the runtime directory, so that the deployment cannot replace
  /// it.
  void ProgramKept(std::wstring_view package) const;

 private:
  void Write(std::wstring_view stage, std::wstring_view detail) const noexcept;

  SystemCalls& calls_;
  InstallerCommand command_;
};

}  // namespace kestrune
