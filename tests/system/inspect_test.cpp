// `--inspect` through the executable: exact command lines, codes, the result file, the log.
#include <gmock/gmock.h>

#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/export/zip_builder.h"

namespace kestrune {
namespace {

using testing::ElementsAre;

class InspectProgramTest : public ExportTest {
 protected:
  RunOutcome Inspect(const std::wstring& result) const {
    return RunKestrune(L"--inspect " + Quoted(archive_) + L" " + Quoted(result));
  }

  const std::wstring archive_ = Scratch(L"my board.zip");
  const std::wstring result_ = Scratch(L"my list.txt");
};

TEST_F(InspectProgramTest, AnArchiveIsListed) {
  PutFile(archive_,
          BuildZip({{"odb/matrix/matrix", "LAYER {\nTYPE=DRILL\nNAME=D\nSTART_NAME=T\n}\n"},
                    {"odb/steps/pcb/layers/d/features", "P 1 1\n"}}));
  EXPECT_TRUE(EndsSilentlyWith(0, Inspect(result_)));
  EXPECT_EQ(FileBytes(result_), "VERSION=1\r\nSTEPS=0\r\nLAYER=DRILL|D|T||6|some\r\nEND\r\n");
  EXPECT_THAT(Log(), ElementsAre(Entry(L"Archive inspected",
                                       L"Path=" + archive_ + L" Steps=0 Layers=1 DRILL=1")));
}

TEST_F(InspectProgramTest, MissingAndBadArchivesEndSilently) {
  EXPECT_TRUE(EndsSilentlyWith(2, Inspect(result_)));
  EXPECT_EQ(FileBytes(result_), "VERSION=1\r\nERROR=The archive does not exist.\r\nEND\r\n");
  PutFile(archive_, "no archive");
  EXPECT_TRUE(EndsSilentlyWith(3, Inspect(result_)));
  EXPECT_TRUE(EndsSilentlyWith(4, Inspect(Scratch(L"nowhere\\list.txt"))));
}

}  // namespace
}  // namespace kestrune
