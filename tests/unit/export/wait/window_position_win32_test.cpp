#include "export/wait/window_position_win32.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/export/test_window_win32.h"

namespace kestrune {
namespace {

/// Calls PositionWindow on the desktop of this machine.
int Position(const PositionWindowCommand& command) {
  Desktop desktop;
  return PositionWindow(command, desktop);
}

TEST(PositionWindow, CentresTheTargetOnTheReferencesMonitor) {
  const TestWindow target(3, 5, 301, 200);
  const TestWindow reference(50, 60, 400, 300);
  EXPECT_EQ(Position({target.Number(), reference.Number()}), 0);
  ExpectCentred(target, 301, 200, WorkArea(reference.Handle()));
}

TEST(PositionWindow, WithoutReferenceItUsesForegroundOrItself) {
  TestWindow closed(50, 60, 400, 300);
  const std::uint64_t closed_number = closed.Number();
  closed.Close();
  for (const std::uint64_t reference : {std::uint64_t{0}, closed_number}) {
    const TestWindow target(3, 5, 300, 200);
    EXPECT_EQ(Position({target.Number(), reference}), 0);
    ExpectCentred(target, 300, 200, WorkArea(target.Handle()));
  }
}

TEST(PositionWindow, OnlyLow32BitsOfHandleCount) {
  const TestWindow target(3, 5, 300, 200);
  EXPECT_EQ(Position({target.Number() | 0xFFFFFFFF00000000U, 0}), 0);
  ExpectCentred(target, 300, 200, WorkArea(target.Handle()));
}

TEST(PositionWindow, LargerWindowGoesToTheCorner) {
  const RECT area = WorkArea(nullptr);
  const TestWindow target(100, 100, area.right - area.left + 50, area.bottom - area.top + 50);
  EXPECT_EQ(Position({target.Number(), 0}), 0);
  EXPECT_EQ(target.Place().left, area.left);
  EXPECT_EQ(target.Place().top, area.top);
}

TEST(PositionWindow, ReferenceOutsideEveryMonitorMeansPrimaryOne) {
  const TestWindow reference(-30000, -30000, 400, 300);
  ASSERT_EQ(MonitorFromWindow(reference.Handle(), MONITOR_DEFAULTTONULL), nullptr);
  const TestWindow target(3, 5, 300, 200);
  EXPECT_EQ(Position({target.Number(), reference.Number()}), 0);
  ExpectCentred(target, 300, 200, WorkArea(reference.Handle()));
}

TEST(PositionWindow, DoesNotShowOrActivate) {
  const TestWindow target(3, 5, 300, 200);
  const HWND foreground = GetForegroundWindow();
  EXPECT_EQ(Position({target.Number(), 0}), 0);
  EXPECT_FALSE(IsWindowVisible(target.Handle()));
  EXPECT_EQ(GetForegroundWindow(), foreground);
}

TEST(PositionWindow, InvalidTargetEndsWithTwo) {
  TestWindow closed(3, 5, 300, 200);
  const TestWindow reference(50, 60, 400, 300);
  const std::uint64_t number = closed.Number();
  closed.Close();
  EXPECT_EQ(Position({number, reference.Number()}), 2);
  EXPECT_EQ(Position({0, reference.Number()}), 2);
  EXPECT_EQ(Position({0, 0}), 2);
}

/// Simulates three monitors: number 1 with the target (window 1), number 2 with the reference
/// (window 2) and a task bar at its left and top, and number 3 with window 3, which is in the
/// foreground.
class ScriptedWindows final : public Desktop {
 public:
  struct Moved {
    HWND window;
    HWND insert_after;
    int x, y, width, height;
    UINT flags;
  };

  static HWND Window(std::uintptr_t number) { return reinterpret_cast<HWND>(number); }
  static HMONITOR Monitor(std::uintptr_t number) { return reinterpret_cast<HMONITOR>(number); }

  bool HasWindow(HWND window) override {
    return window == Window(1) || (window == Window(2) && reference_exists) || window == Window(3);
  }
  HWND Foreground() override { return Window(foreground); }
  HMONITOR MonitorOf(HWND window) override {
    return monitor_exists ? Monitor(reinterpret_cast<std::uintptr_t>(window)) : nullptr;
  }
  bool ReadMonitor(HMONITOR monitor, MONITORINFO& information) override {
    const auto left = static_cast<LONG>(reinterpret_cast<std::uintptr_t>(monitor)) * 1000;
    size_told = information.cbSize;
    information.rcMonitor = {left, 0, left + 1000, 1000};
    information.rcWork = {left + 100, 40, left + 1000, 1000};
    return monitor_reads;
  }
  bool ReadRectangle(HWND window, RECT& place) override {
    EXPECT_EQ(window, Window(1));
    place = {7, 9, 7 + 300, 9 + 160};
    return window_reads;
  }
  bool Move(HWND window, HWND insert_after, int x, int y, int width, int height,
            UINT flags) override {
    moves.push_back({window, insert_after, x, y, width, height, flags});
    return window_moves;
  }

  bool reference_exists = true;
  std::uintptr_t foreground = 3;
  bool monitor_exists = true;
  bool monitor_reads = true;
  bool window_reads = true;
  bool window_moves = true;
  DWORD size_told = 0;
  std::vector<Moved> moves;
};

TEST(PositionWindow, MovesOnceIntoTheReferencesWorkArea) {
  ScriptedWindows windows;
  EXPECT_EQ(PositionWindow({1, 2}, windows), 0);
  ASSERT_EQ(windows.moves.size(), 1U);
  const ScriptedWindows::Moved& move = windows.moves.front();
  EXPECT_EQ(move.window, ScriptedWindows::Window(1));
  EXPECT_EQ(move.insert_after, nullptr);
  EXPECT_EQ(move.x, 2100 + (900 - 300) / 2);
  EXPECT_EQ(move.y, 40 + (960 - 160) / 2);
  EXPECT_EQ(move.width, 0);
  EXPECT_EQ(move.height, 0);
  EXPECT_EQ(move.flags, 0x215U);
  EXPECT_EQ(windows.size_told, sizeof(MONITORINFO));
}

TEST(PositionWindow, TakesForegroundsMonitorAndThenTargetsOwn) {
  ScriptedWindows windows;
  windows.reference_exists = false;
  EXPECT_EQ(PositionWindow({1, 2}, windows), 0);
  windows.foreground = 0;
  EXPECT_EQ(PositionWindow({1, 2}, windows), 0);
  ASSERT_EQ(windows.moves.size(), 2U);
  EXPECT_EQ(windows.moves[0].x, 3100 + 300);
  EXPECT_EQ(windows.moves[1].x, 1100 + 300);
}

TEST(PositionWindow, UnreadableWindowEndsWithThree) {
  for (bool ScriptedWindows::*answer :
       {&ScriptedWindows::monitor_exists, &ScriptedWindows::monitor_reads,
        &ScriptedWindows::window_reads}) {
    ScriptedWindows windows;
    windows.*answer = false;
    EXPECT_EQ(PositionWindow({1, 2}, windows), 3);
    EXPECT_TRUE(windows.moves.empty());
  }
}

TEST(PositionWindow, ImmovableWindowEndsWithFour) {
  ScriptedWindows windows;
  windows.window_moves = false;
  EXPECT_EQ(PositionWindow({1, 2}, windows), 4);
}

}  // namespace
}  // namespace kestrune
