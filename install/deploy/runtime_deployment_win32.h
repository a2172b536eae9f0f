#pragma once

#include <optional>
#include <string>

#include "common/failure/failure.h"
#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Installs the program, the package's files and the script for this machine in the user's runtime
/// directory, each under the policy of InstallFile. Files that were installed before a failing one
/// are kept.
///
/// Returns nothing on success, or the failure: a sentence in `text`, completed by the path in
/// `subject`. Throws Failure "status" when Windows cannot report whether a file of the package
/// exists, and "remove" as GenerateRuntimeScript does.
std::optional<Failure> DeployRuntime(SystemCalls& calls, const std::wstring& package,
                                     const std::wstring& program);

}  // namespace kestrune
