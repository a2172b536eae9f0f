#include "common/files/tree_removal_win32.h"

#include <gmock/gmock.h>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/scripted_calls_win32.h"

namespace kestrune {
namespace {

constexpr DWORD kCloudTag = 0x9000001A;  // IO_REPARSE_TAG_CLOUD

/// Makes the real calls, but one directory is a reparse point: in listings, through handles, or
/// both.
class ReparsePoint final : public ScriptedCalls {
 public:
  std::wstring name;
  DWORD tag = IO_REPARSE_TAG_MOUNT_POINT;
  bool in_listings = true;

  HANDLE FindFirst(const ExtendedPath& pattern, WIN32_FIND_DATAW* entry) override {
    const HANDLE find = ScriptedCalls::FindFirst(pattern, entry);
    Mark(entry);
    return find;
  }
  BOOL FindNext(HANDLE find, WIN32_FIND_DATAW* entry) override {
    const BOOL found = ScriptedCalls::FindNext(find, entry);
    Mark(entry);
    return found;
  }
  HANDLE Create(const ExtendedPath& path, const FileOpening& opening) override {
    opened_ = path.Name();
    return ScriptedCalls::Create(path, opening);
  }
  BOOL GetInformation(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) override {
    const BOOL answered = ScriptedCalls::GetInformation(file, information);
    if (opened_ == name) {
      information->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    }
    return answered;
  }
  BOOL GetTag(HANDLE, FILE_ATTRIBUTE_TAG_INFO* information) override {
    information->ReparseTag = tag;
    return TRUE;
  }

 private:
  void Mark(WIN32_FIND_DATAW* entry) const {
    if (in_listings && name == entry->cFileName) {
      entry->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
      entry->dwReserved0 = tag;
    }
  }

  std::wstring opened_;
};

class TreeRemovalTest : public ExportTest {
 protected:
  void SetUp() override {
    ExportTest::SetUp();
    PutFile(JoinPath(root_, L"sub\\file"), "x");
  }

  /// Returns the failure of a removal.
  Failure Refusal(SystemCalls& calls) const {
    try {
      RemoveTree(calls, root_);
    } catch (const Failure& failure) {
      return failure;
    }
    ADD_FAILURE() << "nothing was refused";
    return {};
  }

  const std::wstring root_ = Scratch(L"t");
};

TEST_F(TreeRemovalTest, AJunctionIsNeverEntered) {
  for (const DWORD tag : {DWORD{IO_REPARSE_TAG_MOUNT_POINT}, DWORD{0}}) {
    // Listed as a junction, or replaced with one after it was listed.
    for (const bool in_listings : {true, false}) {
      ReparsePoint calls;
      calls.name = L"sub";
      calls.tag = tag;
      calls.in_listings = in_listings;
      const Failure refusal = Refusal(calls);
      EXPECT_EQ(refusal.code, DWORD{ERROR_DIR_NOT_EMPTY});
      EXPECT_EQ(refusal.subject, JoinPath(root_, L"sub"));
      EXPECT_EQ(FileBytes(JoinPath(root_, L"sub\\file")), "x");
    }
  }
}

TEST_F(TreeRemovalTest, ReparsePointOfAnotherKindIsEmptied) {
  ReparsePoint calls;
  calls.name = L"sub";
  calls.tag = kCloudTag;
  RemoveTree(calls, root_);
  EXPECT_FALSE(Exists(root_));
}

TEST_F(TreeRemovalTest, JunctionAsFolderIsNotHeld) {
  ReparsePoint calls;
  calls.name = L"t";
  calls.in_listings = false;
  EXPECT_THROW(HoldRealDirectory(calls, root_), Failure);
}

TEST_F(TreeRemovalTest, AHeldFolderCannotBeReplaced) {
  SystemCalls calls;
  const FileHandle held = HoldRealDirectory(calls, root_);
  EXPECT_FALSE(MoveFileW(root_.c_str(), Scratch(L"elsewhere").c_str()));
  PutFile(JoinPath(root_, L"more"), "x");
}

TEST_F(TreeRemovalTest, FolderIsHeldWhileItsEntriesGo) {
  ScriptedCalls calls;
  bool looked = false;
  calls.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    if (call.name == "Delete") {
      looked = true;
      EXPECT_FALSE(MoveFileW(JoinPath(root_, L"sub").c_str(), Scratch(L"elsewhere").c_str()));
      EXPECT_FALSE(MoveFileW(root_.c_str(), Scratch(L"elsewhere").c_str()));
    }
    return std::nullopt;
  };
  RemoveTree(calls, root_);
  EXPECT_TRUE(looked);
  EXPECT_FALSE(Exists(root_));
}

TEST_F(TreeRemovalTest, FileThatVanishedIsNoFailure) {
  PutFile(JoinPath(root_, L"file"), "x");
  ScriptedCalls calls;
  calls.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    if (call.name == "Delete") {
      EXPECT_TRUE(DeleteFileW(call.path.c_str()));
    } else if (call.name == "DeleteDirectory" && call.path.ends_with(L"sub")) {
      EXPECT_TRUE(RemoveDirectoryW(call.path.c_str()));
    }
    return std::nullopt;
  };
  RemoveTree(calls, root_);
  EXPECT_FALSE(Exists(root_));
}

