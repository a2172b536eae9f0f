#pragma once

#include <cstdint>

namespace kestrune {

/// Holds the arguments of `--position-window`, which centres one window on the monitor of another.
/// The window handles are numbers of which the low 32 bits count; a host may print them
/// sign-extended to 64 bits.
struct PositionWindowCommand {
  std::uint64_t target = 0;
  std::uint64_t reference = 0;
};

/// Lists the exit codes of `--position-window`.
enum PositionWindowCode : int {
  kWindowMoved = 0,
  kPositionNoTarget = 2,
  /// The monitor or the window could not be read.
  kPositionUnreadable = 3,
  kPositionCannotMove = 4,
};

}  // namespace kestrune
