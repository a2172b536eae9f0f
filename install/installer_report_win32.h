#pragma once

#include <string>

#include "common/system/system_calls_win32.h"
#include "install/installer_options.h"

namespace kestrune {

/// Writes `message` into the report file that the options name: UTF-8 with byte order mark, line
/// ends CR LF. Overwrites an existing file. Does nothing when the options name none.
///
/// Logs the name of a file that cannot be written, and leaves no partial report.
void WriteInstallerReport(SystemCalls& calls, const InstallerOptions& options,
                          const std::wstring& message) noexcept;

}  // namespace kestrune
