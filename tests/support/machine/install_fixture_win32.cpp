#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/remove_tree_win32.h"

#include "common/files/file_time_win32.h"
#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"

namespace kestrune {

std::uint64_t TimeOf(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  return GetFileAttributesExW(ExtendedPath(path).Get(), GetFileExInfoStandard, &data)
             ? JoinFileTime(data.ftLastWriteTime)
             : 0;
}

void SetTimeOf(const std::wstring& path, std::uint64_t time) {
  const FileHandle file(CreateFileW(ExtendedPath(path).Get(), FILE_WRITE_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  const FILETIME last_write = SplitFileTime(time);
  EXPECT_TRUE(file && SetFileTime(file.Get(), nullptr, nullptr, &last_write))
      << Utf8FromWide(path) << ", error " << GetLastError();
}

namespace {

/// Copies waiting_program.exe to `path` and returns that.
std::wstring WaitingProgramAs(const std::wstring& path) {
  EXPECT_TRUE(TryCreateDirectories(std::wstring(ParentPath(path))) &&
              TryCopyOver(TestProgramPath(L"waiting_program"), path))
      << Utf8FromWide(path) << ", error " << GetLastError();
  return path;
}

}  // namespace

RunningAs::RunningAs(const std::wstring& path) : run_(WaitingProgramAs(path), L"") {
  EXPECT_TRUE(run_.Started());
}

void InstallTest::SetUp() {
  KESTRUNE_NEEDS_DISPOSABLE_PROFILE();
  wchar_t folder[MAX_PATH + 1] = {};
  GetTempPathW(MAX_PATH + 1, folder);
  scratch_ = JoinPath(folder, L"kestrune-install");
  ASSERT_TRUE(RemoveTree(scratch_)) << GetLastError();
  ASSERT_TRUE(RemoveTree(folders_.common + L"\\Kestrune")) << GetLastError();
  ClearBox();
  package_ = Scratch(L"package");
  MakePackage(package_, kPackageTime, "one");
}

void InstallTest::TearDown() {
  if (!scratch_.empty()) {
    ClearBox();
    static_cast<void>(RemoveTree(scratch_));
  }
}

std::wstring InstallTest::Scratch(std::wstring_view name) const {
  return JoinPath(scratch_, name);
}

std::wstring InstallTest::Runtime(std::wstring_view name) const {
  return JoinPath(folders_.runtime, name);
}

void InstallTest::Settings(std::wstring_view text) const {
  PutFile(folders_.settings, Utf16WithMark(WithWindowsLineEnds(text)));
}

void InstallTest::ExtraRecords(std::wstring_view kinds) const {
  PutFile(folders_.registration,
          Utf16WithMark(L"[Registration]\r\nExtraRecords=" + std::wstring(kinds) + L"\r\n"));
}

void InstallTest::ExpectLogged(int times, const std::vector<std::wstring>& entries) const {
  std::string expected;
  for (int i = 0; i < times; ++i) {
    for (const std::wstring& entry : entries) {
      expected += "Stage: " + Utf8FromWide(entry) + "\r\n";
    }
  }
  std::string found;
  if (Exists(folders_.log)) {
    found = FileBytes(folders_.log);
    EXPECT_TRUE(RemoveTree(std::wstring(ParentPath(folders_.log))));
    // A folder that is not empty is kept.
    RemoveDirectoryW(std::wstring(ParentPath(ParentPath(folders_.log))).c_str());
  }
  // Each line begins with its time in brackets.
  for (std::size_t at = 0; at < found.size(); at = found.find('\n', at) + 1) {
    found.erase(at, found.find("] ", at) + 2 - at);
  }
  EXPECT_EQ(found, expected);
}

RunOutcome InstallTest::Run(const std::wstring& command, const std::wstring& more) const {
  return RunKestrune(command + L" --package " + Quoted(package_) + L" " + more);
}

RunOutcome InstallTest::RunQuietly(const std::wstring& command, const std::wstring& more) const {
  return Run(command, L"--quiet " + more);
}

void MoveHost(MadeInstance& instance, const std::wstring& roaming) {
  const std::string rcs = FileBytes(instance.rcs);
  instance.profile = roaming + L"\\Altium\\" + std::wstring(FileName(instance.profile));
  instance.rcs = JoinPath(instance.profile, L"DXP.RCS");
  PutFile(instance.rcs, rcs);
}

std::wstring HeaderOf(const MadeInstance& instance) {
  return instance.display_name + L" " + instance.version + L"\nGUID: " + instance.guid +
         L"\nProfile: " + instance.profile + L"\nHKCU: " + instance.branch + L"\n";
}

std::wstring LatestBackup(const MadeInstance& instance) {
  const std::wstring folder =
      JoinPath(JoinPath(instance.profile, L"KestruneBackups"), instance.guid);
  const std::vector<std::wstring> runs = NamesIn(folder);
  return runs.empty() ? std::wstring() : JoinPath(folder, runs.back());
}

std::wstring Transacted(const MadeInstance& instance, std::wstring_view end,
                        std::wstring_view backend) {
  return HeaderOf(instance) + L"Backend: " + std::wstring(backend) + L"\nBackup: " +
         LatestBackup(instance) + L"\n" + std::wstring(end) + L"\n";
}

std::wstring Registered(const MadeInstance& instance) {
  return Transacted(instance, L"Installed/updated and validated.");
}

std::wstring Removed(const MadeInstance& instance) {
  return Transacted(instance, L"Registration removed; shared runtime retained.");
}

std::wstring Failed(const MadeInstance& instance, std::wstring_view text) {
  return HeaderOf(instance) + L"FAILED: " + std::wstring(text) + L"\n";
}

std::wstring Skipped(const MadeInstance& instance, std::wstring_view text) {
  return HeaderOf(instance) + L"Skipped: " + std::wstring(text) + L"\n";
}

::testing::AssertionResult HasWorkingButton(const MadeInstance& instance) {
  const HostView view = ReadAsHost(instance);
  const std::vector<HostButton> ours = OurButtons(view);
  if (!view.error.empty() || ours.size() != 1) {
    return ::testing::AssertionFailure() << ours.size() << " buttons of ours; " << view.error;
  }
  if (!ours[0].visible || !ours[0].starts) {
    return ::testing::AssertionFailure()
           << "on " << ours[0].toolbar << " beside " << ours[0].beside
           << (ours[0].visible ? "" : ", hidden") << (ours[0].starts ? "" : ", starts nothing");
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult HasNothingOfOurs(const MadeInstance& instance) {
  const HostView view = ReadAsHost(instance);
  for (const std::wstring& project : view.projects) {
    if (project.find(L"Kestrune") != std::wstring::npos) {
      return ::testing::AssertionFailure() << "still loads " << Utf8FromWide(project);
    }
  }
  const std::size_t buttons = OurButtons(view).size();
  return buttons == 0 ? ::testing::AssertionSuccess()
                      : ::testing::AssertionFailure() << buttons << " buttons of ours are left";
}

}  // namespace kestrune
