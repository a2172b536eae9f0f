#pragma once

#include "common/desktop/desktop_win32.h"
#include "export/wait/window_position_command.h"

namespace kestrune {

/// Moves the target window to the centre of the work area of the monitor on which the reference
/// window lies; it is neither resized nor activated. Returns the exit code (PositionWindowCode).
int PositionWindow(const PositionWindowCommand& command, Desktop& desktop);

}  // namespace kestrune
