#pragma once

#include <string>

namespace kestrune {

/// The package that the program came with: its own directory or one of the five above, the first
/// with `Script\Kestrune.pas` and `Runtime\Bridge.OutJob` below it. Empty when there is none.
/// Throws Failure "status" when Windows cannot say whether a file exists.
std::wstring FindPackageDirectory(const std::wstring& program_path);

}  // namespace kestrune
