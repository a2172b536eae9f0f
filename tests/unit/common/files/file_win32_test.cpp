#include "common/files/file_win32.h"

#include <gmock/gmock.h>

#include "common/failure/failure.h"
#include "common/text/path.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/remove_tree_win32.h"
#include "tests/support/export/refused_call_win32.h"
#include "tests/support/machine/small_disk_win32.h"
#include "tests/support/machine/unix_link_win32.h"

namespace kestrune {
namespace {

using testing::ElementsAre;

/// Uses a temporary folder; no profile is touched.
class FileTest : public testing::Test {
 protected:
  void SetUp() override {
    wchar_t folder[MAX_PATH + 1] = {};
    GetTempPathW(MAX_PATH, folder);
    root_ = JoinPath(folder, L"kestrune-files-" + std::to_wstring(GetCurrentProcessId()));
    ASSERT_TRUE(RemoveTree(root_)) << GetLastError();
    ASSERT_TRUE(TryCreateDirectories(root_)) << GetLastError();
  }
  void TearDown() override { EXPECT_TRUE(RemoveTree(root_)) << GetLastError(); }

  std::wstring In(std::wstring_view name) const { return JoinPath(root_, name); }

  std::wstring root_;
};

/// Expects that the action throws exactly this failure.
template <class Action>
void ExpectFailure(const Action& action, const Failure& expected) {
  try {
    action();
    ADD_FAILURE() << "no failure";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.text, expected.text);
    EXPECT_EQ(failure.code, expected.code);
    EXPECT_EQ(failure.subject, expected.subject);
  }
}

std::wstring LongPath(const std::wstring& root) {
  std::wstring path = root;
  for (int i = 0; i < 20; ++i) {
    path = JoinPath(path, L"a-directory-with-a-rather-long-name");
  }
  return path;
}

TEST_F(FileTest, KindDistinguishesFilesAndDirectories) {
  ASSERT_TRUE(TryWriteFile(In(L"file"), "x"));
  EXPECT_EQ(QueryFileKind(RealCalls(), In(L"file")), FileKind::RegularFile);
  EXPECT_EQ(QueryFileKind(RealCalls(), root_), FileKind::Directory);
  EXPECT_EQ(QueryFileKindQuietly(RealCalls(), In(L"file")), FileKind::RegularFile);
}

TEST_F(FileTest, ImpossiblePathsAreAbsent) {
  ASSERT_TRUE(TryWriteFile(In(L"file"), "x"));
  EXPECT_EQ(QueryFileKind(RealCalls(), In(L"file\\below")), FileKind::Absent);
  EXPECT_EQ(QueryFileKind(RealCalls(), In(L"missing")), FileKind::Absent);
  EXPECT_EQ(QueryFileKind(RealCalls(), In(L"missing\\below")), FileKind::Absent);
  EXPECT_EQ(QueryFileKind(RealCalls(), In(L"a|b")), FileKind::Absent);
  EXPECT_EQ(QueryFileKind(RealCalls(), L"Q:\\missing drive"), FileKind::Absent);
  EXPECT_EQ(QueryFileKind(RealCalls(), L""), FileKind::Absent);
}

TEST_F(FileTest, AnyOtherErrorIsAStatusFailure) {
  ScriptedCalls calls;
  calls.before = RefusedCall("GetAttributes", L"", ERROR_NETNAME_DELETED);
  ExpectFailure([&] { static_cast<void>(QueryFileKind(calls, In(L"file"))); },
                {L"status", ERROR_NETNAME_DELETED, In(L"file")});
  EXPECT_EQ(QueryFileKindQuietly(calls, In(L"file")), FileKind::Absent);
}

TEST_F(FileTest, HeldFileStillHasKindAndSize) {
  ASSERT_TRUE(TryWriteFile(In(L"held"), "12345"));
  const FileHandle held = HoldOpen(In(L"held"), GENERIC_READ | GENERIC_WRITE, 0);
  const FileEntry entry = QueryEntry(RealCalls(), In(L"held"), L"size");
  EXPECT_EQ(entry.kind, FileKind::RegularFile);
  EXPECT_EQ(entry.size, 5U);
}

TEST_F(FileTest, SharingViolationMeansStatOfTheListing) {
  ScriptedCalls calls;
  calls.before = RefusedCall("GetAttributes", L"", ERROR_SHARING_VIOLATION);
  ASSERT_TRUE(TryWriteFile(In(L"locked"), "12345"));
  EXPECT_EQ(QueryEntry(calls, In(L"locked"), L"size").size, 5U);
  EXPECT_EQ(QueryFileKind(calls, In(L"locked")), FileKind::RegularFile);
  EXPECT_EQ(QueryFileKind(calls, root_), FileKind::Directory);
  EXPECT_EQ(QueryFileKind(calls, In(L"missing")), FileKind::Absent);
}

TEST_F(FileTest, LinkedFileHasStatOfItsTarget) {
  ASSERT_TRUE(TryWriteFile(In(L"target"), "12345"));
  KESTRUNE_NEEDS_LINK(MakeFileLink(In(L"link"), In(L"target")));
  const FileEntry entry = QueryEntry(RealCalls(), In(L"link"), L"size");
  EXPECT_EQ(entry.kind, FileKind::RegularFile);
  EXPECT_EQ(entry.size, 5U);
  RemoveLink(In(L"link"));
}

TEST_F(FileTest, LinkWithoutTargetIsAbsent) {
  ASSERT_TRUE(TryWriteFile(In(L"target"), "12345"));
  KESTRUNE_NEEDS_LINK(MakeFileLink(In(L"link"), In(L"target")));
  ASSERT_TRUE(RemoveTree(In(L"target")));
  EXPECT_FALSE(QueryEntryQuietly(RealCalls(), In(L"link")));
  EXPECT_EQ(QueryFileKind(RealCalls(), In(L"link")), FileKind::Absent);
  EXPECT_EQ(QueryFileKindQuietly(RealCalls(), In(L"link")), FileKind::Absent);
  // Wine neither lists nor removes a link without a target.
  ASSERT_TRUE(TryWriteFile(In(L"target"), "12345"));
  RemoveLink(In(L"link"));
}

TEST_F(FileTest, ALinkedDirectoryIsADirectory) {
  ASSERT_TRUE(TryCreateDirectories(In(L"target")));
  KESTRUNE_NEEDS_LINK(MakeDirectoryLink(In(L"link"), In(L"target")));
  EXPECT_EQ(QueryFileKind(RealCalls(), In(L"link")), FileKind::Directory);
  RemoveLink(In(L"link"));
}

TEST_F(FileTest, SizesAboveFourGibibytesAreWhole) {
  constexpr std::uint64_t large = (std::uint64_t{1} << 32) + 10;
  PutSparseFile(In(L"large"), large);
  EXPECT_EQ(QueryEntry(RealCalls(), In(L"large"), L"size").size, large);
  std::string bytes;
  EXPECT_FALSE(TryReadFile(In(L"large"), 100, bytes)) << "4 GiB + 10 must not look like 10";
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_TOO_LARGE});
}

