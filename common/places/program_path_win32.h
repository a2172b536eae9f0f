#pragma once

#include <windows.h>

#include <string>

namespace kestrune {

/// This program's own path, asked for in a buffer of `capacity` characters with the terminating
/// NUL. Empty when it does not fit: what Windows cuts names another file or none.
std::wstring ProgramPath(DWORD capacity = MAX_PATH);

}  // namespace kestrune
