#pragma once

#include <optional>
#include <string>

#include "common/system/system_calls_win32.h"
#include "install/discovery/host_instance.h"
#include "install/installer_log_win32.h"
#include "install/installer_options.h"
#include "install/installer_report.h"
#include "install/registration_settings_win32.h"
#include "install/shared_runtime_win32.h"

namespace kestrune {

/// What the instances of one installer command have in common.
struct InstallerRun {
  InstallerCommand command;
  SystemCalls& calls;
  SharedRuntime& runtime;
  InstallerReport& report;
  const InstallerLog& log;
  /// Read when the first instance needs it, and again while reading fails.
  std::optional<RegistrationSettings> settings = {};
};

/// Carries the command out for one instance and adds its lines to the report, which has its header
/// already. Throws Failure, and whatever else is thrown below; the instance then is as it was,
/// unless the report says otherwise.
void HandleInstance(InstallerRun& run, const HostInstance& instance);

}  // namespace kestrune
