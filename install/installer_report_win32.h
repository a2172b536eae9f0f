#pragma once

#include <string>

#include "install/installer_options.h"

namespace kestrune {

/// Writes `message` into the report file that the options name: UTF-8 with its mark, line ends CR
/// LF. A file that is there is overwritten. Does nothing when the options name none.
///
/// Never fails its caller: a file that cannot be written is named in the log, and no part of a
/// report stays in it.
void WriteInstallerReport(const InstallerOptions& options, const std::wstring& message) noexcept;

}  // namespace kestrune
