#pragma once

#include <windows.h>

#include <cstdint>

namespace kestrune {

/// The exit code when the monitor or the window could not be read.
inline constexpr int kPositionUnreadable = 3;

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
/// window lies; it is neither resized nor activated. The handles are numbers whose low 32 bits
/// count.
///
/// Returns the exit code of `--position-window`: 0 moved, 2 the target is no window, 3 monitor or
/// window could not be read, 4 the move failed.
int PositionWindow(std::uint64_t target_handle, std::uint64_t reference_handle);

/// The same through `calls`.
int PositionWindow(std::uint64_t target_handle, std::uint64_t reference_handle, WindowCalls& calls);

}  // namespace kestrune
