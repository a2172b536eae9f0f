#include "common/log/log_win32.h"

#include <gmock/gmock.h>

#include <optional>
#include <thread>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/scripted_calls_win32.h"

namespace kestrune {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kLargestLog = 0x100000;

class LogTest : public ExportTest {
 protected:
  /// Writes a log of this size in bytes, all in one line.
  void PutLog(std::size_t size) { PutFile(folders_.log, std::string(size - 2, 'x') + "\r\n"); }
};

TEST_F(LogTest, PathIsInTheUsersLocalData) {
  EXPECT_EQ(LogFilePath(RealCalls()), folders_.log);
}

TEST_F(LogTest, EntriesFollowOneAnotherWithoutMark) {
  WriteLogEntry(RealCalls(), L"First", L"Path=C:\\\u00C4 Size=1");
  WriteLogEntry(RealCalls(), L"Second");
  EXPECT_THAT(Log(), ElementsAre("Stage: First | Path=C:\\\xC3\x84 Size=1", "Stage: Second"));
  EXPECT_TRUE(FileBytes(folders_.log).starts_with("[20"));
}

TEST_F(LogTest, TimeIsLocalWithoutLeadingZeros) {
  SYSTEMTIME before{};
  SYSTEMTIME after{};
  std::string line;
  do {
    GetLocalTime(&before);
    PutFile(folders_.log, "");
    WriteLogEntry(RealCalls(), L"x");
    line = FileBytes(folders_.log);
    GetLocalTime(&after);
  } while (before.wSecond != after.wSecond);
  const auto number = [](WORD value) { return std::to_string(value); };
  EXPECT_EQ(line, "[" + number(after.wYear) + "-" + number(after.wMonth) + "-" +
                      number(after.wDay) + " " + number(after.wHour) + ":" + number(after.wMinute) +
                      ":" + number(after.wSecond) + "] Stage: x\r\n");
}

TEST_F(LogTest, LogOfExactlyOneMebibyteIsKept) {
  WriteLogEntry(RealCalls(), L"probe");
  const std::size_t line = FileBytes(folders_.log).size();
  // The length of the time may change between two entries; repeat until it did not.
  for (;;) {
    PutLog(kLargestLog - line);
    WriteLogEntry(RealCalls(), L"probe");
    const std::size_t size = FileBytes(folders_.log).size();
    if (size == kLargestLog) {
      break;
    }
    ASSERT_LE(size > kLargestLog ? size - kLargestLog : kLargestLog - size, 5U);
  }
  EXPECT_EQ(Log().size(), 2U);
}

TEST_F(LogTest, LogAboveOneMebibyteStartsOver) {
  WriteLogEntry(RealCalls(), L"probe");
  const std::size_t line = FileBytes(folders_.log).size();
  PutLog(kLargestLog - line + 6);
  WriteLogEntry(RealCalls(), L"probe");
  EXPECT_THAT(Log(), ElementsAre("Stage: probe"));
  EXPECT_THAT(NamesIn(std::wstring(ParentPath(folders_.log))), ElementsAre(L"bridge.log"));
}

TEST_F(LogTest, LongDetailIsTruncated) {
  WriteLogEntry(RealCalls(), L"Long", std::wstring(9000, L'\u00E4'));
  const std::string bytes = FileBytes(folders_.log);
  EXPECT_EQ(WideFromUtf8(bytes).size(), 8192U + 2U);
  EXPECT_TRUE(bytes.ends_with("\xC3\xA4\r\n"));
}

TEST_F(LogTest, NoRefusedCallChangesTheLastError) {
  std::size_t refused = 0;
  for (bool was_refused = true; was_refused; ++refused) {
    ScriptedCalls calls;
    std::size_t made = 0;
    was_refused = false;
    calls.before = [&](const SystemCall&) -> std::optional<DWORD> {
      if (made++ != refused) {
        return std::nullopt;
      }
      was_refused = true;
      return ERROR_ACCESS_DENIED;
    };
    SetLastError(1234);
    WriteLogEntry(calls, L"x");
    EXPECT_EQ(GetLastError(), 1234U) << refused;
  }
  EXPECT_GT(refused, 11U);
}

TEST_F(LogTest, EntryOfSecondWriterIsDropped) {
  WriteLogEntry(RealCalls(), L"kept");
  {
    const FileHandle writer =
        HoldOpen(folders_.log, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    SetLastError(1234);
    WriteLogEntry(RealCalls(), L"dropped");
    EXPECT_EQ(GetLastError(), 1234U);
  }
  WriteLogEntry(RealCalls(), L"kept too");
  EXPECT_THAT(Log(), ElementsAre("Stage: kept", "Stage: kept too"));
}

TEST_F(LogTest, EntryIsWrittenBesideAReader) {
  WriteLogEntry(RealCalls(), L"a");
  const FileHandle reader =
      HoldOpen(folders_.log, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  WriteLogEntry(RealCalls(), L"b");
  EXPECT_THAT(Log(), ElementsAre("Stage: a", "Stage: b"));
}

TEST_F(LogTest, EightWritersWriteCompleteLines) {
  std::vector<std::thread> writers;
  for (int i = 0; i < 8; ++i) {
    writers.emplace_back([] {
      for (int entry = 0; entry < 200; ++entry) {
        SystemCalls calls;
        WriteLogEntry(calls, L"Writer", std::wstring(400, L'x'));
      }
    });
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  const std::vector<std::string> entries = Log();
  EXPECT_THAT(entries, Each("Stage: Writer | " + std::string(400, 'x')));
  // Simultaneous writers may drop entries, but most are written.
  EXPECT_GT(entries.size(), 100U);
}

TEST_F(LogTest, FileAsFolderDropsTheEntry) {
  PutFile(std::wstring(ParentPath(folders_.log)), "a file where the folder should be");
  WriteLogEntry(RealCalls(), L"dropped");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(LogTest, ReadOnlyLogDropsTheEntry) {
  WriteLogEntry(RealCalls(), L"kept");
  ASSERT_TRUE(SetFileAttributesW(folders_.log.c_str(), FILE_ATTRIBUTE_READONLY));
  if (FileHandle(CreateFileW(folders_.log.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                             OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr))) {
    GTEST_SKIP() << "this user may write read-only files (root under Wine)";
  }
  WriteLogEntry(RealCalls(), L"dropped");
  EXPECT_THAT(Log(), ElementsAre("Stage: kept"));
  ClearReadOnly(RealCalls(), folders_.log);
}

}  // namespace
}  // namespace kestrune
