#pragma once

#include <optional>

#include "common/system/system_calls_win32.h"
#include "install/discovery/host_instance.h"
#include "install/installer_log_win32.h"
#include "install/installer_options.h"
#include "install/installer_report.h"
#include "install/registration_settings_win32.h"
#include "install/shared_runtime_win32.h"

namespace kestrune {

/// Holds the data that one installer command uses for all instances.
struct InstallerRun {
  InstallerCommand command;
  SystemCalls& calls;
  SharedRuntime& runtime;
  InstallerReport& report;
  const InstallerLog& log;
  /// Read when the first instance needs them; reading is repeated for the next instance if it
  /// fails.
  std::optional<RegistrationSettings> settings = {};
};

/// Carries out the command for one instance, whose header is already in the report, and adds the
/// result. Throws Failure, std::bad_alloc or another exception; the instance is then unchanged,
/// unless the report says otherwise.
void HandleInstance(InstallerRun& run, const HostInstance& instance);

}  // namespace kestrune
