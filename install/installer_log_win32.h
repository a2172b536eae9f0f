#pragma once

#include <string_view>

#include "common/failure/failure.h"
#include "common/system/system_calls_win32.h"
#include "install/installer_options.h"

namespace kestrune {

/// Writes an installer command's entries to the diagnostic log, in which an administrator finds
/// what a quiet run did. Logs nothing for `--status`. Functions without noexcept throw
/// std::bad_alloc.
class InstallerLog {
 public:
  InstallerLog(SystemCalls& calls, InstallerCommand command) : calls_(calls), command_(command) {}

  /// Logs the failure of an instance, or of the whole command when there is no GUID.
  void Failed(const Failure& failure, std::wstring_view guid = {}) const;
  void FailedWithoutMemory() const noexcept;
  void Skipped(std::wstring_view reason, std::wstring_view guid) const;
  /// Logs the failure of the deployment: a sentence completed by the failure's subject.
  void DeploymentRefused(const Failure& refusal, std::wstring_view package) const;
  /// Logs that the running program is the deployed one, which the deployment therefore did not
  /// replace.
  void ProgramKept(std::wstring_view package) const;

 private:
  void Write(std::wstring_view stage, std::wstring_view detail) const noexcept;

  SystemCalls& calls_;
  InstallerCommand command_;
};

}  // namespace kestrune
