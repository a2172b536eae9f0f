#pragma once

#include <string>
#include <string_view>

#include "common/log/clock_time.h"

namespace kestrune {

/// Fills a script template, bytes in and bytes out: every "@RUNTIME_ROOT@" becomes the runtime
/// directory, every "@TEMP_ROOT@" the temporary root, both as they stand. What was inserted is
/// never searched, whatever a directory is called.
std::string FillScriptTemplate(std::string_view script, std::string_view runtime_root,
                               std::string_view temp_root);

/// Name of the file in which a filled script waits from this moment on to be installed:
/// "script-20250131_235959_042.incoming".
std::wstring IncomingScriptName(const ClockTime& time);

}  // namespace kestrune
