// The diagnostic log of whole runs of the program.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "common/files/file_time_win32.h"
#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/machine/moved_profile_win32.h"

namespace kestrune {
namespace {

constexpr std::size_t kLogLimit = 1'048'576;

class LogTest : public ExportTest {
 protected:
  /// Returns the shortest run that logs: a preparation of a board that is not there writes two
  /// lines.
  RunOutcome LogTwoLines(const std::wstring& source = L"C:\\no\\such.PcbDoc") {
    return RunKestrune(L"--prepare " + Quoted(source) + L" \"C:\\no list\" \"C:\\no manifest\"");
  }

  std::string Raw() const { return FileBytes(folders_.log); }
};

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = text.find("\r\n", begin)) != std::string::npos;
       begin = end + 2) {
    lines.push_back(text.substr(begin, end - begin));
  }
  return lines;
}

std::string ExpectedTime(const SYSTEMTIME& time) {
  return "[" + std::to_string(time.wYear) + "-" + std::to_string(time.wMonth) + "-" +
         std::to_string(time.wDay) + " " + std::to_string(time.wHour) + ":" +
         std::to_string(time.wMinute) + ":" + std::to_string(time.wSecond) + "] ";
}

TEST_F(LogTest, LineHasLocalTimeStageAndDetail) {
  SYSTEMTIME before = {};
  SYSTEMTIME after = {};
  GetLocalTime(&before);
  ASSERT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  GetLocalTime(&after);
  const std::string detail = "Stage: Prepare begin | SourcePCB=C:\\no\\such.PcbDoc Temp=" +
                             Utf8FromWide(folders_.temporary) +
                             " Runtime=" + Utf8FromWide(folders_.runtime) + " Dependencies=0";
  const std::vector<std::string> lines = Lines(Raw());
  ASSERT_EQ(lines.size(), 2U);
  // The line has one of the seconds during the run.
  std::vector<std::string> possible;
  FILETIME moment = {};
  FILETIME last = {};
  SystemTimeToFileTime(&before, &moment);
  SystemTimeToFileTime(&after, &last);
  for (ULONGLONG ticks = JoinFileTime(moment);
       possible.empty() || ticks <= JoinFileTime(last) + 10'000'000ULL; ticks += 10'000'000ULL) {
    const FILETIME step = SplitFileTime(ticks);
    SYSTEMTIME time = {};
    FileTimeToSystemTime(&step, &time);
    possible.push_back(ExpectedTime(time) + detail);
  }
  EXPECT_NE(std::find(possible.begin(), possible.end(), lines[0]), possible.end()) << lines[0];
}

TEST_F(LogTest, FileIsUtf8WithoutMark) {
  ASSERT_TRUE(EndsSilentlyWith(9, LogTwoLines(L"C:\\плата\\Ä\xD83D\xDE00.PcbDoc")));
  const std::string raw = Raw();
  EXPECT_EQ(raw.front(), '[');
  EXPECT_NE(raw.find("SourcePCB=C:\\\xD0\xBF\xD0\xBB\xD0\xB0\xD1\x82\xD0\xB0\\\xC3\x84"
                     "\xF0\x9F\x98\x80.PcbDoc Temp="),
            std::string::npos)
      << raw;
}

TEST_F(LogTest, EntriesAreAppended) {
  ASSERT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  const std::string first = Raw();
  ASSERT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  const std::string second = Raw();
  EXPECT_TRUE(second.starts_with(first));
  EXPECT_EQ(Lines(second).size(), 4U);
}

TEST_F(LogTest, StartsOverOnlyAboveOneMebibyte) {
  // The length of a line depends on the time of day, so it is measured before and after; if it
  // changed, the run is repeated.
  for (int attempt = 0; attempt < 5; ++attempt) {
    ASSERT_TRUE(DeleteFileW(folders_.log.c_str()) || GetLastError() != ERROR_SHARING_VIOLATION);
    LogTwoLines();
    const std::size_t two_lines = Raw().size();

    const std::string filler(kLogLimit - two_lines, 'x');
    PutFile(folders_.log, filler);
    LogTwoLines();
    const std::string full = Raw();

    PutFile(folders_.log, filler + "x");
    LogTwoLines();
    const std::string restarted = Raw();

    ASSERT_TRUE(DeleteFileW(folders_.log.c_str()));
    LogTwoLines();
    if (Raw().size() != two_lines) {
      continue;
    }
    EXPECT_EQ(full.size(), kLogLimit);
    EXPECT_TRUE(full.starts_with(filler));
    const std::vector<std::string> lines = Lines(restarted);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("Stage: Prepare rejected"), std::string::npos) << lines[0];
    return;
  }
  FAIL() << "the length of a line changed five times in a row";
}

TEST_F(LogTest, NoOlderCopyIsKept) {
  PutFile(folders_.log, std::string(kLogLimit, 'x'));
  LogTwoLines();
  EXPECT_EQ(NamesIn(folders_.local + L"\\Kestrune\\Logs"),
            std::vector<std::wstring>{L"bridge.log"});
}

TEST_F(LogTest, LongLineIsTruncatedTo8192Units) {
  LogTwoLines(L"C:\\" + std::wstring(9000, L'a'));
  const std::vector<std::string> lines = Lines(Raw());
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0].size(), 8192U);
  EXPECT_EQ(lines[0].back(), 'a');
}

