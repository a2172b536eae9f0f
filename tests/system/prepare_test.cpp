// `--prepare` through the executable: the temporary project, the log, the status file and the exit
// codes.
#include <gmock/gmock.h>

#include <string>

#include "common/text/text.h"
#include "tests/support/export/prepare_fixture_win32.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;

class PrepareProgramTest : public PrepareFixture {
 protected:
  void ExpectError(int code) const {
    EXPECT_TRUE(EndsSilentlyWith(code, RunPrepare(status_)));
    EXPECT_EQ(FileBytes(status_), "ERROR\r\n") << code;
    EXPECT_TRUE(DeleteFileW(status_.c_str()));
    EXPECT_FALSE(Exists(InTemporary(L"ready.txt")));
  }

  const std::wstring status_ = Scratch(L"status.txt");
};

TEST_F(PrepareProgramTest, ProjectStatusAndLogAreWritten) {
  Depend({PutScratch(L"Panel.PcbDoc", "panel")});
  EXPECT_TRUE(EndsSilentlyWith(0, RunPrepare(status_)));
  EXPECT_EQ(FileBytes(status_), "OK\r\n");
  EXPECT_THAT(NamesIn(folders_.temporary),
              ElementsAre(L"Bridge.OutJob", L"Bridge.PcbDoc", L"Bridge.PrjPcb", L"Panel.PcbDoc",
                          L"ready.txt"));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
  EXPECT_EQ(FileBytes(InTemporary(L"ready.txt")), Utf8FromWide(board_));
  EXPECT_EQ(Log().front(), BeginEntry(1));
}

TEST_F(PrepareProgramTest, StatusFileIsOptional) {
  EXPECT_TRUE(EndsSilentlyWith(0, RunPrepare()));
  EXPECT_TRUE(Exists(InTemporary(L"ready.txt")));
}

TEST_F(PrepareProgramTest, EachFailureHasItsCode) {
  Depend({Scratch(L"none.PcbDoc")});
  ExpectError(9);
  Depend({PutScratch(L"Bridge.PcbDoc", "twin")});
  ExpectError(7);
  Depend({});
  ASSERT_TRUE(DeleteFileW(manifest_.c_str()));
  ExpectError(8);
  ASSERT_TRUE(DeleteFileW(output_job_.c_str()));
  ExpectError(4);
  PutFile(status_, "of another run");
  EXPECT_TRUE(EndsSilentlyWith(10, RunPrepare(status_)));
}

}  // namespace
}  // namespace kestrune
