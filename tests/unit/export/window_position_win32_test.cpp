#include "export/window_position_win32.h"

#include <windows.h>

#include <gtest/gtest.h>

namespace kestrune {
namespace {

/// A window of this process, without frame and not shown unless asked.
class TestWindow {
 public:
  TestWindow(int x, int y, int width, int height, DWORD style = WS_POPUP)
      : handle_(CreateWindowExW(WS_EX_TOOLWINDOW, L"STATIC", L"kestrune test", style, x, y, width,
                                height, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr)) {}
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;
  ~TestWindow() { Close(); }

  void Close() {
    if (handle_ != nullptr) {
      DestroyWindow(handle_);
      handle_ = nullptr;
    }
  }
  HWND Handle() const { return handle_; }
  std::uint64_t Number() const { return reinterpret_cast<std::uintptr_t>(handle_); }
  RECT Place() const {
    RECT place{};
    EXPECT_TRUE(GetWindowRect(handle_, &place));
    return place;
  }

 private:
  HWND handle_;
};

RECT WorkArea(HWND window) {
  MONITORINFO information{};
  information.cbSize = sizeof(information);
  EXPECT_TRUE(GetMonitorInfoW(MonitorFromWindow(window, MONITOR_DEFAULTTOPRIMARY), &information));
  return information.rcWork;
}

void ExpectCentred(const TestWindow& window, LONG width, LONG height, const RECT& area) {
  const RECT place = window.Place();
  EXPECT_EQ(place.right - place.left, width) << "never resized";
  EXPECT_EQ(place.bottom - place.top, height) << "never resized";
  EXPECT_EQ(place.left, area.left + (area.right - area.left - width) / 2);
  EXPECT_EQ(place.top, area.top + (area.bottom - area.top - height) / 2);
}

TEST(PositionWindow, CentresTheTargetOnTheReferencesMonitor) {
  const TestWindow target(3, 5, 301, 200);
  const TestWindow reference(50, 60, 400, 300);
  EXPECT_EQ(PositionWindow(target.Number(), reference.Number()), 0);
  ExpectCentred(target, 301, 200, WorkArea(reference.Handle()));
}

TEST(PositionWindow, WithoutReferenceItUsesTheForegroundOrItself) {
  TestWindow closed(50, 60, 400, 300);
  const std::uint64_t closed_number = closed.Number();
  closed.Close();
  for (const std::uint64_t reference : {std::uint64_t{0}, closed_number}) {
    const TestWindow target(3, 5, 300, 200);
    EXPECT_EQ(PositionWindow(target.Number(), reference), 0);
    ExpectCentred(target, 300, 200, WorkArea(target.Handle()));
  }
}

TEST(PositionWindow, OnlyTheLow32BitsOfAHandleCount) {
  const TestWindow target(3, 5, 300, 200);
  EXPECT_EQ(PositionWindow(target.Number() | 0xFFFFFFFF00000000U, 0), 0);
  ExpectCentred(target, 300, 200, WorkArea(target.Handle()));
}

TEST(PositionWindow, AWindowLargerThanTheWorkAreaGoesToItsCorner) {
  const RECT area = WorkArea(nullptr);
  const TestWindow target(100, 100, area.right - area.left + 50, area.bottom - area.top + 50);
  EXPECT_EQ(PositionWindow(target.Number(), 0), 0);
  EXPECT_EQ(target.Place().left, area.left);
  EXPECT_EQ(target.Place().top, area.top);
}

TEST(PositionWindow, DoesNotShowOrActivate) {
  const TestWindow target(3, 5, 300, 200);
  const HWND foreground = GetForegroundWindow();
  EXPECT_EQ(PositionWindow(target.Number(), 0), 0);
  EXPECT_FALSE(IsWindowVisible(target.Handle()));
  EXPECT_EQ(GetForegroundWindow(), foreground);
}

TEST(PositionWindow, ATargetThatIsNoWindowEndsWithTwo) {
  TestWindow closed(3, 5, 300, 200);
  const TestWindow reference(50, 60, 400, 300);
  const std::uint64_t number = closed.Number();
  closed.Close();
  EXPECT_EQ(PositionWindow(number, reference.Number()), 2);
  EXPECT_EQ(PositionWindow(0, reference.Number()), 2);
  EXPECT_EQ(PositionWindow(0, 0), 2);
}

}  // namespace
}  // namespace kestrune
