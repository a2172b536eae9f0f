// `--inspect` through the executable: exact command lines, codes, the result file, the log.
#include <gmock/gmock.h>

#include "common/files/file_win32.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/samples.h"
#include "tests/support/export/zip_builder.h"

namespace kestrune {
namespace {

using testing::ElementsAre;

class InspectProgramTest : public ExportTest {
 protected:
  void SetUp() override {
    ExportTest::SetUp();
    archive_ = Scratch(L"my board.zip");
    result_ = Scratch(L"my list.txt");
  }

  RunOutcome Inspect(const std::wstring& archive, const std::wstring& result,
                     const std::wstring& more = L"") const {
    return Finish(
        ProgramRun(KestrunePath(), L"--inspect " + Quoted(archive) + L" " + Quoted(result) + more));
  }

  std::wstring archive_;
  std::wstring result_;
};

TEST_F(InspectProgramTest, AnArchiveIsListed) {
  PutFile(archive_,
          BuildZip({{"odb/matrix/matrix", "LAYER {\nTYPE=DRILL\nNAME=D\nSTART_NAME=T\n}\n"},
                    {"odb/steps/pcb/layers/d/features", "P 1 1\n"}}));
  EXPECT_TRUE(EndsSilentlyWith(0, Inspect(archive_, result_)));
  EXPECT_EQ(FileBytes(result_), "VERSION=1\r\nSTEPS=0\r\nLAYER=DRILL|D|T||6|some\r\nEND\r\n");
  EXPECT_THAT(Log(), ElementsAre("Stage: Archive inspected | Path=" + Utf8FromWide(archive_) +
                                 " Steps=0 Layers=1 DRILL=1"));
}

TEST_F(InspectProgramTest, MissingAndBadArchivesEndSilently) {
  EXPECT_TRUE(EndsSilentlyWith(2, Inspect(archive_, result_)));
  EXPECT_EQ(FileBytes(result_), "VERSION=1\r\nERROR=The archive is not there.\r\nEND\r\n");
  PutFile(archive_, "no archive");
  EXPECT_TRUE(EndsSilentlyWith(3, Inspect(archive_, result_)));
  EXPECT_TRUE(EndsSilentlyWith(4, Inspect(archive_, Scratch(L"nowhere\\list.txt"))));
}

TEST_F(InspectProgramTest, OtherNumbersOfArgumentsAreNoMode) {
  const std::wstring text = L"This helper is started by the Kestrune script.";
  EXPECT_TRUE(EndsWithBox(1, text, MB_ICONINFORMATION, Inspect(archive_, result_, L" x")));
  EXPECT_TRUE(EndsWithBox(1, text, MB_ICONINFORMATION,
                          Finish(ProgramRun(KestrunePath(), L"--inspect " + Quoted(archive_)))));
  EXPECT_FALSE(Exists(result_));
}

TEST_F(InspectProgramTest, RealArchivesAreListed) {
  const std::vector<kestrune_tests::Sample> samples = kestrune_tests::ReadSamples("odb", ".zip");
  if (samples.empty()) {
    GTEST_SKIP() << "no samples";
  }
  for (const kestrune_tests::Sample& sample : samples) {
    PutFile(archive_, sample.bytes);
    EXPECT_TRUE(EndsSilentlyWith(0, Inspect(archive_, result_))) << sample.name;
    const std::string list = FileBytes(result_);
    EXPECT_TRUE(
        list.starts_with("VERSION=1\r\nSTEPS=1\r\nLAYER=COMPONENT|COMP_+_TOP|||0|none\r\n"));
    EXPECT_TRUE(list.ends_with("\r\nEND\r\n"));
  }
}

}  // namespace
}  // namespace kestrune
