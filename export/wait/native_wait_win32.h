#pragma once

#include <string>

namespace kestrune {

/// The exit code when no complete archive was seen.
inline constexpr int kNativeWaitFailed = 5;

/// Waits until the host has finished writing `expected_path`, and leaves the outcome in
/// `result_path` for the script. Only the presence of `report_path` is looked at, for the log.
///
/// Returns the exit code of `--wait-native`: 0 the archive is complete, 5 it was not after 240
/// looks, half a second apart.
int WaitForNativeOutput(const std::wstring& expected_path, const std::wstring& report_path,
                        const std::wstring& result_path);

/// Leaves the outcome of a wait that ended without archive in `result_path`; the script polls that
/// file and would wait in vain without it.
void ReportNativeWaitFailure(const std::wstring& result_path);

}  // namespace kestrune
