#pragma once

#include <windows.h>

#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Returns this program's own path, read into a buffer of `capacity` characters including the
/// terminating null. Returns an empty path when it does not fit, since a truncated path names
/// another file or none.
std::wstring ProgramPath(SystemCalls& calls, DWORD capacity = MAX_PATH);

}  // namespace kestrune
