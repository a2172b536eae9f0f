// settings.ini in whole exports: the file, the section and the value that count.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/after_export_fixture_win32.h"
#include "tests/support/files_win32.h"

namespace kestrune {
namespace {

class SettingsTest : public AfterExportTest {
 protected:
  std::wstring Copy(const std::wstring& name) const {
    const std::wstring path = Scratch(name);
    EXPECT_TRUE(CopyFileW(application_.c_str(), path.c_str(), FALSE));
    return path;
  }

  /// Returns the program and arguments that the application recorded, without the identity tokens;
  /// nothing when none was started.
  std::optional<std::wstring> Started() {
    const RunOutcome outcome = Finalize();
    EXPECT_EQ(outcome.code, 0);
    if (!outcome.boxes.empty()) {
      return std::nullopt;
    }
    const std::optional<ChildRecord> record = Record();
    if (!record) {
      return std::nullopt;
    }
    std::wstring line = record->command_line;
    const std::size_t identity = line.find(kIdentity);
    EXPECT_NE(identity, std::wstring::npos);
    return line.erase(identity, std::min(kIdentity.size() + 1, line.size() - identity));
  }

  std::wstring Application() const { return Quoted(application_) + L" "; }
};

TEST_F(SettingsTest, WithoutFileDefaultsApply) {
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_FALSE(Exists(folders_.settings));
  EXPECT_FALSE(Exists(folders_.common_settings));
}

TEST_F(SettingsTest, CommonFileAppliesWithoutUserFile) {
  PutFile(folders_.common_settings, Utf16WithMark(L"[Target]\r\nEnabled=1\r\nExecutablePath=" +
                                                  application_ + L"\r\nArguments=common\r\n"));
  EXPECT_EQ(Started(), Application() + L"common");
}

TEST_F(SettingsTest, UserFileHidesTheCommonOne) {
  PutFile(folders_.common_settings,
          Utf16WithMark(L"[Target]\r\nEnabled=1\r\nExecutablePath=" + application_ + L"\r\n"));
  Settings(L"[Target]\nProgramName=mine\n");
  EXPECT_EQ(Started(), std::nullopt);
}

TEST_F(SettingsTest, FolderAsUserFileMeansDefaults) {
  PutFile(folders_.common_settings,
          Utf16WithMark(L"[Target]\r\nEnabled=1\r\nExecutablePath=" + application_ + L"\r\n"));
  ASSERT_TRUE(TryCreateDirectories(folders_.settings));
  EXPECT_EQ(Started(), std::nullopt);
}

TEST_F(SettingsTest, EnabledFollowsTheTwoSections) {
  struct Row {
    const wchar_t* target;
    const wchar_t* after_export;
    bool enabled;
  };
  for (const Row& row :
       {Row{L"1", L"0", true}, Row{L"0", L"1", false}, Row{L"-2", L"1", true},
        Row{L"-1", L"0", false}, Row{nullptr, L"-7", true}, Row{nullptr, L"0", false},
        Row{nullptr, nullptr, false}, Row{L"abc", L"1", false}, Row{L"5", nullptr, true}}) {
    std::wstring text = L"[Target]\nExecutablePath=" + application_ + L"\n";
    if (row.target != nullptr) {
      text += std::wstring(L"Enabled=") + row.target + L"\n";
    }
    text += L"[AfterExport]\n";
    if (row.after_export != nullptr) {
      text += std::wstring(L"Enabled=") + row.after_export + L"\n";
    }
    Settings(text);
    EXPECT_EQ(Started().has_value(), row.enabled) << Utf8FromWide(text);
  }
}

TEST_F(SettingsTest, EmptyValueIsTakenFromFallbackSection) {
  Settings(L"[Target]\nEnabled=1\nExecutablePath=\nArguments=\n[AfterExport]\nExecutablePath=" +
           application_ + L"\nArguments=fallback\n");
  EXPECT_EQ(Started(), Application() + L"fallback");
}

TEST_F(SettingsTest, ExecutableCountsOnlyWithoutExecutablePath) {
  const std::wstring first = Copy(L"first.exe");
  const std::wstring second = Copy(L"second.exe");
  Settings(L"[Target]\nEnabled=1\nExecutable=" + first + L"\n[AfterExport]\nExecutablePath=" +
           second + L"\n");
  EXPECT_EQ(Started(), second + L" ");
  Settings(L"[Target]\nEnabled=1\nExecutable=" + first + L"\n[AfterExport]\nExecutable=" + second +
           L"\n");
  EXPECT_EQ(Started(), first + L" ");
  Settings(L"[Target]\nEnabled=1\n[AfterExport]\nExecutable=" + second + L"\n");
  EXPECT_EQ(Started(), second + L" ");
}

TEST_F(SettingsTest, DirectoryCountsOnlyInItsOwnSection) {
  const std::wstring out = Scratch(L"out");
  ASSERT_TRUE(CreateDirectoryW(out.c_str(), nullptr));
  Settings(L"[Target]\nDirectory=" + out + L"\n[AfterExport]\nDirectory=" + out + L"\n");
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_TRUE(NamesIn(out).empty());
}

TEST_F(SettingsTest, AnsiFileIsReadInCodePage) {
  const std::wstring out = Scratch(L"Ausgänge");
  ASSERT_TRUE(CreateDirectoryW(out.c_str(), nullptr));
  std::string path;
  for (const wchar_t unit : out) {
    path.push_back(static_cast<char>(unit));  // Latin letters only
  }
  PutFile(folders_.settings, "[Export]\r\nDirectory=" + path + "\r\n");
  EXPECT_TRUE(EndsWithBox(0, Delivered(JoinPath(out, L"Main.zip"), L"0 KB"), MB_ICONINFORMATION,
                          Finalize()));
}

TEST_F(SettingsTest, UnicodeFileMayContainAnyCharacter) {
  const std::wstring out = Scratch(L"выход");
  ASSERT_TRUE(CreateDirectoryW(out.c_str(), nullptr));
  Settings(L"[Export]\nDirectory=" + out + L"\n");
  EXPECT_TRUE(EndsWithBox(0, Delivered(JoinPath(out, L"Main.zip"), L"0 KB"), MB_ICONINFORMATION,
                          Finalize()));
}

TEST_F(SettingsTest, TheFileIsNeverWritten) {
  Settings(L"[Target]\nEnabled=1\nExecutablePath=" + application_ + L"\n");
  const std::string before = FileBytes(folders_.settings);
  ASSERT_TRUE(Started().has_value());
  EXPECT_EQ(FileBytes(folders_.settings), before);
}

TEST_F(SettingsTest, LongArgumentLineReachesApplicationWhole) {
  const std::wstring arguments(20'000, L'a');
  Settings(L"[Target]\nEnabled=1\nExecutablePath=" + application_ + L"\nArguments=" + arguments +
           L"\n");
  EXPECT_EQ(Started(), Application() + arguments);
}

}  // namespace
}  // namespace kestrune
