// The application that receives an export, as it records its own start.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/after_export_fixture_win32.h"

namespace kestrune {
namespace {

/// Returns the whole command line for an argument line.
std::wstring Line(const std::wstring& application, std::wstring_view arguments) {
  std::wstring line = Quoted(application) + L" ";
  line += arguments;
  return line;
}

std::wstring Identity() {
  return std::wstring(kIdentity);
}

TEST_F(AfterExportTest, StartedApplicationReceivesTheArchive) {
  // Windows removes one pair of quotes around a whole value.
  Configure(L"Arguments=\"\"%ODBPP%\"\"");
  EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
  const std::optional<ChildRecord> record = Record();
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->command_line,
            Line(application_, Identity() + L" " + Quoted(default_destination_)));
  EXPECT_EQ(record->directory, ParentPath(application_));
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
  ExpectClipboardUntouched();
}

TEST_F(AfterExportTest, NothingIsLoggedAboutTheApplication) {
  Configure(L"");
  EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
  ASSERT_TRUE(Record().has_value());
  const std::vector<std::string> log = Log();
  ASSERT_EQ(log.size(), 3U);
  EXPECT_TRUE(log.back().starts_with("Stage: Finalize copied | "));
}

TEST_F(AfterExportTest, TheApplicationIsNeverWaitedFor) {
  SetEnvironmentVariableW(L"KESTRUNE_CHILD_LINGER", L"20000");
  Configure(L"");
  const RunOutcome outcome = Finalize();
  EXPECT_TRUE(EndsSilentlyWith(0, outcome));
  EXPECT_LT(outcome.milliseconds, 19'000U);
  EXPECT_TRUE(Record().has_value());
}

TEST_F(AfterExportTest, ApplicationHasItsEnvironmentWithoutInheritedHandles) {
  SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  const FileHandle open(CreateFileW(native_.c_str(), GENERIC_READ, FILE_SHARE_READ, &inheritable,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(static_cast<bool>(open));
  SetEnvironmentVariableW(L"KESTRUNE_CHILD_HANDLE",
                          std::to_wstring(reinterpret_cast<std::uintptr_t>(open.Get())).c_str());
  SetEnvironmentVariableW(L"KESTRUNE_CHILD_MARKER", L"the user's own value");
  Configure(L"");
  // The program has the handle; the application must not inherit it.
  EXPECT_TRUE(EndsSilentlyWith(
      0, Finish(ProgramRun::WithHandles(
             KestrunePath(), L"--finalize " + Quoted(native_) + L" " + Quoted(board_)))));
  const std::optional<ChildRecord> record = Record();
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->marker, L"the user's own value");
  // One of its own files may have the same handle value by chance.
  EXPECT_FALSE(record->handle_path.ends_with(FileName(native_)));
  EXPECT_EQ(record->startup_flags, L"0");
}

TEST_F(AfterExportTest, EveryPlaceholderIsReplacedWithoutQuotes) {
  Configure(
      L"Arguments=1%ODBPP%1 2%ODBPP_ZIP%2 3%ODBPP_DIR%3 4%ODBPP_NAME%4 5%BRIDGE_CAD%5 "
      L"6%BRIDGE_VERSION%6 %ODBPP% %odbpp% %ODBPP");
  EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
  const std::optional<ChildRecord> record = Record();
  ASSERT_TRUE(record.has_value());
  const std::wstring zip = default_destination_;
  EXPECT_EQ(record->command_line, Line(application_, Identity() + L" 1" + zip + L"1 2" + zip +
                                                         L"2 3" + folders_.default_export +
                                                         L"3 4Main.zip4 5AltiumDesigner5 "
                                                         L"60.2.36 " +
                                                         zip + L" %odbpp% %ODBPP"));
}

TEST_F(AfterExportTest, WhatPlaceholderInsertedIsNeverExpandedAgain) {
  Configure(L"Arguments=%ODBPP_NAME%");
  EXPECT_TRUE(EndsSilentlyWith(0, FinalizeBoard(L"C:\\x\\%BRIDGE_CAD%.PcbDoc")));
  const std::optional<ChildRecord> record = Record();
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->command_line, Line(application_, Identity() + L" %BRIDGE_CAD%.zip"));
}

TEST_F(AfterExportTest, IdentityTokensArePrependedUnlessPresent) {
  struct Row {
    const wchar_t* arguments;
    std::wstring expected;
  };
  const std::wstring host = L"-bridge:\"AltiumDesigner\"";
  const std::wstring version = L"-bridge-version:\"0.2.3\"";
  for (const Row& row :
       {Row{L"", host + L" " + version}, Row{L"x", host + L" " + version + L" x"},
        Row{L"-BRIDGE:mine", version + L" -BRIDGE:mine"},
        Row{L"a -bridge-version:9", host + L" a -bridge-version:9"},
        Row{L"a\t-bridge:1\t-Bridge-Version:2", L"a\t-bridge:1\t-Bridge-Version:2"},
        Row{L"x-bridge:1", host + L" " + version + L" x-bridge:1"}}) {
    Configure(std::wstring(L"Arguments=") + row.arguments);
    EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
    const std::optional<ChildRecord> record = Record();
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->command_line, Line(application_, row.expected));
  }
}

TEST_F(AfterExportTest, TheSpacingIsAppendedInMils) {
  struct Row {
    const wchar_t* space;
    const wchar_t* token;
  };
  PutFile(folders_.native_zip, "archive");
  Configure(L"Arguments=x");
  for (const Row& row : {Row{L"50000", L" -space:5mil"}, Row{L"12345", L" -space:1.2345mil"},
                         Row{L"5", L" -space:0.0005mil"}, Row{L"100000", L" -space:10mil"},
                         Row{L"10100", L" -space:1.01mil"}, Row{L"\" +7\"", L" -space:0.0007mil"},
                         Row{L"9223372036854775807", L" -space:922337203685477.5807mil"},
                         Row{L"99999999999999999999", L" -space:922337203685477.5807mil"},
                         Row{L"0", L""}, Row{L"-5", L""}, Row{L"12x", L""}, Row{L"\"\"", L""}}) {
    EXPECT_TRUE(
        EndsSilentlyWith(0, RunKestrune(L"--finalize-auto " + Quoted(board_) + L" " + row.space)));
    const std::optional<ChildRecord> record = Record();
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->command_line, Line(application_, Identity() + L" x" + row.token));
  }
}

