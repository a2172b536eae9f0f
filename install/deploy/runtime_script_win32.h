#pragma once

#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Fills the package's script template with this machine's directories and installs it as
/// Kestrune.pas in the runtime directory, with the template's time and under the policy of
/// InstallFile; the template proves its origin. A script that is as new as the template is kept,
/// even when the directories have changed.
///
/// Throws Refusal: one of InstallFile, or its own such as "Cannot locate the Public Documents
/// directory." and "Cannot write the runtime script.". Throws Failure "remove" when the temporary
/// file cannot be deleted afterwards.
void GenerateRuntimeScript(SystemCalls& calls, const std::wstring& package,
                           const std::wstring& runtime);

}  // namespace kestrune