TEST_F(LogTest, SplitSurrogatePairGivesValidUtf8) {
  std::wstring pairs;
  for (int i = 0; i < 4500; ++i) {
    pairs += L"\xD83D\xDE00";
  }
  // One of the two runs cuts a pair in its middle, regardless of the length of the time.
  LogTwoLines(L"C:\\" + pairs);
  LogTwoLines(L"C:\\a" + pairs);
  std::vector<std::string> long_lines;
  for (const std::string& line : Lines(Raw())) {
    if (line.size() > 8192) {
      long_lines.push_back(line);
    }
  }
  ASSERT_EQ(long_lines.size(), 2U);
  int replaced = 0;
  for (const std::string& line : long_lines) {
    EXPECT_EQ(WideFromUtf8(line).size(), 8192U);
    EXPECT_EQ(Utf8FromWide(WideFromUtf8(line)), line);
    replaced += line.ends_with("\xEF\xBF\xBD") ? 1 : 0;
  }
  EXPECT_EQ(replaced, 1);
}

TEST_F(LogTest, UnwritableLogChangesNoExitCode) {
  PutFile(folders_.log, "old");

  ASSERT_TRUE(SetFileAttributesW(folders_.log.c_str(), FILE_ATTRIBUTE_READONLY));
  // Wine as root writes to read-only files.
  const bool read_only =
      !FileHandle(CreateFileW(folders_.log.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  EXPECT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  EXPECT_EQ(Raw() == "old", read_only);
  ASSERT_TRUE(SetFileAttributesW(folders_.log.c_str(), FILE_ATTRIBUTE_NORMAL));
  PutFile(folders_.log, "old");

  {
    const FileHandle alone = HoldOpen(folders_.log, GENERIC_READ, 0);
    EXPECT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  }
  EXPECT_EQ(Raw(), "old");

  ASSERT_TRUE(DeleteFileW(folders_.log.c_str()));
  ASSERT_TRUE(CreateDirectoryW(folders_.log.c_str(), nullptr));
  EXPECT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
}

TEST_F(LogTest, FileAsLogFolderChangesNoCode) {
  PutFile(folders_.local + L"\\Kestrune\\Logs", "a file");
  EXPECT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  EXPECT_EQ(FileBytes(folders_.local + L"\\Kestrune\\Logs"), "a file");
}

TEST_F(LogTest, SimultaneousWriterDropsTheEntry) {
  PutFile(folders_.log, "");
  {
    const FileHandle writer =
        HoldOpen(folders_.log, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  }
  EXPECT_EQ(Raw(), "");
  const FileHandle reader =
      HoldOpen(folders_.log, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  EXPECT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  EXPECT_EQ(Lines(Raw()).size(), 2U);
}

TEST_F(LogTest, EightProcessesWriteCompleteLines) {
  std::vector<ProgramRun> writers;
  for (int i = 0; i < 8; ++i) {
    writers.emplace_back(TestProgramPath(L"log_writer"), std::to_wstring(i) + L" 1000");
    ASSERT_TRUE(writers.back().Started());
  }
  for (ProgramRun& writer : writers) {
    EXPECT_EQ(writer.WaitForExit(120'000), 0);
  }
  const std::string raw = Raw();
  const std::vector<std::string> lines = Lines(raw);
  std::size_t bytes = 0;
  for (const std::string& line : lines) {
    bytes += line.size() + 2;
    const std::size_t stage = line.find("] Stage: Writer ");
    ASSERT_NE(stage, std::string::npos) << line;
    ASSERT_EQ(line.front(), '[') << line;
    ASSERT_TRUE(line.ends_with(" End=yes")) << line;
    ASSERT_EQ(line.find('[', 1), std::string::npos) << line;
  }
  EXPECT_EQ(bytes, raw.size());
  // Simultaneous writers may drop entries, but most are written.
  EXPECT_GT(lines.size(), 500U);
  EXPECT_LE(lines.size(), 8000U);
}

TEST_F(LogTest, ProfileListSaysWhereLogLies) {
  const MovedProfile moved(Scratch(L"plain"));
  EXPECT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  EXPECT_TRUE(Exists(Scratch(L"plain\\AppData\\Local\\Kestrune\\Logs\\bridge.log")));
  EXPECT_FALSE(Exists(folders_.log));
}

TEST_F(LogTest, VariablesInTheProfileListAreExpanded) {
  ASSERT_TRUE(SetEnvironmentVariableW(L"KESTRUNE_TEST_PLACE", Scratch(L"expanded").c_str()));
  const MovedProfile moved(L"%KESTRUNE_TEST_PLACE%\\x", REG_EXPAND_SZ);
  EXPECT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  EXPECT_TRUE(Exists(Scratch(L"expanded\\x\\AppData\\Local\\Kestrune\\Logs\\bridge.log")));
  SetEnvironmentVariableW(L"KESTRUNE_TEST_PLACE", nullptr);
}

TEST_F(LogTest, WithoutProfileListEntryTheShellDecides) {
  const ProfileListEntry profile;
  profile.Remove();
  EXPECT_TRUE(EndsSilentlyWith(9, LogTwoLines()));
  EXPECT_TRUE(Exists(folders_.log));
}

}  // namespace
}  // namespace kestrune
