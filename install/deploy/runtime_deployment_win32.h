#pragma once

#include <optional>
#include <string>

#include "common/failure/failure.h"
#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Fills the user's runtime directory with the program, the package's files and the script made for
/// this machine, each under the policy of InstallFile. Files that came before a failing one stay.
///
/// Returns what refused it: the sentence in `text`, ended by the path in `subject`. Throws Failure
/// "status" when Windows cannot say whether a file of the package exists, and "remove" as
/// GenerateRuntimeScript does.
std::optional<Failure> DeployRuntime(SystemCalls& calls, const std::wstring& package,
                                     const std::wstring& program);

}  // namespace kestrune
