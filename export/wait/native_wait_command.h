#pragma once

#include <string>

namespace kestrune {

/// Holds the arguments of `--wait-native`, which waits until the host has written its archive.
struct WaitNativeCommand {
  std::wstring expected_path;
  /// Only the presence of this file is checked, for the log.
  std::wstring report_path;
  /// Where the script reads the outcome.
  std::wstring result_path;
};

/// Lists the exit codes of `--wait-native`.
enum WaitNativeCode : int {
  kNativeOutputComplete = 0,
  kNativeWaitFailed = 5,
};

}  // namespace kestrune
