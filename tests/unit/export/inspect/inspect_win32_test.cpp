#include "export/inspect/inspect_win32.h"

#include <gmock/gmock.h>

#include "common/files/file_win32.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/export/zip_builder.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

constexpr char kMatrix[] =
    "STEP {\nNAME=PCB\n}\nLAYER {\nTYPE=SIGNAL\nNAME=TOP\n}\nLAYER {\nTYPE=DRILL\nNAME=D\n}\n";
constexpr char kList[] =
    "VERSION=1\r\nSTEPS=1\r\nLAYER=SIGNAL|TOP|||6|some\r\nLAYER=DRILL|D|||absent|none\r\nEND\r\n";

std::string Failed(const std::string& reason) {
  return "VERSION=1\r\nERROR=" + reason + "\r\nEND\r\n";
}

class InspectTest : public ExportTest {
 protected:
  void PutArchive() {
    PutFile(command_.archive, BuildZip({{"odb/matrix/matrix", kMatrix, 8},
                                        {"odb/steps/pcb/layers/top/features", "P 1 1\n"}}));
  }

  std::string EntryOf(const std::wstring& stage, const std::wstring& detail) const {
    return Entry(stage, L"Path=" + command_.archive + L" " + detail);
  }

  void ExpectRefusal(int code, const std::wstring& reason, const std::wstring& rest) {
    EXPECT_EQ(InspectForScript(calls_, command_), code);
    EXPECT_EQ(FileBytes(command_.result_path), Failed(Utf8FromWide(reason)));
    EXPECT_EQ(Log().back(), EntryOf(L"Archive not inspected", L"Reason=" + reason + rest));
  }

  InspectCommand command_{Scratch(L"B\u00F6ard.zip"), Scratch(L"list.txt")};
  SystemCalls calls_;
};

TEST_F(InspectTest, TheListIsWrittenAndCounted) {
  PutArchive();
  PutFile(command_.result_path, "a list of an earlier export");
  EXPECT_EQ(InspectForScript(calls_, command_), 0);
  EXPECT_EQ(FileBytes(command_.result_path), kList);
  EXPECT_FALSE(Exists(command_.result_path + L".tmp"));
  EXPECT_THAT(Log(),
              ElementsAre(EntryOf(L"Archive inspected", L"Steps=1 Layers=2 SIGNAL=1 DRILL=1")));
}

TEST_F(InspectTest, AMissingArchiveHasItsCode) {
  ExpectRefusal(2, L"The archive does not exist.", L" GetLastError=2");
}

TEST_F(InspectTest, ArchiveThatCannotBeOpenedIsUnreadable) {
  PutArchive();
  const FileHandle held = HoldOpen(command_.archive, GENERIC_READ, 0);
  ExpectRefusal(3, L"The archive could not be opened.", L" GetLastError=32");
}

TEST_F(InspectTest, ACutArchiveIsUnreadable) {
  PutArchive();
  const std::string whole = FileBytes(command_.archive);
  for (const std::size_t size : {std::size_t{0}, whole.size() / 2}) {
    PutFile(command_.archive, whole.substr(0, size));
    ExpectRefusal(3, L"The file is not a ZIP archive or is truncated.", L"");
  }
}

TEST_F(InspectTest, AFolderIsNoArchive) {
  command_.archive = Scratch(L"folder");
  ASSERT_TRUE(CreateDirectoryW(command_.archive.c_str(), nullptr));
  EXPECT_EQ(InspectForScript(calls_, command_), 3);
  EXPECT_THAT(FileBytes(command_.result_path), StartsWith("VERSION=1\r\nERROR="));
}

TEST_F(InspectTest, UnwritableResultHasItsCode) {
  PutArchive();
  command_.result_path = Scratch(L"no folder\\list.txt");
  EXPECT_EQ(InspectForScript(calls_, command_), 4);
  EXPECT_THAT(Log(),
              ElementsAre(EntryOf(L"Archive inspected", L"Steps=1 Layers=2 SIGNAL=1 DRILL=1"),
                          Entry(L"Inspection result failed",
                                L"Path=" + command_.result_path + L" GetLastError=3")));
}

TEST_F(InspectTest, AnUnexpectedFailureIsReported) {
  EXPECT_EQ(ReportInspectFailure(RealCalls(), command_), 3);
  EXPECT_EQ(FileBytes(command_.result_path), Failed("The archive could not be inspected."));
}

TEST_F(InspectTest, ADirectoryBeyond4GiBIsRead) {
  constexpr std::uint64_t kBefore = std::uint64_t{5} << 30;
  ZipPart matrix{"odb/matrix/matrix", kMatrix, 8};
  matrix.offset = 0xFFFFFFFF;
  matrix.extra = LittleEndianBytes(1, 2) + LittleEndianBytes(8, 2) + LittleEndianBytes(kBefore, 8);
  ZipEnd end;
  end.large = true;
  end.before = kBefore;
  PutSparseFile(command_.archive, kBefore);
  {
    const FileHandle file = HoldOpen(command_.archive, GENERIC_WRITE, 0);
    LARGE_INTEGER place;
    place.QuadPart = static_cast<LONGLONG>(kBefore);
    ASSERT_TRUE(SetFilePointerEx(file.Get(), place, nullptr, FILE_BEGIN));
    ASSERT_TRUE(TryWriteAll(file.Get(), BuildZip({matrix}, end)));
  }
  EXPECT_EQ(InspectForScript(calls_, command_), 0);
  EXPECT_EQ(FileBytes(command_.result_path),
            "VERSION=1\r\nSTEPS=1\r\nLAYER=SIGNAL|TOP|||absent|none\r\n"
            "LAYER=DRILL|D|||absent|none\r\nEND\r\n");
}

}  // namespace
}  // namespace kestrune
