// The application that receives an export: started, already running, or missing.
#include <gtest/gtest.h>

#include <string>

#include "common/text/text.h"
#include "tests/support/export/finalize_fixture_win32.h"
#include "tests/support/export/mailslot_win32.h"
#include "tests/support/export/recorded_application_win32.h"

namespace kestrune {
namespace {

class AfterExportProgramTest : public FinalizeFixture {
 protected:
  /// Writes settings with an enabled application and delivers with a spacing.
  RunOutcome DeliverTo(const std::wstring& executable, const std::wstring& more = {}) const {
    PutFile(folders_.native_zip, native_bytes_);
    // Windows removes one pair of quotes around a whole value.
    Settings(L"[Target]\nEnabled=1\nExecutablePath=" + executable +
             L"\nArguments=\"\"%ODBPP%\"\"\n" + more);
    return RunKestrune(L"--finalize-auto " + Quoted(board_) + L" 12345");
  }

  std::wstring Line() const {
    return std::wstring(kIdentity) + L" " + Quoted(default_destination_) + L" -space:1.2345mil";
  }
};

TEST_F(AfterExportProgramTest, StartedApplicationIsNotWaitedFor) {
  const RecordedApplication application(Scratch(L""));
  RecordedApplication::Set(L"LINGER", L"20000");
  const RunOutcome outcome = DeliverTo(application.path);
  EXPECT_TRUE(EndsSilentlyWith(0, outcome));
  EXPECT_LT(outcome.milliseconds, 19'000U);
  EXPECT_TRUE(application.NextRecord().ends_with(L"\nCommandLine=" + Quoted(application.path) +
                                                 L" " + Line()));
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
  ExpectClipboardUntouched();
  EXPECT_EQ(Log().back(), CopiedEntry(default_destination_));
}

TEST_F(AfterExportProgramTest, RunningApplicationGetsTheLine) {
  const OwnMailslot slot;
  EXPECT_TRUE(EndsSilentlyWith(
      0, DeliverTo(TestProgramPath(L"child_recorder"), L"MailslotName=" + slot.Name() + L"\n")));
  EXPECT_EQ(slot.Next(), Utf8FromWide(Line()));
  ExpectClipboardUntouched();
}

TEST_F(AfterExportProgramTest, ReasonForNoStartFollowsDelivery) {
  EXPECT_TRUE(
      EndsWithBox(0,
                  Delivered(default_destination_) +
                      L"\n\nThe configured application was not started.\n"
                      L"The configured after-export executable does not exist: C:\\none.exe",
                  MB_ICONINFORMATION, DeliverTo(L"C:\\none.exe")));
  ExpectOnClipboard(default_destination_);
}

}  // namespace
}  // namespace kestrune
