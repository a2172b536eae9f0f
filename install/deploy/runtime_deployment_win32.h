#pragma once

#include <string>

namespace kestrune {

/// Fills the user's runtime directory with the program, the package's files and the script made for
/// this machine, each under the policy of InstallFile. Files that came before a failing one stay.
///
/// False with a message, or without one when a file of the package is missing. Throws Failure
/// "status" when Windows cannot say whether a file of the package exists, and "remove" as
/// GenerateRuntimeScript does.
[[nodiscard]] bool DeployRuntime(const std::wstring& package, const std::wstring& program,
                                 std::wstring& message);

}  // namespace kestrune
