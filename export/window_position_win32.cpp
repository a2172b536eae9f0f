#include "export/window_position_win32.h"

#include <windows.h>

#include "export/window_placement.h"

namespace kestrune {
namespace {

constexpr int kMoved = 0;
constexpr int kNoTarget = 2;
constexpr int kCannotMove = 4;

/// A 64-bit host may print a handle sign-extended; only its low 32 bits mean anything.
HWND WindowFromNumber(std::uint64_t number) {
  return reinterpret_cast<HWND>(static_cast<std::uintptr_t>(static_cast<std::uint32_t>(number)));
}

ScreenRectangle ToScreen(const RECT& rectangle) {
  return {rectangle.left, rectangle.top, rectangle.right, rectangle.bottom};
}

}  // namespace

int PositionWindow(std::uint64_t target_handle, std::uint64_t reference_handle) {
  const HWND target = WindowFromNumber(target_handle);
  HWND reference = WindowFromNumber(reference_handle);
  if (!IsWindow(target)) {
    return kNoTarget;
  }
  if (!IsWindow(reference)) {
    reference = GetForegroundWindow();
  }
  const HMONITOR monitor =
      MonitorFromWindow(IsWindow(reference) ? reference : target, MONITOR_DEFAULTTOPRIMARY);
  MONITORINFO information{};
  information.cbSize = sizeof(information);
  RECT window{};
  if (monitor == nullptr || !GetMonitorInfoW(monitor, &information) ||
      !GetWindowRect(target, &window)) {
    return kPositionUnreadable;
  }
  const ScreenPoint corner = CentredIn(ToScreen(information.rcWork), ToScreen(window));
  const BOOL moved = SetWindowPos(target, nullptr, corner.x, corner.y, 0, 0,
                                  SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE | SWP_NOOWNERZORDER);
  return moved ? kMoved : kCannotMove;
}

}  // namespace kestrune
