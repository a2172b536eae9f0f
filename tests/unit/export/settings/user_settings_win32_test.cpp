#include "export/settings/user_settings_win32.h"

#include <gtest/gtest.h>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/places/product_files.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/export/refused_call_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/shell_folder_override_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

class UserSettingsTest : public ExportTest {
 protected:
  UserSettings Load(std::wstring_view text) const {
    Settings(text);
    UserSettings settings;
    std::wstring path;
    std::wstring error_text = L"old";
    EXPECT_TRUE(LoadUserSettings(RealCalls(), settings, path, error_text));
    EXPECT_EQ(path, folders_.settings);
    EXPECT_EQ(error_text, L"");
    EXPECT_EQ(FileBytes(path), Utf16WithMark(WithWindowsLineEnds(text))) << "the file is only read";
    return settings;
  }

  UserSettings LoadWithoutFile() const {
    UserSettings settings;
    settings.enabled = true;
    settings.arguments = L"old";
    std::wstring path = L"old";
    std::wstring error_text = L"old";
    EXPECT_TRUE(LoadUserSettings(RealCalls(), settings, path, error_text));
    EXPECT_EQ(path, L"");
    EXPECT_EQ(error_text, L"");
    return settings;
  }
};

TEST_F(UserSettingsTest, NoFileMeansDefaults) {
  const UserSettings settings = LoadWithoutFile();
  EXPECT_FALSE(settings.enabled);
  EXPECT_EQ(settings.arguments, L"");
  EXPECT_EQ(settings.executable_path, L"");
  EXPECT_EQ(settings.export_directory, L"");
}

TEST_F(UserSettingsTest, EveryKeyIsRead) {
  const UserSettings settings = Load(
      L"[Target]\nEnabled=1\nProgramName=Viewer \u0416\nExecutablePath=%ProgramFiles%\\v.exe\n"
      L"Arguments=-x \"%ODBPP%\"\nMailslotName=TAVORIN.Kestrune.7\n[Export]\n"
      L"Directory=%USERPROFILE%\\out\n");
  EXPECT_TRUE(settings.enabled);
  EXPECT_EQ(settings.program_name, L"Viewer \u0416");
  EXPECT_EQ(settings.executable_path, L"%ProgramFiles%\\v.exe");
  EXPECT_EQ(settings.arguments, L"-x \"%ODBPP%\"");
  EXPECT_EQ(settings.mailslot_name, L"TAVORIN.Kestrune.7");
  EXPECT_EQ(settings.export_directory, L"%USERPROFILE%\\out");
}

TEST_F(UserSettingsTest, OlderSectionCompletesTheCurrentOne) {
  const UserSettings settings = Load(
      L"[Target]\nProgramName=\nArguments=mine\n"
      L"[AfterExport]\nEnabled=1\nProgramName=Old\nExecutablePath=C:\\old.exe\n"
      L"Arguments=theirs\nMailslotName=TAVORIN.Kestrune.8\n");
  EXPECT_TRUE(settings.enabled);
  EXPECT_EQ(settings.program_name, L"Old");
  EXPECT_EQ(settings.executable_path, L"C:\\old.exe");
  EXPECT_EQ(settings.arguments, L"mine");
  EXPECT_EQ(settings.mailslot_name, L"TAVORIN.Kestrune.8");
}

TEST_F(UserSettingsTest, ExecutableNeedsEmptyPathInBothSections) {
  EXPECT_EQ(Load(L"[Target]\nExecutable=C:\\a.exe\n[AfterExport]\nExecutablePath=C:\\b.exe\n")
                .executable_path,
            L"C:\\b.exe");
  EXPECT_EQ(Load(L"[Target]\nExecutablePath=\nExecutable=C:\\c1.exe\n[AfterExport]\n"
                 L"Executable=C:\\d1.exe\n")
                .executable_path,
            L"C:\\c1.exe");
  EXPECT_EQ(Load(L"[AfterExport]\nExecutable=C:\\d.exe\n").executable_path, L"C:\\d.exe");
}

TEST_F(UserSettingsTest, EnabledFallsBackWhenAbsentOrNegative) {
  struct Case {
    const wchar_t* text;
    bool enabled;
  };
  const Case cases[] = {
      {L"[Target]\nEnabled=1\n", true},
      {L"[Target]\nEnabled=2\n", true},
      {L"[Target]\nEnabled=0\n[AfterExport]\nEnabled=1\n", false},
      {L"[Target]\nEnabled=-2\n[AfterExport]\nEnabled=1\n", true},
      {L"[Target]\nEnabled=-1\n[AfterExport]\nEnabled=1\n", true},
      {L"[Target]\nEnabled=-1\n", false},
      {L"[Target]\nEnabled=abc\n[AfterExport]\nEnabled=1\n", false},
      {L"[Target]\nx=1\n[AfterExport]\nEnabled=-5\n", true},
      {L"[AfterExport]\nEnabled=0\n", false},
      {L"[AfterExport]\nEnabled=7\n", true},
      {L"[Export]\nEnabled=1\n", false},
  };
  for (const Case& item : cases) {
    EXPECT_EQ(Load(item.text).enabled, item.enabled) << item.text;
  }
}

TEST_F(UserSettingsTest, OnlyTheExportSectionNamesTheDirectory) {
  EXPECT_EQ(Load(L"[Target]\nDirectory=C:\\a\n[AfterExport]\nDirectory=C:\\b\n").export_directory,
            L"");
}

