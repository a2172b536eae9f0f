// Preparation and delivery with an unusual or unreachable user profile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/finalize_fixture_win32.h"
#include "tests/support/export/output_job_reader.h"
#include "tests/support/machine/moved_profile_win32.h"

namespace kestrune {
namespace {

using ::testing::HasSubstr;

class ProfilePathTest : public FinalizeFixture {
 protected:
  void SetUp() override {
    FinalizeFixture::SetUp();
    board_ = Scratch(L"Main.PcbDoc");
    PutFile(board_, "board");
    PutFile(JoinPath(folders_.runtime, L"Bridge.OutJob"), SmallOutputJob());
    PutFile(Scratch(L"dependencies.txt"), "");
    PutFile(Scratch(L"layers.txt"), "PlotKey=PlotTopLayerPlot\r\n");
  }

  /// Runs `--prepare` and returns its exit code.
  int Prepare() const {
    return RunKestrune(L"--prepare " + Quoted(board_) + L" " +
                       Quoted(Scratch(L"dependencies.txt")) + L" " +
                       Quoted(Scratch(L"layers.txt")) + L" " + Quoted(Scratch(L"status.txt")))
        .code;
  }

  /// Runs `--finalize-auto`, as the script does.
  RunOutcome Deliver() const { return RunKestrune(L"--finalize-auto " + Quoted(board_)); }
};

TEST_F(ProfilePathTest, UserNameMayContainAnyCharacter) {
  const std::wstring user =
      Scratch(L"Zo\x00EB O'Brien & \x0141ukasz \x03A9\x03BC\x03AD\x03B3\x03B1 100%");
  const std::wstring local = user + L"\\AppData\\Local\\Kestrune";
  PutFile(local + L"\\Runtime\\Bridge.OutJob", SmallOutputJob());
  const MovedProfile moved(user);
  board_ = JoinPath(user, L"It's a board, 50% \x017C.PcbDoc");
  PutFile(board_, "board");
  ASSERT_EQ(Prepare(), 0);
  PutFile(folders_.native_zip, "PK archive");
  EXPECT_EQ(Deliver().code, 0);
  const std::wstring delivered = local + L"\\ODBpp\\It's a board, 50% \x017C.zip";
  EXPECT_EQ(FileBytes(delivered), "PK archive");
  ExpectOnClipboard(delivered);
  EXPECT_THAT(FileBytes(local + L"\\Logs\\bridge.log"),
              HasSubstr("Destination=" + Utf8FromWide(delivered)));
  EXPECT_FALSE(Exists(folders_.log));
}

TEST_F(ProfilePathTest, UnreachableShareFailsButKeepsArchive) {
  const MovedProfile moved(L"\\\\server.invalid\\profiles\\user");
  // The deployed output job is on the share as well.
  EXPECT_EQ(Prepare(), 4);
  EXPECT_EQ(FileBytes(Scratch(L"status.txt")), "ERROR\r\n");
  PutFile(folders_.native_zip, "PK archive");
  EXPECT_TRUE(EndsWithBox(4,
                          L"ODB++ export finalization failed.\nStage: Copying native output\nSee "
                          L"log: \\\\server.invalid\\profiles\\user\\AppData\\Local\\Kestrune\\"
                          L"Logs\\bridge.log",
                          MB_ICONERROR, Deliver()));
  EXPECT_EQ(FileBytes(folders_.native_zip), "PK archive");
}

}  // namespace
}  // namespace kestrune
