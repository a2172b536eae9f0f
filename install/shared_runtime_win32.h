#pragma once

#include <string>

#include "common/system/system_calls_win32.h"
#include "install/installer_log_win32.h"
#include "install/installer_options.h"

namespace kestrune {

/// Manages the runtime directory that all instances of the user share.
class SharedRuntime {
 public:
  /// Finds the directory. Throws Failure when the user's folder cannot be found, or when the
  /// directory's path cannot be written in the host's scripts.
  SharedRuntime(SystemCalls& calls, const InstallerOptions& options,
                const std::wstring& program_path, const InstallerLog& log);

  [[nodiscard]] const std::wstring& LocalAppData() const { return local_app_data_; }
  [[nodiscard]] const std::wstring& Directory() const { return directory_; }
  /// Returns the script project that is registered.
  [[nodiscard]] const std::wstring& ProjectPath() const { return project_path_; }

  /// Deploys the runtime from the package, once per run. Throws Failure "Runtime deployment failed;
  /// profile unchanged." and logs the reason; the next call then tries again.
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
