// Exports in a row: any number of them must leave no more than one does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>
#include <tlhelp32.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/output_job_reader.h"
#include "tests/support/export/recorded_application_win32.h"
#include "tests/support/machine/open_resources_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

/// Lists every file and folder below `folder` with its size, as "<path> <bytes>"; the log, which
/// grows, without size.
void ListTree(const std::wstring& folder, std::vector<std::string>& list) {
  for (const std::wstring& name : NamesIn(folder)) {
    const std::wstring path = JoinPath(folder, name);
    const std::optional<FileEntry> entry = QueryEntryQuietly(RealCalls(), path);
    if (!entry) {
      list.push_back(Utf8FromWide(path) + " cannot be read");
    } else if (entry->kind == FileKind::Directory) {
      list.push_back(Utf8FromWide(path));
      ListTree(path, list);
    } else {
      list.push_back(Utf8FromWide(path) +
                     (name == L"bridge.log" ? "" : " " + std::to_string(entry->size)));
    }
  }
}

/// Returns the names of the running programs, sorted; on Windows, where others start and end, only
/// ours.
std::vector<std::wstring> RunningPrograms() {
  std::vector<std::wstring> names;
  const FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof(entry);
  for (BOOL found = Process32FirstW(snapshot.Get(), &entry); found;
       found = Process32NextW(snapshot.Get(), &entry)) {
    const std::wstring name = entry.szExeFile;
    if (RunsUnderWine() || name == L"Kestrune.exe" || name == L"viewer.exe") {
      names.push_back(name);
    }
  }
  std::ranges::sort(names);
  return names;
}

class RepeatedExports : public ExportTest {
 protected:
  void SetUp() override {
    ExportTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    application_.emplace(Scratch(L""));
    PutFile(JoinPath(folders_.runtime, L"Bridge.OutJob"), SmallOutputJob());
    PutFile(Scratch(L"Panel.PcbDoc"), "panel");
    PutFile(Scratch(L"list.txt"), Utf8FromWide(Scratch(L"Panel.PcbDoc")) + "\r\n");
    PutFile(Scratch(L"layers.txt"), "PlotKey=PlotTopLayerPlot\r\n");
    PutFile(Scratch(L"Exports\\readme.txt"), "the user's");
    Settings(L"[Export]\nDirectory=" + Scratch(L"Exports") +
             L"\n[Target]\nEnabled=1\nExecutablePath=" + application_->path +
             L"\nArguments=\"%ODBPP%\"\n");
  }

  /// Runs one export as the script does; `archive` is the content that the host writes.
  void Export(const std::string& archive) const {
    const std::wstring status = Scratch(L"status.txt");
    const std::wstring result = Scratch(L"result.txt");
    ASSERT_TRUE(EndsSilentlyWith(
        0, RunKestrune(L"--prepare " + Quoted(board_) + L" " + Quoted(Scratch(L"list.txt")) + L" " +
                       Quoted(Scratch(L"layers.txt")) + L" " + Quoted(status))));
    ASSERT_EQ(FileBytes(status), "OK\r\n");
    ASSERT_TRUE(DeleteFileW(status.c_str()));
    ProgramRun wait(KestrunePath(),
                    L"--wait-native " + Quoted(folders_.native_zip) + L" none " + Quoted(result));
    PutFile(folders_.native_zip, archive);
    ASSERT_TRUE(EndsSilentlyWith(0, Finish(std::move(wait), 60'000)));
    ASSERT_TRUE(FileBytes(result).starts_with("OK"));
    ASSERT_TRUE(DeleteFileW(result.c_str()));
    ASSERT_TRUE(EndsSilentlyWith(0, RunKestrune(L"--finalize-auto " + Quoted(board_) + L" 80000")));
    ASSERT_FALSE(application_->NextRecord().empty());
    ASSERT_EQ(FileBytes(Scratch(L"Exports\\Main.zip")), archive);
  }

  /// Lists all files that may belong to an export: under Wine those of all users and of the
  /// machine; on Windows, where others write too, those of the program and of the temporary folder.
  [[nodiscard]] std::vector<std::string> EverythingOnDisk() const {
    std::vector<std::wstring> folders = {L"C:\\users", L"C:\\ProgramData", L"C:\\windows\\temp"};
    if (!RunsUnderWine()) {
      folders = {folders_.local + L"\\Kestrune", folders_.common + L"\\Kestrune",
                 std::wstring(ParentPath(folders_.temporary)),
                 std::wstring(ParentPath(ParentPath(Scratch(L"x"))))};
    }
    std::vector<std::string> list;
    for (const std::wstring& folder : folders) {
      ListTree(folder, list);
    }
    return list;
  }

  const std::wstring board_ = Scratch(L"Main.PcbDoc");
  std::optional<RecordedApplication> application_;
};

TEST_F(RepeatedExports, LeaveNoMoreThanOneLeaves) {
  const int rounds = RepeatedRounds(QuickRunIsWanted() ? 2 : 20);
  const auto run = [this](int round) {
    // Every board and every archive differs from the last, in the same number of bytes.
    const std::string mark = std::to_string(1'000'000 + round);
    PutFile(board_, "board" + mark);
    Export("PK\3\4" + mark);
  };
  run(0);
  const std::vector<std::string> disk = EverythingOnDisk();
  const std::vector<std::wstring> programs = RunningPrograms();
  for (int round = 1; round <= rounds && !HasFailure(); ++round) {
    run(round);
  }
  EXPECT_THAT(EverythingOnDisk(), ::testing::ElementsAreArray(disk));
  EXPECT_EQ(RunningPrograms(), programs);
  EXPECT_EQ(std::ranges::count(programs, L"Kestrune.exe"), 0);
  EXPECT_EQ(std::ranges::count(programs, L"viewer.exe"), 0);
  EXPECT_LE(FileBytes(folders_.log).size(), 1'048'576U);
  RecordProperty("rounds", rounds);
  RecordProperty("entries_on_disk", static_cast<int>(disk.size()));
  RecordProperty("programs", static_cast<int>(programs.size()));
}

}  // namespace
}  // namespace kestrune
