#pragma once

#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Fills the package's script template with this machine's directories and installs it as
/// Kestrune.pas in the runtime directory, with the template's time and under the same policy as
/// every other runtime file; the template proves its origin. A script that is as new as the
/// template is left alone, also when the directories have changed.
///
/// Throws Refusal: one of the file installation's or "Cannot locate the Public Documents
/// directory.", "Cannot write the runtime script." and such. Throws Failure "remove" when the
/// waiting file cannot be deleted afterwards.
void GenerateRuntimeScript(SystemCalls& calls, const std::wstring& package,
                           const std::wstring& runtime);

}  // namespace kestrune
