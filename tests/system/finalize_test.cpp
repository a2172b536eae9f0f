// `--finalize` and `--finalize-auto` through the executable: archive, clipboard, box, log and exit
// codes.
#include <gmock/gmock.h>

#include "tests/support/export/finalize_fixture_win32.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;

using FinalizeProgramTest = FinalizeFixture;

TEST_F(FinalizeProgramTest, ArchiveIsDeliveredAndOnTheClipboard) {
  EXPECT_TRUE(EndsWithBox(0, Delivered(default_destination_), MB_ICONINFORMATION, Finalize()));
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
  ExpectOnClipboard(default_destination_);
  EXPECT_THAT(Log(), ElementsAre(BeginEntry(default_destination_),
                                 Entry(L"Using default export directory", folders_.default_export),
                                 CopiedEntry(default_destination_)));
}

TEST_F(FinalizeProgramTest, AutoFindsArchiveInTemporaryRoot) {
  PutFile(folders_.native_zip, "found");
  EXPECT_TRUE(EndsWithBox(0, Delivered(default_destination_), MB_ICONINFORMATION,
                          RunKestrune(L"--finalize-auto " + Quoted(board_) + L" 12x")));
  EXPECT_EQ(FileBytes(default_destination_), "found");
}

TEST_F(FinalizeProgramTest, OpenClipboardEndsWithThree) {
  const HeldClipboard held(Scratch(L"held"));
  EXPECT_TRUE(EndsWithBox(3,
                          L"ODB++ export successful.\n\nZIP:\n" + default_destination_ +
                              L"\n\nSize: 0 KB\n\nWarning: Cannot open the Windows Clipboard.",
                          MB_ICONINFORMATION, Finalize()));
}

TEST_F(FinalizeProgramTest, FailureEndsWithFourAndErrorBox) {
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  EXPECT_TRUE(EndsWithBox(4, SeeLog(), MB_ICONERROR, Finalize()));
}

}  // namespace
}  // namespace kestrune