TEST_F(UserSettingsTest, AValueKeepsAtMost32767Characters) {
  const std::wstring longest(32767, L'a');
  EXPECT_EQ(Load(L"[Target]\nArguments=" + longest + L"\n").arguments, longest);
  EXPECT_EQ(Load(L"[Target]\nArguments=" + longest + L"bb\n").arguments.size(), 32767U);
}

TEST_F(UserSettingsTest, AnsiFileIsReadInCodePage) {
  PutFile(folders_.settings, "[Target]\r\nProgramName=Gr\xFC\xDF\r\n");
  UserSettings settings;
  std::wstring path;
  std::wstring error_text;
  ASSERT_TRUE(LoadUserSettings(RealCalls(), settings, path, error_text));
  if (GetACP() != 1252) {
    GTEST_SKIP() << "the bytes mean this text only in code page 1252";
  }
  EXPECT_EQ(settings.program_name, L"Gr\u00FC\u00DF");
}

TEST_F(UserSettingsTest, TheUsersFileHidesTheCommonOne) {
  PutFile(folders_.common_settings, "[Target]\r\nProgramName=common\r\nArguments=common\r\n");
  UserSettings settings;
  std::wstring path;
  std::wstring error_text;
  ASSERT_TRUE(LoadUserSettings(RealCalls(), settings, path, error_text));
  EXPECT_EQ(path, folders_.common_settings);
  EXPECT_EQ(settings.program_name, L"common");
  settings = Load(L"[Target]\nProgramName=own\n");
  EXPECT_EQ(settings.program_name, L"own");
  EXPECT_EQ(settings.arguments, L"");
}

TEST_F(UserSettingsTest, FolderAsUserFileHidesCommonFile) {
  PutFile(folders_.common_settings, "[Target]\r\nEnabled=1\r\n");
  ASSERT_TRUE(TryCreateDirectories(folders_.settings));
  EXPECT_EQ(ResolveSettingsPath(RealCalls(), kProductFolder), folders_.settings);
  EXPECT_FALSE(LoadWithoutFile().enabled);
}

TEST_F(UserSettingsTest, WithoutLocalFolderNothingElseIsRead) {
  PutFile(folders_.common_settings, "[Target]\r\nEnabled=1\r\n");
  const ShellFolderOverride local(HKEY_CURRENT_USER, L"Local AppData", L"C:\\kestrune-nowhere");
  if (!ResolveSettingsPath(RealCalls(), kProductFolder).empty()) {
    GTEST_SKIP() << "this shell keeps its own copy of the folder's path";
  }
  UserSettings settings;
  settings.enabled = true;
  std::wstring path = L"old";
  std::wstring error_text;
  EXPECT_FALSE(LoadUserSettings(RealCalls(), settings, path, error_text));
  EXPECT_EQ(error_text, L"The Windows LocalAppData directory is unavailable.");
  EXPECT_EQ(path, L"");
  EXPECT_FALSE(settings.enabled);
}

TEST_F(UserSettingsTest, WithoutCommonFolderTheLocalPathCounts) {
  const ShellFolderOverride common(HKEY_LOCAL_MACHINE, L"Common AppData", L"C:\\kestrune-nowhere");
  if (ResolveSettingsPath(RealCalls(), kProductFolder) == folders_.common_settings) {
    GTEST_SKIP() << "this shell keeps its own copy of the folder's path";
  }
  EXPECT_EQ(ResolveSettingsPath(RealCalls(), kProductFolder), folders_.settings);
  EXPECT_FALSE(LoadWithoutFile().enabled);
  EXPECT_TRUE(Load(L"[Target]\nEnabled=1\n").enabled);
}

TEST_F(UserSettingsTest, FileWithUnknownStatusIsThrown) {
  ScriptedCalls calls;
  calls.before = RefusedCall("GetAttributes", folders_.common_settings, ERROR_NETNAME_DELETED);
  UserSettings settings;
  std::wstring path;
  std::wstring error_text;
  try {
    static_cast<void>(LoadUserSettings(calls, settings, path, error_text));
    FAIL() << "nothing was thrown";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.text, L"status");
    EXPECT_EQ(failure.code, DWORD{ERROR_NETNAME_DELETED});
  }
}

TEST_F(UserSettingsTest, TheFolderNameChoosesTheFile) {
  EXPECT_EQ(ResolveSettingsPath(RealCalls(), L"Other"), folders_.common + L"\\Other\\settings.ini");
}

TEST_F(UserSettingsTest, LabelNeedsAnExistingExecutable) {
  UserSettings settings;
  settings.enabled = true;
  settings.program_name = L"Viewer";
  settings.executable_path = Scratch(L"viewer.exe");
  const std::wstring plain = L"Export PCB through Kestrune";
  EXPECT_EQ(BuildExportCommandLabel(RealCalls(), settings), plain);
  ASSERT_TRUE(TryCreateDirectories(settings.executable_path));
  EXPECT_EQ(BuildExportCommandLabel(RealCalls(), settings), plain);
  settings.executable_path += L"\\real.exe";
  PutFile(settings.executable_path, "MZ");
  EXPECT_EQ(BuildExportCommandLabel(RealCalls(), settings), plain + L" -> Viewer");
  settings.executable_path = L"%TEMP%\\real.exe";
  PutFile(Scratch(L"..\\real.exe"), "MZ");
  EXPECT_EQ(BuildExportCommandLabel(RealCalls(), settings), plain)
      << "the path is not expanded here";
  DeleteFileW(Scratch(L"..\\real.exe").c_str());
}

}  // namespace
}  // namespace kestrune
