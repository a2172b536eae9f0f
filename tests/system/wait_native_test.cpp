// `--wait-native` through the executable, in real time.
#include <gmock/gmock.h>

#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {
namespace {

class WaitNativeProgramTest : public ExportTest {
 protected:
  RunOutcome Wait() const {
    return RunKestrune(
        L"--wait-native " + Quoted(zip_) + L" none " + Quoted(Scratch(L"result.txt")), 200'000);
  }

  const std::wstring zip_ = Scratch(L"Bridge.zip");
};

TEST_F(WaitNativeProgramTest, CompleteArchiveTakesThreeHalfSeconds) {
  PutFile(zip_, "0123456789");
  const RunOutcome outcome = Wait();
  EXPECT_TRUE(EndsSilentlyWith(0, outcome));
  EXPECT_GE(outcome.milliseconds, 1400U);
  EXPECT_EQ(FileBytes(Scratch(L"result.txt")), "OK\r\n10");
  EXPECT_THAT(Log(),
              testing::ElementsAre(
                  Entry(L"Waiting for native output", L"Expected=" + zip_ + L" Report=none"),
                  Entry(L"Native output stable", L"Path=" + zip_ + L" Size=10 ReportExists=no")));
}

TEST_F(WaitNativeProgramTest, TwoMinutesWithoutArchiveEndWithFive) {
  KESTRUNE_NEEDS_TIME();
  const RunOutcome outcome = Wait();
  EXPECT_TRUE(EndsSilentlyWith(5, outcome));
  EXPECT_GE(outcome.milliseconds, 119'000U);
  EXPECT_EQ(FileBytes(Scratch(L"result.txt")), "ERROR\r\n");
}

}  // namespace
}  // namespace kestrune
