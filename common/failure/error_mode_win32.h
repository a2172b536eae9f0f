#pragma once

#include <windows.h>

namespace kestrune {

/// Changes the process's error mode for the duration of a scope.
class ErrorMode {
 public:
  explicit ErrorMode(UINT mode) noexcept : previous_(SetErrorMode(mode)) {}
  ErrorMode(const ErrorMode&) = delete;
  ErrorMode& operator=(const ErrorMode&) = delete;
  ~ErrorMode() { SetErrorMode(previous_); }

  /// Returns the previous mode, which is restored at the end of the scope.
  [[nodiscard]] UINT Previous() const noexcept { return previous_; }

 private:
  UINT previous_;
};

/// The error mode in which a call fails where Windows would otherwise show a box: for a drive
/// without a medium, or a file that cannot be opened.
inline constexpr UINT kNoSystemBoxes = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;

}  // namespace kestrune
