#pragma once

#include <string>

namespace kestrune {

/// Waits until the host has finished writing `expected_path`, and leaves the outcome in
/// `result_path` for the script. Only the presence of `report_path` is looked at, for the log.
///
/// Returns the exit code of `--wait-native`: 0 the archive is complete, 5 it was not after 240
/// looks, half a second apart.
int WaitForNativeOutput(const std::wstring& expected_path, const std::wstring& report_path,
                        const std::wstring& result_path);

}  // namespace kestrune
