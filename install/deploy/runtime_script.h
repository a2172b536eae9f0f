#pragma once

#include <string>
#include <string_view>

#include "common/log/clock_time.h"

namespace kestrune {

/// Returns the script template with every "@RUNTIME_ROOT@" replaced by the runtime directory and
/// every "@TEMP_ROOT@" by the temporary root. All texts are bytes and inserted unchanged; inserted
/// text is not searched again.
std::string FillScriptTemplate(std::string_view script, std::string_view runtime_root,
                               std::string_view temp_root);

/// Returns the name of the temporary file for a filled script until it is installed:
/// "script-20250131_235959_042.incoming".
std::wstring IncomingScriptName(const ClockTime& time);

}  // namespace kestrune
