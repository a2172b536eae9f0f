#pragma once

#include <string>

#include "common/system/system_calls_win32.h"
#include "install/installer_options.h"

namespace kestrune {

/// Runs one installer command for every host instance that matches the options. Returns the exit
/// code (InstallerCode) and a report about each instance. Shows nothing and never throws.
///
/// `program_path` is the path of the running program, which is deployed as part of the runtime.
InstallerResult RunInstallerCommand(SystemCalls& calls, const InstallerOptions& options,
                                    const std::wstring& program_path);

}  // namespace kestrune
