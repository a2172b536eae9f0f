#pragma once

#include <windows.h>

#include "export/wait/window_position_command.h"

namespace kestrune {

/// The calls that read and move windows. Tests put a stand-in here for several monitors and for
/// calls that fail.
class WindowCalls {
 public:
  WindowCalls() = default;
  WindowCalls(const WindowCalls&) = delete;
  WindowCalls& operator=(const WindowCalls&) = delete;
  virtual ~WindowCalls() = default;

  virtual bool IsWindow(HWND window);
  virtual HWND Foreground();
  /// MonitorFromWindow, the primary monitor for a window that lies on none.
  virtual HMONITOR MonitorOf(HWND window);
  virtual bool ReadMonitor(HMONITOR monitor, MONITORINFO& information);
  virtual bool ReadPlace(HWND window, RECT& place);
  /// SetWindowPos.
  virtual bool Move(HWND window, HWND insert_after, int x, int y, int width, int height,
                    UINT flags);
};

/// Moves the target window to the centre of the work area of the monitor on which the reference
/// window lies; it is neither resized nor activated. Returns the exit code (PositionWindowCode).
int PositionWindow(const PositionWindowCommand& command);

/// The same through `calls`.
int PositionWindow(const PositionWindowCommand& command, WindowCalls& calls);

}  // namespace kestrune
