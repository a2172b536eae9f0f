#pragma once

#include <string>

namespace kestrune {

/// `--wait-native`: wait until the host has written its archive.
struct WaitNativeCommand {
  std::wstring expected_path;
  /// Only the presence of this file is looked at, for the log.
  std::wstring report_path;
  /// Where the outcome is left for the script.
  std::wstring result_path;
};

/// Exit codes of `--wait-native`.
enum WaitNativeCode : int {
  kNativeOutputComplete = 0,
  kNativeWaitFailed = 5,
};

}  // namespace kestrune
