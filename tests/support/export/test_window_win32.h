#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>

namespace kestrune {

/// Holds a window of this process, without a frame and hidden by default.
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
  [[nodiscard]] HWND Handle() const { return handle_; }
  [[nodiscard]] std::uint64_t Number() const { return reinterpret_cast<std::uintptr_t>(handle_); }
  [[nodiscard]] RECT Place() const {
    RECT place{};
    EXPECT_TRUE(GetWindowRect(handle_, &place));
    return place;
  }

 private:
  HWND handle_;
};

/// Returns the work area of the monitor with the window, or of the primary one.
inline RECT WorkArea(HWND window) {
  MONITORINFO information{};
  information.cbSize = sizeof(information);
  EXPECT_TRUE(GetMonitorInfoW(MonitorFromWindow(window, MONITOR_DEFAULTTOPRIMARY), &information));
  return information.rcWork;
}

/// Expects the window in the middle of the area, with this size.
inline void ExpectCentred(const TestWindow& window, LONG width, LONG height, const RECT& area) {
  const RECT place = window.Place();
  EXPECT_EQ(place.right - place.left, width) << "never resized";
  EXPECT_EQ(place.bottom - place.top, height) << "never resized";
  EXPECT_EQ(place.left, area.left + (area.right - area.left - width) / 2);
  EXPECT_EQ(place.top, area.top + (area.bottom - area.top - height) / 2);
}

}  // namespace kestrune
