#pragma once

#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Finds the package that the program came with: the first of PackageDirectories with
/// `Script\Kestrune.pas` and `Runtime\Bridge.OutJob` below it. Returns an empty path when there is
/// none. Throws Failure "status" when Windows cannot report whether a file exists.
std::wstring FindPackageDirectory(SystemCalls& calls, const std::wstring& program_path);

}  // namespace kestrune
