#include "export/wait/window_position_win32.h"

#include "export/wait/window_placement.h"

namespace kestrune {
namespace {

/// Returns the window of a handle that was printed as a number. Only the low 32 bits count, since a
/// 64-bit host may print it sign-extended.
HWND WindowFromNumber(std::uint64_t number) {
  // A handle is passed as a number and never dereferenced.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<HWND>(static_cast<std::uintptr_t>(static_cast<std::uint32_t>(number)));
}

ScreenRectangle ToScreen(const RECT& rectangle) {
  return {rectangle.left, rectangle.top, rectangle.right, rectangle.bottom};
}

}  // namespace

int PositionWindow(const PositionWindowCommand& command, Desktop& desktop) {
  const HWND target = WindowFromNumber(command.target);
  HWND reference = WindowFromNumber(command.reference);
  if (!desktop.HasWindow(target)) {
    return kPositionNoTarget;
  }
  if (!desktop.HasWindow(reference)) {
    reference = desktop.Foreground();
  }
  const HMONITOR monitor = desktop.MonitorOf(desktop.HasWindow(reference) ? reference : target);
  MONITORINFO information{};
  information.cbSize = sizeof(information);
  RECT window{};
  if (monitor == nullptr || !desktop.ReadMonitor(monitor, information) ||
      !desktop.ReadRectangle(target, window)) {
    return kPositionUnreadable;
  }
  const ScreenPoint corner = CentredIn(ToScreen(information.rcWork), ToScreen(window));
  const bool moved = desktop.Move(target, nullptr, corner.x, corner.y, 0, 0,
                                  SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE | SWP_NOOWNERZORDER);
  return moved ? kWindowMoved : kPositionCannotMove;
}

}  // namespace kestrune
