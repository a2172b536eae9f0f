#pragma once

#include <string>
#include <string_view>

namespace kestrune {

/// `<local application data>\Kestrune\Logs\bridge.log`, or empty when that folder cannot be found.
std::wstring LogFilePath();

/// Appends one line to the diagnostic log. Details are `Key=value` fields separated by one blank.
///
/// Never fails its caller, never throws and leaves the thread's last error as it was: an entry that
/// cannot be written (no folder, another writer at the same moment, a full disk) is lost. A log
/// that would pass 1 MiB starts over with this line.
void WriteLogEntry(std::wstring_view stage, std::wstring_view detail = {}) noexcept;

}  // namespace kestrune
