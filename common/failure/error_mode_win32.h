#pragma once

#include <windows.h>

namespace kestrune {

/// Changes the process's error mode for the duration of a scope.
class ErrorMode {
 public:
  explicit ErrorMode(UINT mode) noexcept : found_(SetErrorMode(mode)) {}
  ErrorMode(const ErrorMode&) = delete;
  ErrorMode& operator=(const ErrorMode&) = delete;
  ~ErrorMode() { SetErrorMode(found_); }

  /// Returns the previous mode, which is restored at the end of the scope.
  [[nodiscard]] UINT Found() const noexcept { return found_; }

 private:
  UINT found_;
};

/// Makes a call fail where Windows would otherwise show a box of its own: for a drive without a
/// medium, or a file that cannot be opened.
inline constexpr UINT kNoSystemBoxes = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;

}  // namespace kestrune
