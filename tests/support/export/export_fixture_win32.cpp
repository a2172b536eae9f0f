#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/remove_tree_win32.h"

#include <winioctl.h>
#include <knownfolders.h>
#include <shlobj.h>

#include <algorithm>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"

namespace kestrune {
namespace {

std::wstring KnownFolder(const KNOWNFOLDERID& id) {
  TaskText path;
  SHGetKnownFolderPath(id, KF_FLAG_CREATE, nullptr, path.Put());
  return path ? path.Get() : L"";
}

std::wstring Environment(const wchar_t* name) {
  std::wstring value(32768, L'\0');
  value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
  return value;
}

std::string Describe(const RunOutcome& outcome) {
  std::string text = "ended with " + std::to_string(outcome.code) + " after " +
                     std::to_string(outcome.milliseconds) + " ms";
  for (const SeenBox& box : outcome.boxes) {
    text += "\nbox \"" + Utf8FromWide(box.title) + "\" icon " + std::to_string(box.icon) + ":\n" +
            Utf8FromWide(box.text);
  }
  return text;
}

}  // namespace

ProfileFolders FindProfileFolders() {
  ProfileFolders folders;
  folders.local = Environment(L"USERPROFILE") + L"\\AppData\\Local";
  folders.common = KnownFolder(FOLDERID_ProgramData);
  folders.log = folders.local + L"\\Kestrune\\Logs\\bridge.log";
  folders.runtime = folders.local + L"\\Kestrune\\Runtime";
  folders.temporary = KnownFolder(FOLDERID_PublicDocuments) + L"\\Kestrune\\Temp";
  folders.native_zip = folders.temporary + L"\\Project Outputs for Bridge\\ODB\\Bridge.zip";
  folders.default_export = folders.local + L"\\Kestrune\\ODBpp";
  folders.settings = folders.local + L"\\Kestrune\\settings.ini";
  folders.common_settings = folders.common + L"\\Kestrune\\settings.ini";
  folders.registration = folders.local + L"\\Kestrune\\registration.ini";
  return folders;
}

std::string FileBytes(const std::wstring& path) {
  std::string bytes;
  EXPECT_TRUE(TryReadFile(path, 256U << 20U, bytes))
      << Utf8FromWide(path) << ", error " << GetLastError();
  return bytes;
}

void PutFile(const std::wstring& path, std::string_view bytes) {
  EXPECT_TRUE(TryCreateDirectories(std::wstring(ParentPath(path))) && TryWriteFile(path, bytes))
      << Utf8FromWide(path) << ", error " << GetLastError();
}

void PutSparseFile(const std::wstring& path, std::uint64_t size, std::string_view beginning) {
  PutFile(path, beginning);
  const FileHandle file(CreateFileW(ExtendedPath(path).Get(), GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD returned = 0;
  DeviceIoControl(file.Get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
  LARGE_INTEGER end = {};
  end.QuadPart = static_cast<LONGLONG>(size);
  EXPECT_TRUE(SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN) && SetEndOfFile(file.Get()))
      << Utf8FromWide(path) << ", error " << GetLastError();
}

bool Exists(const std::wstring& path) {
  return GetFileAttributesW(ExtendedPath(path).Get()) != INVALID_FILE_ATTRIBUTES;
}

std::vector<std::wstring> NamesIn(const std::wstring& folder) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry = {};
  const FindHandle search(FindFirstFileW(ExtendedPath(JoinPath(folder, L"*")).Get(), &entry));
  if (search) {
    do {
      const std::wstring name = entry.cFileName;
      if (name != L"." && name != L"..") {
        names.push_back(name);
      }
    } while (FindNextFileW(search.Get(), &entry));
  }
  std::sort(names.begin(), names.end());
  return names;
}

FileHandle HoldOpen(const std::wstring& path, DWORD access, DWORD sharing) {
  FileHandle file(CreateFileW(ExtendedPath(path).Get(), access, sharing, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
  EXPECT_TRUE(static_cast<bool>(file)) << Utf8FromWide(path) << ", error " << GetLastError();
  return file;
}

std::string Entry(std::wstring_view stage, std::wstring_view detail) {
  return Utf8FromWide(std::wstring(L"Stage: ").append(stage).append(L" | ").append(detail));
}

std::string Utf16WithMark(std::wstring_view text) {
  std::string bytes = "\xFF\xFE";
  for (const wchar_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>((unit >> 8) & 0xFF));
  }
  return bytes;
}

std::wstring ScratchFolder() {
  const std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  return JoinPath(Environment(L"TEMP"), L"kestrune-" + WidenBytes(name));
}

void ExportTest::SetUp() {
  KESTRUNE_NEEDS_DISPOSABLE_PROFILE();
  owns_scratch_ = true;
  ASSERT_TRUE(RemoveTree(folders_.local + L"\\Kestrune")) << GetLastError();
  ASSERT_TRUE(RemoveTree(folders_.common + L"\\Kestrune")) << GetLastError();
  ASSERT_TRUE(RemoveTree(std::wstring(ParentPath(folders_.temporary)))) << GetLastError();
  ASSERT_TRUE(RemoveTree(scratch_)) << GetLastError();
  ASSERT_TRUE(TryCreateDirectories(scratch_)) << GetLastError();
}

void ExportTest::TearDown() {
  if (owns_scratch_) {
    // A test that failed to close a file may leave its folder; the next run clears it.
    static_cast<void>(RemoveTree(scratch_));
  }
}

std::vector<std::string> ExportTest::Log() const {
  std::vector<std::string> entries;
  if (!Exists(folders_.log)) {
    return entries;
  }
  const std::string text = FileBytes(folders_.log);
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = text.find("\r\n", begin)) != std::string::npos;
       begin = end + 2) {
    const std::string line = text.substr(begin, end - begin);
    const std::size_t time = line.find("] ");
    entries.push_back(time == std::string::npos ? line : line.substr(time + 2));
  }
  EXPECT_EQ(begin, text.size()) << "the log ends inside a line";
  return entries;
}

std::wstring ExportTest::Scratch(std::wstring_view name) const {
  return JoinPath(scratch_, name);
}

void ExportTest::Settings(std::wstring_view text) const {
  PutFile(folders_.settings, Utf16WithMark(WithWindowsLineEnds(text)));
}

bool QuickRunIsWanted() {
  return Environment(L"KESTRUNE_QUICK") == L"1";
}

::testing::AssertionResult EndsSilentlyWith(int code, const RunOutcome& outcome) {
  if (outcome.code == code && outcome.boxes.empty()) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure()
         << "expected a silent end with " << code << "; " << Describe(outcome);
}

::testing::AssertionResult EndsWithBox(int code, std::wstring_view text, unsigned icon,
                                       const RunOutcome& outcome) {
  if (outcome.code == code && outcome.boxes.size() == 1) {
    const SeenBox& box = outcome.boxes.front();
    if (box.title == L"Kestrune" && box.text == text && box.icon == icon && !box.owned &&
        !box.topmost) {
      return ::testing::AssertionSuccess();
    }
  }
  return ::testing::AssertionFailure()
         << "expected " << code << " after a box with icon " << icon << ":\n"
         << Utf8FromWide(text) << "\nbut the program " << Describe(outcome);
}

}  // namespace kestrune
