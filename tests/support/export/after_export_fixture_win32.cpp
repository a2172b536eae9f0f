#include "tests/support/export/after_export_fixture_win32.h"

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"

namespace kestrune {
namespace {

/// Returns the value of "Key=value" in a record; the command line runs to its end.
std::wstring Field(const std::wstring& record, const std::wstring& key, bool to_the_end = false) {
  std::size_t begin = (L"\n" + record).find(L"\n" + key + L"=");
  if (begin == std::wstring::npos) {
    return {};
  }
  begin += key.size() + 1;
  return record.substr(begin, to_the_end ? std::wstring::npos : record.find(L'\n', begin) - begin);
}

}  // namespace

void AfterExportTest::SetUp() {
  FinalizeTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) {
    return;
  }
  application_ = Scratch(L"Some Viewer\\viewer.exe");
  record_ = Scratch(L"record.txt");
  ASSERT_TRUE(TryCreateDirectories(std::wstring(ParentPath(application_))));
  ASSERT_TRUE(TryCopyOver(TestProgramPath(L"child_recorder"), application_)) << GetLastError();
  ASSERT_TRUE(SetEnvironmentVariableW(L"KESTRUNE_CHILD_RECORD", record_.c_str()));
}

void AfterExportTest::TearDown() {
  for (const wchar_t* name : {L"KESTRUNE_CHILD_RECORD", L"KESTRUNE_CHILD_MARKER",
                              L"KESTRUNE_CHILD_HANDLE", L"KESTRUNE_CHILD_LINGER"}) {
    SetEnvironmentVariableW(name, nullptr);
  }
  FinalizeTest::TearDown();
}

void AfterExportTest::Configure(std::wstring_view more) const {
  std::wstring text =
      L"[Target]\nEnabled=1\nProgramName=Viewer\nExecutablePath=" + application_ + L"\n";
  text += more;
  Settings(text + L"\n");
}

std::optional<ChildRecord> AfterExportTest::Record() const {
  for (int i = 0; i < 6000 && !Exists(record_); ++i) {
    Sleep(10);
  }
  if (!Exists(record_)) {
    return std::nullopt;
  }
  const std::wstring text = WideFromUtf16Le(FileBytes(record_));
  ChildRecord record;
  record.directory = Field(text, L"Directory");
  record.marker = Field(text, L"Marker");
  record.handle_path = Field(text, L"HandlePath");
  record.startup_flags = Field(text, L"StartupFlags");
  record.command_line = Field(text, L"CommandLine", true);
  EXPECT_TRUE(DeleteFileW(record_.c_str()));
  return record;
}

bool AfterExportTest::NoRecordComes() const {
  Sleep(500);
  return !Exists(record_);
}

std::wstring AfterExportTest::NotStarted(std::wstring_view reason) const {
  std::wstring text = Delivered(default_destination_, L"0 KB") +
                      L"\n\nThe configured application was not started.\n";
  text += reason;
  return text;
}

}  // namespace kestrune
