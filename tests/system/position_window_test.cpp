// `--position-window` through the executable, with real windows.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {
namespace {

/// Holds a window of this process, whose messages are processed while a program acts on it.
class TestWindow {
 public:
  TestWindow(int x, int y, int width, int height)
      : window_(CreateWindowExW(0, L"STATIC", L"Kestrune test window", WS_POPUP | WS_VISIBLE, x, y,
                                width, height, nullptr, nullptr, nullptr, nullptr)) {}
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;
  ~TestWindow() { DestroyWindow(window_); }

  [[nodiscard]] HWND Get() const { return window_; }

  [[nodiscard]] RECT Place() const {
    RECT place = {};
    EXPECT_TRUE(GetWindowRect(window_, &place));
    return place;
  }

 private:
  HWND window_;
};

std::wstring Number(HWND window) {
  return std::to_wstring(reinterpret_cast<std::uintptr_t>(window));
}

RECT WorkArea() {
  RECT area = {};
  EXPECT_TRUE(SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0));
  return area;
}

class PositionWindowTest : public ExportTest {
 protected:
  /// Runs the program while this thread processes its windows' messages, for which moving a window
  /// of another thread waits.
  RunOutcome Position(const std::wstring& target, const std::wstring& reference) {
    ProgramRun run(KestrunePath(), L"--position-window " + target + L" " + reference);
    const ULONGLONG end = GetTickCount64() + 120'000;
    HANDLE process = run.Process();
    while (GetTickCount64() < end &&
           MsgWaitForMultipleObjects(1, &process, FALSE, 1000, QS_ALLINPUT) != WAIT_OBJECT_0) {
      MSG message = {};
      while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessageW(&message);
      }
    }
    return Finish(std::move(run), 1000);
  }

  void ExpectCentred(const TestWindow& window, int width, int height) {
    const RECT area = WorkArea();
    const RECT place = window.Place();
    EXPECT_EQ(place.left, area.left + (area.right - area.left - width) / 2);
    EXPECT_EQ(place.top, area.top + (area.bottom - area.top - height) / 2);
    EXPECT_EQ(place.right - place.left, width);
    EXPECT_EQ(place.bottom - place.top, height);
  }
};

TEST_F(PositionWindowTest, WindowIsCentredAndKeepsItsSize) {
  const TestWindow reference(10, 10, 600, 400);
  const TestWindow target(3, 5, 301, 203);
  EXPECT_TRUE(EndsSilentlyWith(0, Position(Number(target.Get()), Number(reference.Get()))));
  ExpectCentred(target, 301, 203);
  EXPECT_TRUE(Log().empty());
}

TEST_F(PositionWindowTest, TheWindowIsNeitherActivatedNorRaised) {
  const TestWindow target(3, 5, 300, 200);
  const TestWindow reference(10, 10, 600, 400);
  SetForegroundWindow(reference.Get());
  const HWND before = GetForegroundWindow();
  EXPECT_TRUE(EndsSilentlyWith(0, Position(Number(target.Get()), Number(reference.Get()))));
  EXPECT_EQ(GetForegroundWindow(), before);
  // The reference window was created later and is still above the target.
  bool above = false;
  for (HWND window = GetWindow(target.Get(), GW_HWNDPREV); window != nullptr;
       window = GetWindow(window, GW_HWNDPREV)) {
    above = above || window == reference.Get();
  }
  EXPECT_TRUE(above);
}

TEST_F(PositionWindowTest, WithoutReferenceForegroundOrTargetCounts) {
  const TestWindow target(3, 5, 300, 200);
  EXPECT_TRUE(EndsSilentlyWith(0, Position(Number(target.Get()), L"0")));
  ExpectCentred(target, 300, 200);
}

TEST_F(PositionWindowTest, AClosedReferenceWindowIsNoReference) {
  std::wstring closed;
  {
    const TestWindow gone(0, 0, 10, 10);
    closed = Number(gone.Get());
  }
  const TestWindow target(3, 5, 300, 200);
  EXPECT_TRUE(EndsSilentlyWith(0, Position(Number(target.Get()), closed)));
  ExpectCentred(target, 300, 200);
}

TEST_F(PositionWindowTest, LargerWindowStartsAtTheTopLeft) {
  const RECT area = WorkArea();
  const TestWindow target(50, 60, area.right - area.left + 100, area.bottom - area.top + 100);
  EXPECT_TRUE(EndsSilentlyWith(0, Position(Number(target.Get()), Number(target.Get()))));
  EXPECT_EQ(target.Place().left, area.left);
  EXPECT_EQ(target.Place().top, area.top);
}

TEST_F(PositionWindowTest, EachDirectionIsDecidedByItself) {
  const RECT area = WorkArea();
  const TestWindow target(50, 60, area.right - area.left + 1, 201);
  EXPECT_TRUE(EndsSilentlyWith(0, Position(Number(target.Get()), Number(target.Get()))));
  EXPECT_EQ(target.Place().left, area.left);
  EXPECT_EQ(target.Place().top, area.top + (area.bottom - area.top - 201) / 2);
}

TEST_F(PositionWindowTest, WhatIsNoWindowEndsWithTwo) {
  const TestWindow reference(10, 10, 600, 400);
  for (const wchar_t* target : {L"0", L"1", L"x", L"-1", L"\"\"", L"0x10"}) {
    EXPECT_TRUE(EndsSilentlyWith(2, Position(target, Number(reference.Get()))))
        << ::testing::PrintToString(target);
  }
  EXPECT_TRUE(EndsSilentlyWith(2, Position(L"0", L"0")));
  EXPECT_TRUE(Log().empty());
}

TEST_F(PositionWindowTest, SignExtendedHandleIsTheSameWindow) {
  const TestWindow target(3, 5, 300, 200);
  const std::uint64_t wide = 0xFFFFFFFF00000000ULL | reinterpret_cast<std::uintptr_t>(target.Get());
  EXPECT_TRUE(EndsSilentlyWith(0, Position(std::to_wstring(wide), L"0")));
  ExpectCentred(target, 300, 200);
}

TEST_F(PositionWindowTest, ProgramPathIsNotAnArgument) {
  EXPECT_TRUE(EndsSilentlyWith(2, Finish(ProgramRun::WithRawCommandLine(
                                      KestrunePath(), L"anything --position-window 0 0"))));
}

TEST_F(PositionWindowTest, BlanksAndQuotesChangeNothing) {
  EXPECT_TRUE(EndsSilentlyWith(2, RunKestrune(L"  \"--position-window\"\t\"0\"   0  ")));
}

}  // namespace
}  // namespace kestrune
