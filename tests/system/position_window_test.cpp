// `--position-window` through the executable, with real windows.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/export/test_window_win32.h"

namespace kestrune {
namespace {

using PositionWindowProgramTest = ExportTest;

/// Runs the program while this thread processes its windows' messages, for which moving a window of
/// another thread waits.
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

TEST_F(PositionWindowProgramTest, WindowIsCentredWithoutComingForward) {
  const TestWindow target(3, 5, 301, 203, WS_POPUP | WS_VISIBLE);
  const TestWindow reference(10, 10, 600, 400, WS_POPUP | WS_VISIBLE);
  SetForegroundWindow(reference.Handle());
  const HWND before = GetForegroundWindow();
  EXPECT_TRUE(EndsSilentlyWith(
      0, Position(std::to_wstring(target.Number()), std::to_wstring(reference.Number()))));
  ExpectCentred(target, 301, 203, WorkArea(reference.Handle()));
  EXPECT_EQ(GetForegroundWindow(), before);
  EXPECT_TRUE(Log().empty());
  // The reference window was created later and is still above the target.
  bool above = false;
  for (HWND window = target.Handle(); window != nullptr; window = GetWindow(window, GW_HWNDPREV)) {
    above = above || window == reference.Handle();
  }
  EXPECT_TRUE(above);
}

TEST_F(PositionWindowProgramTest, WhatIsNoWindowEndsWithTwo) {
  EXPECT_TRUE(EndsSilentlyWith(2, Position(L"x", L"0")));
}

}  // namespace
}  // namespace kestrune