TEST_F(FileTest, AbsentFileIsAFailureWithCode) {
  EXPECT_FALSE(QueryEntryQuietly(RealCalls(), In(L"missing")));
  ExpectFailure([&] { static_cast<void>(QueryEntry(RealCalls(), In(L"missing"), L"size")); },
                {L"size", ERROR_FILE_NOT_FOUND, In(L"missing")});
}

TEST_F(FileTest, WrittenBytesComeBackUnchanged) {
  const std::string bytes("\x00\r\n\x1A\xFF|", 6);
  ASSERT_TRUE(TryWriteFile(In(L"file"), "a longer text that goes"));
  ASSERT_TRUE(TryWriteFile(In(L"file"), bytes));
  std::string read = "old";
  ASSERT_TRUE(TryReadFile(In(L"file"), bytes.size(), read));
  EXPECT_EQ(read, bytes);
  ASSERT_TRUE(TryWriteFile(In(L"file"), ""));
  ASSERT_TRUE(TryReadFile(In(L"file"), 0, read));
  EXPECT_EQ(read, "");
}

TEST_F(FileTest, ReadingNamesTheExactError) {
  std::string bytes;
  EXPECT_FALSE(TryReadFile(In(L"missing"), 10, bytes));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});

  ASSERT_TRUE(TryWriteFile(In(L"held"), "x"));
  const FileHandle held = HoldOpen(In(L"held"), GENERIC_READ, 0);
  EXPECT_FALSE(TryReadFile(In(L"held"), 10, bytes));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});

  ASSERT_TRUE(TryWriteFile(In(L"eleven"), "12345678901"));
  EXPECT_FALSE(TryReadFile(In(L"eleven"), 10, bytes));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_TOO_LARGE});
  EXPECT_FALSE(TryReadFile(root_, 10, bytes)) << "a directory has no bytes";
}

