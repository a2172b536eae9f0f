#include "export/wait/window_position_win32.h"

#include "export/wait/window_placement.h"

namespace kestrune {
namespace {

/// A 64-bit host may print a handle sign-extended; only its low 32 bits mean anything.
HWND WindowFromNumber(std::uint64_t number) {
  // A handle travels as a number; nothing is ever read through it.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<HWND>(static_cast<std::uintptr_t>(static_cast<std::uint32_t>(number)));
}

ScreenRectangle ToScreen(const RECT& rectangle) {
  return {rectangle.left, rectangle.top, rectangle.right, rectangle.bottom};
}

}  // namespace

bool WindowCalls::IsWindow(HWND window) {
  return ::IsWindow(window) != FALSE;
}

HWND WindowCalls::Foreground() {
  return GetForegroundWindow();
}

HMONITOR WindowCalls::MonitorOf(HWND window) {
  return MonitorFromWindow(window, MONITOR_DEFAULTTOPRIMARY);
}

bool WindowCalls::ReadMonitor(HMONITOR monitor, MONITORINFO& information) {
  return GetMonitorInfoW(monitor, &information) != FALSE;
}

bool WindowCalls::ReadPlace(HWND window, RECT& place) {
  return GetWindowRect(window, &place) != FALSE;
}

bool WindowCalls::Move(HWND window, HWND insert_after, int x, int y, int width, int height,
                       UINT flags) {
  return SetWindowPos(window, insert_after, x, y, width, height, flags) != FALSE;
}

int PositionWindow(const PositionWindowCommand& command, WindowCalls& calls) {
  const HWND target = WindowFromNumber(command.target);
  HWND reference = WindowFromNumber(command.reference);
  if (!calls.IsWindow(target)) {
    return kPositionNoTarget;
  }
  if (!calls.IsWindow(reference)) {
    reference = calls.Foreground();
  }
  const HMONITOR monitor = calls.MonitorOf(calls.IsWindow(reference) ? reference : target);
  MONITORINFO information{};
  information.cbSize = sizeof(information);
  RECT window{};
  if (monitor == nullptr || !calls.ReadMonitor(monitor, information) ||
      !calls.ReadPlace(target, window)) {
    return kPositionUnreadable;
  }
  const ScreenPoint corner = CentredIn(ToScreen(information.rcWork), ToScreen(window));
  const bool moved = calls.Move(target, nullptr, corner.x, corner.y, 0, 0,
                                SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE | SWP_NOOWNERZORDER);
  return moved ? kWindowMoved : kPositionCannotMove;
}

int PositionWindow(const PositionWindowCommand& command) {
  WindowCalls calls;
  return PositionWindow(command, calls);
}

}  // namespace kestrune
