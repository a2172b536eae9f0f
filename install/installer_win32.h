#pragma once

#include <string>

#include "install/installer_options.h"

namespace kestrune {

/// The exit code of an installer command that failed.
inline constexpr int kInstallerFailed = 40;

/// Carries out one installer command for every host instance that the options leave, and answers
/// the exit code with a report that covers each of them. Shows nothing and throws nothing.
///
/// Exit codes: 0 all done (for `--status`: all installed), 10 `--status` found an instance that is
/// not, 20 no instance, 30 a host runs (not for `--status`), 40 an instance was skipped or failed,
/// or the command as a whole did.
///
/// `program_path` is the running program file, which is deployed as part of the runtime.
InstallerResult RunInstallerCommand(const InstallerOptions& options,
                                    const std::wstring& program_path);

}  // namespace kestrune
