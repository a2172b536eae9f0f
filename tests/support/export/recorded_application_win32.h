#pragma once

#include <string>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/files_win32.h"

namespace kestrune {

/// Creates a program, viewer.exe in a folder with a blank in its name, which records its start, and
/// waits for the record. Sets its environment variables.
class RecordedApplication {
 public:
  /// Uses this folder for the program and its record.
  explicit RecordedApplication(const std::wstring& folder)
      : path(JoinPath(folder, L"Some Viewer\\viewer.exe")), record_(JoinPath(folder, L"record")) {
    EXPECT_TRUE(TryCreateDirectories(std::wstring(ParentPath(path))));
    EXPECT_TRUE(TryCopyOver(TestProgramPath(L"child_recorder"), path)) << GetLastError();
    Set(L"RECORD", record_);
  }
  RecordedApplication(const RecordedApplication&) = delete;
  RecordedApplication& operator=(const RecordedApplication&) = delete;
  ~RecordedApplication() {
    for (const wchar_t* name : {L"RECORD", L"MARKER", L"HANDLE", L"LINGER"}) {
      SetEnvironmentVariableW((L"KESTRUNE_CHILD_" + std::wstring(name)).c_str(), nullptr);
    }
  }

  static void Set(const std::wstring& name, const std::wstring& value) {
    EXPECT_TRUE(SetEnvironmentVariableW((L"KESTRUNE_CHILD_" + name).c_str(), value.c_str()));
  }

  /// Returns the record of a start that comes within a minute, and deletes it; empty without one.
  [[nodiscard]] std::wstring NextRecord() const {
    for (int i = 0; i < 6000 && !Exists(record_); ++i) {
      Sleep(10);
    }
    const std::wstring record = WideFromUtf16Le(FileBytes(record_));
    EXPECT_TRUE(DeleteFileW(record_.c_str()));
    return record;
  }
  [[nodiscard]] bool WasStarted() const { return Exists(record_); }

  const std::wstring path;

 private:
  const std::wstring record_;
};

/// The two tokens that name this program and its version to the application.
inline constexpr wchar_t kIdentity[] = L"-bridge:\"AltiumDesigner\" -bridge-version:\"0.2.3\"";

}  // namespace kestrune
