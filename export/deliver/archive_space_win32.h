#pragma once

#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Returns whether a local disk certainly lacks the space to overwrite the archive at `destination`
/// with the one at `native_zip`. Copying truncates the old archive first, so a failed copy would
/// leave the user with neither. Returns false when it is not certain (no file at the destination, a
/// link, a share, a compressed file, a file system that does not report its free space); the copy
/// is then tried.
bool LacksSpaceToOverwrite(SystemCalls& calls, const std::wstring& native_zip,
                           const std::wstring& destination);

}  // namespace kestrune
