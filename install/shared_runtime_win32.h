#pragma once

#include <string>

#include "common/system/system_calls_win32.h"
#include "install/installer_log_win32.h"
#include "install/installer_options.h"

namespace kestrune {

/// The runtime directory that all instances of the user share.
class SharedRuntime {
 public:
  /// Finds the directory. Throws Failure where the user's folder cannot be found, or where the
  /// host's scripts could not hold the directory's path.
  SharedRuntime(SystemCalls& calls, const InstallerOptions& options,
                const std::wstring& program_path, const InstallerLog& log);

  [[nodiscard]] const std::wstring& LocalAppData() const { return local_app_data_; }
  [[nodiscard]] const std::wstring& Directory() const { return directory_; }
  /// The script project that is registered.
  [[nodiscard]] const std::wstring& ProjectPath() const { return project_path_; }

  /// Fills the directory from the package, once in a run. Throws Failure "Runtime deployment
  /// failed; profile unchanged."; the log has the reason. The next call then tries again.
  void Deploy();

 private:
  SystemCalls& calls_;
  const InstallerOptions& options_;
  const std::wstring& program_path_;
  const InstallerLog& log_;
  std::wstring local_app_data_;
  std::wstring directory_;
  std::wstring project_path_;
  bool is_deployed_ = false;
};

}  // namespace kestrune