TEST_F(AfterExportTest, TemplateWithItsOwnSpacingKeepsIt) {
  PutFile(folders_.native_zip, "archive");
  Configure(L"Arguments=x -SPACE:1");
  EXPECT_TRUE(EndsSilentlyWith(0, RunKestrune(L"--finalize-auto " + Quoted(board_) + L" 50000")));
  const std::optional<ChildRecord> record = Record();
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->command_line, Line(application_, Identity() + L" x -SPACE:1"));
}

TEST_F(AfterExportTest, FinalizeNeverHandsASpacingOver) {
  Configure(L"Arguments=x");
  EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
  const std::optional<ChildRecord> record = Record();
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->command_line, Line(application_, Identity() + L" x"));
}

TEST_F(AfterExportTest, AnyCharacterOfPathReachesApplication) {
  // Windows removes one pair of quotes around a whole value.
  Configure(L"Arguments=\"\"%ODBPP%\"\"");
  EXPECT_TRUE(EndsSilentlyWith(0, FinalizeBoard(L"C:\\x\\Ä плата \xD83D\xDE00.PcbDoc")));
  const std::optional<ChildRecord> record = Record();
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->command_line,
            Line(application_,
                 Identity() + L" " +
                     Quoted(JoinPath(folders_.default_export, L"Ä плата \xD83D\xDE00.zip"))));
}

TEST_F(AfterExportTest, VariablesInTheExecutablePathAreExpanded) {
  SetEnvironmentVariableW(L"KESTRUNE_CHILD_MARKER", std::wstring(ParentPath(application_)).c_str());
  Settings(L"[Target]\nEnabled=1\nExecutablePath=%KESTRUNE_CHILD_MARKER%\\viewer.exe\n");
  EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
  const std::optional<ChildRecord> record = Record();
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->command_line, Line(application_, Identity()));
}

TEST_F(AfterExportTest, APathWithoutBlanksIsNotQuoted) {
  const std::wstring plain = Scratch(L"plain.exe");
  ASSERT_TRUE(CopyFileW(application_.c_str(), plain.c_str(), FALSE));
  Settings(L"[Target]\nEnabled=1\nExecutablePath=" + plain + L"\n");
  EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
  const std::optional<ChildRecord> record = Record();
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->command_line, plain + L" " + Identity());
}

TEST_F(AfterExportTest, MissingApplicationIsNamedInTheMessage) {
  for (const std::wstring& path : {Scratch(L"none.exe"), Scratch(L"Some Viewer"),
                                   std::wstring(L"%KESTRUNE_NOT_DEFINED%\\x.exe")}) {
    FillClipboard(L"before");
    Settings(L"[Target]\nEnabled=1\nExecutablePath=" + path + L"\n");
    EXPECT_TRUE(EndsWithBox(
        0, NotStarted(L"The configured after-export executable does not exist: " + path),
        MB_ICONINFORMATION, Finalize()));
    ExpectOnClipboard(default_destination_);
  }
  Settings(L"[Target]\nEnabled=1\n");
  EXPECT_TRUE(EndsWithBox(0, NotStarted(L"The configured after-export executable does not exist: "),
                          MB_ICONINFORMATION, Finalize()));
}

TEST_F(AfterExportTest, FailedStartIsReportedWithItsCode) {
  const std::wstring broken = Scratch(L"broken.exe");
  PutFile(broken, "this is no program at all");
  Settings(L"[Target]\nEnabled=1\nExecutablePath=" + broken + L"\n");
  EXPECT_TRUE(EndsWithBox(
      0,
      NotStarted(L"The configured after-export application could not be started. Windows error: " +
                 std::to_wstring(ERROR_BAD_EXE_FORMAT)),
      MB_ICONINFORMATION, Finalize()));
  ExpectOnClipboard(default_destination_);
}

TEST_F(AfterExportTest, DisabledApplicationIsNeitherStartedNorMentioned) {
  Settings(L"[Target]\nEnabled=0\nExecutablePath=" + application_ + L"\n");
  EXPECT_TRUE(
      EndsWithBox(0, Delivered(default_destination_, L"0 KB"), MB_ICONINFORMATION, Finalize()));
  EXPECT_TRUE(NoRecordComes());
}

TEST_F(AfterExportTest, AFailedExportStartsNothing) {
  Configure(L"");
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  EXPECT_TRUE(EndsWithBox(4, SeeLog(), MB_ICONERROR, Finalize()));
  EXPECT_TRUE(NoRecordComes());
}

}  // namespace
}  // namespace kestrune
