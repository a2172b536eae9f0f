#include "export/deliver/export_directory_win32.h"

#include <gtest/gtest.h>

#include "common/files/file_win32.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

class ExportDirectoryTest : public ExportTest {};

TEST_F(ExportDirectoryTest, ExistingFolderIsUsableAndStaysEmpty) {
  ASSERT_TRUE(TryCreateDirectories(Scratch(L"out \u0416")));
  std::wstring prepared;
  EXPECT_TRUE(PrepareExportDirectory(RealCalls(), Scratch(L"out \u0416"), prepared));
  EXPECT_EQ(prepared, Scratch(L"out \u0416"));
  EXPECT_TRUE(NamesIn(prepared).empty());
}

TEST_F(ExportDirectoryTest, VariablesAreExpandedInAnAbsolutePath) {
  ASSERT_TRUE(TryCreateDirectories(Scratch(L"out")));
  SetEnvironmentVariableW(L"KESTRUNE_TEST_OUT", Scratch(L"out").c_str());
  std::wstring prepared;
  EXPECT_TRUE(PrepareExportDirectory(RealCalls(), L"%KESTRUNE_TEST_OUT%\\..\\.\\out/", prepared));
  EXPECT_EQ(prepared, Scratch(L"out\\"));
  SetEnvironmentVariableW(L"KESTRUNE_TEST_OUT", nullptr);
  EXPECT_FALSE(PrepareExportDirectory(RealCalls(), L"%KESTRUNE_TEST_OUT%\\out", prepared));
}

TEST_F(ExportDirectoryTest, OtherPathsAreUnusableAndNotCreated) {
  PutFile(Scratch(L"file"), "x");
  std::wstring prepared;
  EXPECT_FALSE(PrepareExportDirectory(RealCalls(), L"", prepared));
  EXPECT_FALSE(PrepareExportDirectory(RealCalls(), Scratch(L"none"), prepared));
  EXPECT_FALSE(PrepareExportDirectory(RealCalls(), Scratch(L"none\\deep"), prepared));
  EXPECT_FALSE(PrepareExportDirectory(RealCalls(), Scratch(L"file"), prepared));
  EXPECT_FALSE(PrepareExportDirectory(RealCalls(), L"Q:\\none", prepared));
  EXPECT_FALSE(PrepareExportDirectory(RealCalls(), L"C:\\a|b", prepared));
  EXPECT_EQ(NamesIn(Scratch(L"")), std::vector<std::wstring>{L"file"});
}

TEST_F(ExportDirectoryTest, UnwritableFolderIsNotUsable) {
  const std::wstring folder = RunsUnderWine() ? L"Z:\\proc" : L"C:\\System Volume Information";
  if (QueryFileKindQuietly(RealCalls(), folder) != FileKind::Directory) {
    GTEST_SKIP() << "the system has no folder at hand in which nobody may create a file";
  }
  std::wstring prepared;
  EXPECT_FALSE(PrepareExportDirectory(RealCalls(), folder, prepared));
}

TEST_F(ExportDirectoryTest, ADeepFolderIsUsable) {
  std::wstring deep = Scratch(L"deep");
  while (deep.size() < 300) {
    deep += L"\\0123456789012345678901234567890123456789";
  }
  ASSERT_TRUE(TryCreateDirectories(deep));
  std::wstring prepared;
  EXPECT_TRUE(PrepareExportDirectory(RealCalls(), deep, prepared));
  EXPECT_EQ(prepared, deep);
}

}  // namespace
}  // namespace kestrune
