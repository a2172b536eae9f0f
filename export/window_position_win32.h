#pragma once

#include <cstdint>

namespace kestrune {

/// The exit code when the monitor or the window could not be read.
inline constexpr int kPositionUnreadable = 3;

/// Moves the target window to the centre of the work area of the monitor on which the reference
/// window lies; it is neither resized nor activated. The handles are numbers whose low 32 bits
/// count.
///
/// Returns the exit code of `--position-window`: 0 moved, 2 the target is no window, 3 monitor or
/// window could not be read, 4 the move failed.
int PositionWindow(std::uint64_t target_handle, std::uint64_t reference_handle);

}  // namespace kestrune