TEST_F(FileTest, WritingNamesTheExactError) {
  EXPECT_FALSE(TryWriteFile(In(L"missing\\file"), "x"));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
  ASSERT_TRUE(TryWriteFile(In(L"held"), "x"));
  const FileHandle held = HoldOpen(In(L"held"), GENERIC_READ, FILE_SHARE_READ);
  EXPECT_FALSE(TryWriteFile(In(L"held"), "y"));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

TEST_F(FileTest, AWriterKeepsItsFirstFailure) {
  FileWriter missing(RealCalls(), In(L"missing\\file"));
  missing.Write("x");
  missing.Fail(ERROR_NO_UNICODE_TRANSLATION);
  ExpectFailure([&] { missing.Finish(L"finish"); },
                {L"finish", ERROR_PATH_NOT_FOUND, In(L"missing\\file")});

  FileWriter refused(RealCalls(), In(L"file"));
  refused.Write("kept");
  refused.Fail(ERROR_NO_UNICODE_TRANSLATION);
  refused.Write("dropped");
  ExpectFailure([&] { refused.Finish(L"finish"); },
                {L"finish", ERROR_NO_UNICODE_TRANSLATION, In(L"file")});
  EXPECT_EQ(FileBytes(In(L"file")), "kept");
}

TEST_F(FileTest, AFailedCloseIsThrown) {
  ScriptedCalls calls;
  calls.after = [](const SystemCall& call) {
    return call.name == "Close" ? std::optional<DWORD>(ERROR_NETNAME_DELETED) : std::nullopt;
  };
  FileWriter file(calls, In(L"file"));
  file.Write("x");
  ExpectFailure([&] { file.Finish(L"finish"); }, {L"finish", ERROR_NETNAME_DELETED, In(L"file")});
}

TEST(FileWriter, FullDiskIsReportedAtFinish) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  ASSERT_TRUE(disk.Fill());
  const std::wstring path = JoinPath(disk.Folder(), L"project");
  FileWriter file(RealCalls(), path);
  file.Write(std::string(8192, 'x'));
  file.Write("more");
  ExpectFailure([&] { file.Finish(L"finish"); }, {L"finish", ERROR_DISK_FULL, path});
}

TEST_F(FileTest, EveryRefusalNamesStepCodeAndPath) {
  SystemCalls calls;
  ASSERT_TRUE(TryWriteFile(In(L"file"), "x"));
  const std::wstring missing = In(L"missing\\file");
  ExpectFailure([&] { static_cast<void>(ReadWholeFile(RealCalls(), missing, 10)); },
                {L"read", ERROR_PATH_NOT_FOUND, missing});
  ExpectFailure([&] { static_cast<void>(ReadWholeFile(RealCalls(), In(L"file"), 0)); },
                {L"read", ERROR_FILE_TOO_LARGE, In(L"file")});
  ExpectFailure([&] { WriteWholeFile(RealCalls(), missing, "x"); },
                {L"write", ERROR_PATH_NOT_FOUND, missing});
  ExpectFailure(
      [&] { RenameFile(RealCalls(), In(L"missing"), In(L"file"), MOVEFILE_REPLACE_EXISTING); },
      {L"rename", ERROR_FILE_NOT_FOUND, In(L"file")});
  ExpectFailure([&] { CreateDirectories(calls, In(L"file")); },
                {L"create_directories", ERROR_ALREADY_EXISTS, In(L"file")});
  EXPECT_FALSE(ReadFileIfPossible(RealCalls(), missing, 10));
  EXPECT_EQ(ReadFileIfPossible(RealCalls(), In(L"file"), 1), "x");
}

