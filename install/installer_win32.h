#pragma once

#include <string>

#include "common/system/system_calls_win32.h"
#include "install/installer_options.h"

namespace kestrune {

/// Carries out one installer command for every host instance that the options leave, and answers
/// the exit code (InstallerCode) with a report that covers each of them. Shows nothing and throws
/// nothing.
///
/// `program_path` is the running program file, which is deployed as part of the runtime.
InstallerResult RunInstallerCommand(const InstallerOptions& options,
                                    const std::wstring& program_path, SystemCalls& calls);

}  // namespace kestrune
