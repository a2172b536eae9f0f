#include "common/system/extended_path_win32.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "common/text/path.h"

namespace kestrune {
namespace {

TEST(ExtendedPath, LiftsLimitOfDriveAndServerPaths) {
  EXPECT_EQ(ExtendedPath(L"C:\\a\\b").Text(), L"\\\\?\\C:\\a\\b");
  EXPECT_EQ(ExtendedPath(L"C:/a/../b.").Text(), L"\\\\?\\C:\\b");
  EXPECT_EQ(ExtendedPath(L"\\\\server\\share\\x").Text(), L"\\\\?\\UNC\\server\\share\\x");
}

TEST(ExtendedPath, LeavesDevicePathsAndTheEmptyPath) {
  EXPECT_EQ(ExtendedPath(L"\\\\?\\C:\\a\\..\\b").Text(), L"\\\\?\\C:\\a\\..\\b");
  EXPECT_EQ(ExtendedPath(L"\\\\.\\mailslot\\x").Text(), L"\\\\.\\mailslot\\x");
  EXPECT_EQ(ExtendedPath(L"").Text(), L"");
}

TEST(FullPath, ResolvesDotsSlashesAndTrailingDots) {
  EXPECT_EQ(FullPath(L"C:\\a\\.\\b\\..\\c/d."), L"C:\\a\\c\\d");
  EXPECT_EQ(FullPath(L""), L"");
  wchar_t current[MAX_PATH + 1] = {};
  GetCurrentDirectoryW(MAX_PATH, current);
  EXPECT_EQ(FullPath(L"x"), JoinPath(current, L"x"));
}

TEST(FullPath, IsNotCutAtTheClassicLimit) {
  std::wstring path = L"C:\\r";
  for (int i = 0; i < 20; ++i) {
    path = JoinPath(path, L"a-directory-with-a-rather-long-name");
  }
  ASSERT_GT(path.size(), std::size_t{MAX_PATH});
  EXPECT_EQ(FullPath(path + L"\\x\\.."), path);
}

TEST(ExtendedPath, NamesEntriesParentsAndEndings) {
  const ExtendedPath path(L"C:\\a\\b");
  EXPECT_EQ(path.Name(), L"b");
  EXPECT_EQ(path.Parent(), ExtendedPath(L"C:\\a"));
  EXPECT_EQ(path.Entry(L"*.x").Text(), L"\\\\?\\C:\\a\\b\\*.x");
  EXPECT_EQ(path.WithEnding(L".tmp").Text(), L"\\\\?\\C:\\a\\b.tmp");
}

}  // namespace
}  // namespace kestrune
