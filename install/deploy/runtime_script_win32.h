#pragma once

#include <string>

namespace kestrune {

/// Fills the package's script template with this machine's directories and installs it as
/// Kestrune.pas in the runtime directory, with the template's time and under the same policy as
/// every other runtime file. A script that is as new as the template is left alone, also when the
/// directories have changed.
///
/// False with a message, one of the file installation's or "Cannot locate the Public Documents
/// directory.", "Cannot write the runtime script." and such; without one when the waiting file's
/// time cannot be set. Throws Failure "remove" when that file cannot be deleted afterwards.
[[nodiscard]] bool GenerateRuntimeScript(const std::wstring& package, const std::wstring& runtime,
                                         std::wstring& message);

}  // namespace kestrune
