#pragma once

#include <windows.h>

namespace kestrune {

/// The process's error mode for the time of a scope.
class ErrorMode {
 public:
  explicit ErrorMode(UINT mode) noexcept : found_(SetErrorMode(mode)) {}
  ErrorMode(const ErrorMode&) = delete;
  ErrorMode& operator=(const ErrorMode&) = delete;
  ~ErrorMode() { SetErrorMode(found_); }

  /// The mode that was in force before, and is again after the scope.
  [[nodiscard]] UINT Found() const noexcept { return found_; }

 private:
  UINT found_;
};

/// No box of the system's own for a drive without a medium or a file that cannot be opened: the
/// call fails instead.
inline constexpr UINT kNoSystemBoxes = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;

}  // namespace kestrune
