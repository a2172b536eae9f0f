#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrune {

/// Fills a script template, bytes in and bytes out: every "@RUNTIME_ROOT@" becomes the runtime
/// directory, every "@TEMP_ROOT@" the temporary root, both as they stand. What was inserted is
/// never searched, whatever a directory is called.
std::string FillScriptTemplate(std::string_view script, std::string_view runtime_root,
                               std::string_view temp_root);

/// A local time down to the millisecond.
struct IncomingTime {
  unsigned year = 0;
  unsigned month = 0;
  unsigned day = 0;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
  unsigned milliseconds = 0;
};

/// Name of the file in which a filled script waits to be installed:
/// "script-20250131_235959_042.incoming".
std::wstring IncomingScriptName(const IncomingTime& time);

}  // namespace kestrune
