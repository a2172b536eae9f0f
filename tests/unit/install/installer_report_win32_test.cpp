#include "install/installer_report_win32.h"

#include <gmock/gmock.h>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/small_disk_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class InstallerReportTest : public ExportTest {
 protected:
  static void Write(const std::wstring& path, const std::wstring& message) {
    InstallerOptions options;
    options.report = path;
    WriteInstallerReport(RealCalls(), options, message);
  }

  void ExpectLogged(DWORD code, const std::wstring& path) const {
    EXPECT_THAT(Log(), ElementsAre("Stage: Installer report failed | Error=Cannot write report. "
                                   "GetLastError=" +
                                   std::to_string(code) + " Report=" + Utf8FromWide(path)));
  }
};

TEST_F(InstallerReportTest, WritesUtf8WithWindowsLineEnds) {
  const std::wstring path = Scratch(L"report.txt");
  PutFile(path, std::string(100, 'x'));
  Write(path, L"one \x00E4\ntwo \x540D\n");
  EXPECT_EQ(FileBytes(path), "\xEF\xBB\xBFone \xC3\xA4\r\ntwo \xE5\x90\x8D\r\n");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(InstallerReportTest, WritesNothingWithoutTheOption) {
  WriteInstallerReport(RealCalls(), {}, L"text");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(InstallerReportTest, LogsAnUnusablePath) {
  const std::pair<std::wstring, DWORD> rows[] = {
      {Scratch(L"missing\\report.txt"), ERROR_PATH_NOT_FOUND},
      {Scratch(L"."), ERROR_ACCESS_DENIED},
      {L"", ERROR_PATH_NOT_FOUND}};
  for (const auto& [path, code] : rows) {
    Write(path, L"text");
    ExpectLogged(code, path);
    ASSERT_TRUE(DeleteFileW(folders_.log.c_str()));
  }
  EXPECT_FALSE(Exists(Scratch(L"missing")));
}

TEST_F(InstallerReportTest, LeavesReadOnlyFileAsItWas) {
  const std::wstring path = Scratch(L"report.txt");
  PutFile(path, "of another run");
  ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
  if (TryWriteFile(path, "of another run")) {
    GTEST_SKIP() << "this system lets this user write read-only files";
  }
  Write(path, L"text");
  ExpectLogged(ERROR_ACCESS_DENIED, path);
  EXPECT_EQ(FileBytes(path), "of another run");
  SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(InstallerReportTest, LeavesFileInUseAsItWas) {
  const std::wstring path = Scratch(L"report.txt");
  PutFile(path, "of another run");
  {
    const FileHandle held = HoldOpen(path, GENERIC_READ, FILE_SHARE_READ);
    Write(path, L"text");
  }
  ExpectLogged(ERROR_SHARING_VIOLATION, path);
  EXPECT_EQ(FileBytes(path), "of another run");
}

TEST_F(InstallerReportTest, LeavesNoHalfReportOnFullDisk) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  const std::wstring path = JoinPath(disk.Folder(), L"report.txt");
  Write(path, std::wstring(2U << 20U, L'x'));
  ExpectLogged(ERROR_DISK_FULL, path);
  EXPECT_FALSE(Exists(path));
}

}  // namespace
}  // namespace kestrune