TEST_F(FileTest, ReadingBeyondTheEndIsAFailure) {
  SystemCalls calls;
  ASSERT_TRUE(TryWriteFile(In(L"file"), "x"));
  const FileHandle file = HoldOpen(In(L"file"), GENERIC_READ, FILE_SHARE_READ);
  std::string bytes(2, '\0');
  ExpectFailure([&] { ReadAll(calls, file.Get(), bytes); }, {L"read", ERROR_HANDLE_EOF});
}

TEST_F(FileTest, ARenameWithoutTheFlagReplacesNothing) {
  ASSERT_TRUE(TryWriteFile(In(L"a"), "a") && TryWriteFile(In(L"b"), "b"));
  ExpectFailure([&] { RenameFile(RealCalls(), In(L"a"), In(L"b"), 0); },
                {L"rename", ERROR_ALREADY_EXISTS, In(L"b")});
  EXPECT_EQ(FileBytes(In(L"b")), "b");
}

TEST_F(FileTest, RenameReplacesAnExistingFile) {
  ASSERT_TRUE(TryWriteFile(In(L"a"), "a"));
  ASSERT_TRUE(TryWriteFile(In(L"b"), "b"));
  ASSERT_TRUE(TryRenameOver(In(L"a"), In(L"b"))) << GetLastError();
  EXPECT_EQ(FileBytes(In(L"b")), "a");
  EXPECT_THAT(NamesIn(root_), ElementsAre(L"b"));
  EXPECT_FALSE(TryRenameOver(In(L"a"), In(L"b")));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(FileTest, OnlyTheReadOnlyAttributeIsCleared) {
  ASSERT_TRUE(TryWriteFile(In(L"file"), "x"));
  const DWORD plain = GetFileAttributesW(In(L"file").c_str());
  // In two steps: Wine cannot hide a file that it has just made read-only.
  ASSERT_TRUE(SetFileAttributesW(In(L"file").c_str(), plain | FILE_ATTRIBUTE_HIDDEN));
  ASSERT_TRUE(SetFileAttributesW(In(L"file").c_str(),
                                 plain | FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
  ClearReadOnly(RealCalls(), In(L"file"));
  EXPECT_EQ(GetFileAttributesW(In(L"file").c_str()), plain | FILE_ATTRIBUTE_HIDDEN);
  ClearReadOnly(RealCalls(), In(L"missing"));
}

TEST_F(FileTest, DirectoriesAreCreatedWithAllParents) {
  EXPECT_TRUE(TryCreateDirectories(In(L"a\\b/c\\..\\d"))) << GetLastError();
  EXPECT_EQ(QueryFileKind(RealCalls(), In(L"a\\b\\d")), FileKind::Directory);
  EXPECT_TRUE(TryCreateDirectories(In(L"a\\b\\d"))) << "one that exists is success";
}

TEST_F(FileTest, DirectoriesMayExceedTheClassicLimit) {
  const std::wstring deep = LongPath(root_);
  EXPECT_TRUE(TryCreateDirectories(deep)) << GetLastError();
  EXPECT_TRUE(TryWriteFile(JoinPath(deep, L"file"), "x")) << GetLastError();
  EXPECT_EQ(FileBytes(JoinPath(deep, L"file")), "x");
  EXPECT_TRUE(RemoveTree(In(L"a-directory-with-a-rather-long-name"))) << GetLastError();
  EXPECT_TRUE(NamesIn(root_).empty());
}

TEST_F(FileTest, DirectoryDoesNotReplaceAFile) {
  ASSERT_TRUE(TryWriteFile(In(L"file"), "x"));
  EXPECT_FALSE(TryCreateDirectories(In(L"file")));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
  EXPECT_FALSE(TryCreateDirectories(In(L"file\\below")));
  EXPECT_FALSE(TryCreateDirectories(L"Q:\\no such drive"));
}

TEST_F(FileTest, RemovingATreeTakesEverythingInIt) {
  PutFile(In(L"neighbour"), "x");
  for (const wchar_t* name : {L"t", L"t\\", L"missing\\below"}) {
    PutFile(In(L"t\\a\\b\\file"), "x");
    PutFile(In(L"t\\.file"), "x");
    PutFile(In(L"t\\..folder\\file"), "x");
    ASSERT_TRUE(TryCreateDirectories(In(L"t\\empty\\empty")));
    ASSERT_TRUE(SetFileAttributesW(In(L"t\\a\\b\\file").c_str(), FILE_ATTRIBUTE_READONLY));
    ASSERT_TRUE(SetFileAttributesW(In(L"t\\a").c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_TRUE(RemoveTree(In(name))) << GetLastError();
    EXPECT_EQ(Exists(In(L"t")), name[0] == L'm');
    EXPECT_TRUE(Exists(In(L"neighbour")));
    ASSERT_TRUE(RemoveTree(In(L"t")));
  }
}

TEST_F(FileTest, RemovingFileInUseNamesTheCode) {
  PutFile(In(L"t\\a\\file"), "x");
  const FileHandle held = HoldOpen(In(L"t\\a\\file"), GENERIC_READ, FILE_SHARE_READ);
  EXPECT_FALSE(RemoveTree(In(L"t")));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_TRUE(Exists(In(L"t\\a\\file")));
}

TEST_F(FileTest, RemovingATreeMayBeDeep) {
  std::wstring path = ExtendedPath(In(L"t")).Text();
  ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
  for (int depth = 0; depth < 100; ++depth) {
    ASSERT_TRUE(CreateDirectoryW((path += L"\\d").c_str(), nullptr)) << GetLastError();
  }
  EXPECT_TRUE(RemoveTree(In(L"t"))) << GetLastError();
  EXPECT_FALSE(Exists(In(L"t")));
}

TEST_F(FileTest, RemovingATreeNeverEntersALink) {
  PutFile(In(L"victim\\file"), "precious");
  PutFile(In(L"t\\sub\\file"), "x");
  KESTRUNE_NEEDS_LINK(MakeDirectoryLink(In(L"t\\link"), In(L"victim")));
  // Some systems cannot delete the link itself; its target must remain in any case.
  const bool removed = RemoveTree(In(L"t"));
  EXPECT_EQ(FileBytes(In(L"victim\\file")), "precious");
  EXPECT_EQ(removed, !Exists(In(L"t\\link")));
  RemoveLink(In(L"t\\link"));
}

TEST_F(FileTest, RemovingALinkLeavesItsTarget) {
  PutFile(In(L"victim\\file"), "precious");
  KESTRUNE_NEEDS_LINK(MakeDirectoryLink(In(L"link"), In(L"victim")));
  const bool removed = RemoveTree(In(L"link"));
  EXPECT_EQ(FileBytes(In(L"victim\\file")), "precious");
  EXPECT_EQ(removed, !Exists(In(L"link")));
  RemoveLink(In(L"link"));
}

TEST(ExpandEnvironment, ReplacesDefinedVariablesKeepsOthers) {
  ASSERT_TRUE(SetEnvironmentVariableW(L"KESTRUNE_TEST_VALUE", std::wstring(3000, L'v').c_str()));
  std::wstring expanded;
  EXPECT_TRUE(
      ExpandEnvironment(RealCalls(), L"<%KESTRUNE_TEST_VALUE%>%KESTRUNE_UNDEFINED%", expanded));
  EXPECT_EQ(expanded, L"<" + std::wstring(3000, L'v') + L">%KESTRUNE_UNDEFINED%");
  SetEnvironmentVariableW(L"KESTRUNE_TEST_VALUE", nullptr);
  EXPECT_TRUE(ExpandEnvironment(RealCalls(), L"", expanded));
  EXPECT_EQ(expanded, L"");
}

}  // namespace
}  // namespace kestrune
