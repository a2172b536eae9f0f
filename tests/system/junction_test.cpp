// Junctions, which every user of a real Windows can create; Wine cannot.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "tests/support/files_win32.h"
#include "tests/support/export/prepare_fixture_win32.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;

class JunctionTest : public PrepareFixture {
 protected:
  void SetUp() override {
    PrepareFixture::SetUp();
    if (!IsSkipped() && RunsUnderWine()) {
      GTEST_SKIP() << "Wine makes no junctions";
    }
  }

  /// Returns a folder with one file that must survive everything.
  std::wstring Victim() const {
    std::wstring folder = Scratch(L"victim");
    PutFile(JoinPath(folder, L"precious.txt"), "precious");
    return folder;
  }

  void ExpectUntouched(const std::wstring& victim) const {
    EXPECT_THAT(NamesIn(victim), ElementsAre(L"precious.txt"));
    EXPECT_EQ(FileBytes(JoinPath(victim, L"precious.txt")), "precious");
  }
};

/// Creates the junction `link` to the folder `target`.
void MakeJunction(const std::wstring& link, const std::wstring& target) {
  wchar_t system[MAX_PATH] = {};
  ASSERT_NE(GetSystemDirectoryW(system, MAX_PATH), 0U);
  ProgramRun run(JoinPath(system, L"cmd.exe"),
                 L"/d /s /c \"mklink /J " + Quoted(link) + L" " + Quoted(target) + L"\"");
  ASSERT_TRUE(run.Started());
  ASSERT_EQ(run.WaitForExit(30'000), 0);
  const DWORD attributes = GetFileAttributesW(link.c_str());
  ASSERT_NE(attributes, INVALID_FILE_ATTRIBUTES);
  ASSERT_NE(attributes & FILE_ATTRIBUTE_REPARSE_POINT, 0U);
}

TEST_F(JunctionTest, OneInTemporaryRootLeavesItsTarget) {
  const std::wstring victim = Victim();
  PutFile(InTemporary(L"old.txt"), "old");
  ASSERT_NO_FATAL_FAILURE(MakeJunction(InTemporary(L"link"), victim));
  EXPECT_TRUE(EndsSilentlyWith(0, RunPrepare()));
  EXPECT_FALSE(Exists(InTemporary(L"link")));
  ExpectUntouched(victim);
}

TEST_F(JunctionTest, OneAsTemporaryRootLeavesItsTarget) {
  const std::wstring victim = Victim();
  const std::wstring parent(ParentPath(folders_.temporary));
  ASSERT_TRUE(TryCreateDirectories(parent));
  ASSERT_NO_FATAL_FAILURE(MakeJunction(folders_.temporary, victim));
  RunPrepare();
  ExpectUntouched(victim);
  // If it is still a link, only the link itself is removed.
  if ((GetFileAttributesW(folders_.temporary.c_str()) & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    RemoveDirectoryW(folders_.temporary.c_str());
  }
}

TEST_F(JunctionTest, SourceReachedThroughOneIsStillInside) {
  ASSERT_TRUE(EndsSilentlyWith(0, RunPrepare()));
  const std::wstring link = Scratch(L"link");
  ASSERT_NO_FATAL_FAILURE(MakeJunction(link, folders_.temporary));
  board_ = JoinPath(link, L"Bridge.PcbDoc");
  EXPECT_TRUE(EndsSilentlyWith(9, RunPrepare()));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.PcbDoc")), board_bytes_);
  RemoveDirectoryW(link.c_str());
}

}  // namespace
}  // namespace kestrune