TEST_F(TreeRemovalTest, PendingDeletionIsWaitedFor) {
  ScriptedCalls calls;
  int refusals = 3;
  calls.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    return call.name == "Create" && call.path.ends_with(L"sub") && refusals-- > 0
               ? std::optional<DWORD>(ERROR_ACCESS_DENIED)
               : std::nullopt;
  };
  RemoveTree(calls, root_);
  EXPECT_FALSE(Exists(root_));
  EXPECT_EQ(calls.Waited(), 150U);
}

TEST_F(TreeRemovalTest, RefusedFolderIsNamedAfterASecond) {
  ScriptedCalls calls;
  calls.before = [](const SystemCall& call) -> std::optional<DWORD> {
    return call.name == "Create" && call.path.ends_with(L"sub")
               ? std::optional<DWORD>(ERROR_ACCESS_DENIED)
               : std::nullopt;
  };
  const Failure refusal = Refusal(calls);
  EXPECT_EQ(refusal.text, L"remove");
  EXPECT_EQ(refusal.code, DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(refusal.subject, JoinPath(root_, L"sub"));
  EXPECT_EQ(calls.Waited(), 1000U);
}

TEST_F(TreeRemovalTest, OnlyANonEmptyRootIsEmptied) {
  ScriptedCalls calls;
  calls.before = [](const SystemCall& call) -> std::optional<DWORD> {
    return call.name == "DeleteDirectory" ? std::optional<DWORD>(ERROR_SHARING_VIOLATION)
                                          : std::nullopt;
  };
  const Failure refusal = Refusal(calls);
  EXPECT_EQ(refusal.code, DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_EQ(refusal.subject, root_);
  EXPECT_EQ(FileBytes(JoinPath(root_, L"sub\\file")), "x");
}

TEST_F(TreeRemovalTest, AReadOnlyRootIsRemoved) {
  bool is_read_only = true;
  ScriptedCalls calls;
  // Wine keeps no such attribute of a directory; Windows refuses to delete one that has it.
  calls.after = On("GetAttributes", [&](const SystemCall& call) -> std::optional<DWORD> {
    if (is_read_only && call.attributes != nullptr) {
      call.attributes->dwFileAttributes |= FILE_ATTRIBUTE_READONLY;
    }
    return std::nullopt;
  });
  calls.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    is_read_only = is_read_only && call.name != "SetAttributes";
    return call.name == "DeleteDirectory" && is_read_only
               ? std::optional<DWORD>(ERROR_ACCESS_DENIED)
               : std::nullopt;
  };
  RemoveTree(calls, root_);
  EXPECT_EQ(GetFileAttributesW(root_.c_str()), INVALID_FILE_ATTRIBUTES);
}

}  // namespace
}  // namespace kestrune
