#pragma once

#include <string>
#include <string_view>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Returns `<local application data>\Kestrune\Logs\bridge.log`, or an empty path when that folder
/// cannot be determined.
std::wstring LogFilePath(SystemCalls& calls);

/// Appends one line to the diagnostic log. The detail consists of `Key=value` fields separated by
/// one blank.
///
/// Never throws and preserves the thread's last error. An entry that cannot be written (no folder,
/// another writer at the same moment, a full disk) is dropped. A log that would exceed 1 MiB is
/// emptied first.
void WriteLogEntry(SystemCalls& calls, std::wstring_view stage,
                   std::wstring_view detail = {}) noexcept;

}  // namespace kestrune
