#include "common/text/path.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

TEST(Path, JoinsWithOneSeparator) {
  EXPECT_EQ(JoinPath(L"C:\\a", L"b"), L"C:\\a\\b");
  EXPECT_EQ(JoinPath(L"C:\\", L"b"), L"C:\\b");
  EXPECT_EQ(JoinPath(L"C:/a/", L"b"), L"C:/a/b");
  EXPECT_EQ(JoinPath(L"", L"b"), L"b");
  EXPECT_EQ(JoinPath({L"C:\\", L"a\\", L"b", L"c"}), L"C:\\a\\b\\c");
}

TEST(Path, TakesTheLastComponentAsFileName) {
  EXPECT_EQ(FileName(L"C:\\a\\b.PcbDoc"), L"b.PcbDoc");
  EXPECT_EQ(FileName(L"b.PcbDoc"), L"b.PcbDoc");
  EXPECT_EQ(FileName(L"C:/a\\b/c"), L"c");
  EXPECT_EQ(FileName(L"C:b"), L"b");
  EXPECT_EQ(FileName(L"C:\\"), L"");
}

TEST(Path, ColonAfterSeparatorIsNoDrive) {
  EXPECT_EQ(FileName(L"\\:Main.zip"), L":Main.zip");
  EXPECT_EQ(ParentPath(L"\\:Main.zip"), L"\\");
}

TEST(Path, StemLosesOnlyTheLastExtension) {
  EXPECT_EQ(FileStem(L"C:\\a\\Main.v2.PcbDoc"), L"Main.v2");
  EXPECT_EQ(FileStem(L"Main"), L"Main");
  EXPECT_EQ(FileStem(L".PcbDoc"), L".PcbDoc");
  EXPECT_EQ(FileStem(L"a\\.."), L"..");
  EXPECT_EQ(FileStem(L"Main."), L"Main");
}

TEST(Path, ParentKeepsSeparatorOnlyAtRoot) {
  EXPECT_EQ(ParentPath(L"C:\\Out\\Main.zip"), L"C:\\Out");
  EXPECT_EQ(ParentPath(L"C:\\Main.zip"), L"C:\\");
  EXPECT_EQ(ParentPath(L"\\\\server\\share\\a"), L"\\\\server\\share");
  EXPECT_EQ(ParentPath(L"Main.zip"), L"");
}

TEST(Path, ARootIsItsOwnParent) {
  for (const wchar_t* root :
       {L"C:\\", L"C:", L"\\", L"\\\\server\\share", L"//server/share", L"\\\\server",
        L"\\\\?\\C:\\", L"\\\\.\\C:\\", L"\\\\?\\UNC\\server\\share", L"\\\\?\\unc\\server\\share",
        L"\\\\?\\Volume{0}\\", L"\\\\?\\C:", L""}) {
    EXPECT_EQ(ParentPath(root), root);
    EXPECT_EQ(FileName(root), L"") << root;
  }
  EXPECT_EQ(ParentPath(L"\\\\server\\share\\"), L"\\\\server\\share");
  EXPECT_EQ(ParentPath(L"\\\\?\\C:\\a"), L"\\\\?\\C:\\");
  EXPECT_EQ(ParentPath(L"\\\\?\\UNC\\server\\share\\a"), L"\\\\?\\UNC\\server\\share");
  EXPECT_EQ(ParentPath(L"\\\\?\\UNC\\s\\share\\a"), L"\\\\?\\UNC\\s\\share");
  EXPECT_EQ(FileName(L"\\\\server\\share\\a"), L"a");
}

TEST(Path, LiesInsideComparesWholeComponentsWithoutCase) {
  EXPECT_TRUE(LiesInside(L"C:\\Temp\\x", L"c:\\TEMP"));
  EXPECT_TRUE(LiesInside(L"C:\\Temp", L"C:\\Temp"));
  EXPECT_TRUE(LiesInside(L"C:\\T\u00C4mp\\x", L"C:\\t\u00E4mp\\"));
  EXPECT_TRUE(LiesInside(L"C:\\\\Temp\\x", L"C:/Temp//"));
  EXPECT_FALSE(LiesInside(L"C:\\Temp2\\x", L"C:\\Temp"));
  EXPECT_FALSE(LiesInside(L"C:\\", L"C:\\Temp"));
  EXPECT_FALSE(LiesInside(L"D:\\Temp\\x", L"C:\\Temp"));
}

}  // namespace
}  // namespace kestrune
