#include "common/failure/windows_error_win32.h"

#include <windows.h>

#include <gtest/gtest.h>

#include "common/system/owners_win32.h"

namespace kestrune {
namespace {

/// Returns the system's own text for the code, in its language.
std::wstring SystemText(DWORD code) {
  wchar_t buffer[1024] = {};
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                      nullptr, code, 0, buffer, 1024, nullptr);
  return std::wstring(buffer, length);
}

TEST(WindowsErrorText, IsSystemsTextWithoutItsLineEnd) {
  for (const DWORD code : std::initializer_list<DWORD>{ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED,
                                                       ERROR_TOO_MANY_OPEN_FILES}) {
    const std::wstring text = WindowsErrorText(code);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text + L"\r\n", SystemText(code)) << "only the line end goes, the period stays";
  }
}

TEST(WindowsErrorText, LeavesPlaceholdersAlone) {
  // Which texts have a place for an insert differs between systems; none is given.
  for (DWORD code = 1; code < 20'000; ++code) {
    const std::wstring text = SystemText(code);
    if (text.find(L"%1") != std::wstring::npos) {
      EXPECT_EQ(WindowsErrorText(code) + L"\r\n", text) << code;
      return;
    }
  }
  FAIL() << "no text has a place for an insert";
}

TEST(WindowsErrorText, AnUnknownCodeHasAFixedText) {
  EXPECT_EQ(WindowsErrorText(0xDEADBEEF), L"Unknown Windows error");
}

TEST(MeansAbsent, IsTrueOnlyForPathsWithoutEntry) {
  for (const DWORD code : std::initializer_list<DWORD>{2, 3, 53, 123, 267}) {
    EXPECT_TRUE(MeansAbsent(code)) << code;
  }
  for (const DWORD code :
       std::initializer_list<DWORD>{ERROR_SUCCESS, ERROR_ACCESS_DENIED, ERROR_NOT_READY,
                                    ERROR_SHARING_VIOLATION, ERROR_CANT_RESOLVE_FILENAME}) {
    EXPECT_FALSE(MeansAbsent(code)) << code;
  }
}

}  // namespace
}  // namespace kestrune
