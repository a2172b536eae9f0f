// Replacing and restoring DXP.RCS while other programs or Windows interfere. Conditions that cannot
// be produced are simulated through scripted calls.

#include <gtest/gtest.h>

#include <windows.h>
#include <sddl.h>

#include <functional>
#include <string>
#include <vector>

#include "common/system/owners_win32.h"
#include "registration/store/store_files_win32.h"
#include "tests/support/registration/store_fixture_win32.h"

namespace altium_registration {
namespace {

using Names = std::vector<std::wstring>;

constexpr wchar_t kSourceChanged[] = L"Source metadata/content changed.";

std::vector<std::byte> DescriptorFrom(const wchar_t* text) {
  kestrune::LocalMemory<void> descriptor;
  ULONG size = 0;
  EXPECT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1,
                                                                   descriptor.Put(), &size));
  const auto* bytes = static_cast<const std::byte*>(descriptor.Get());
  return {bytes, bytes + size};
}

/// Sets a DACL that only allows access to the owner.
void RestrictToOwner(const std::wstring& path) {
  kestrune::SystemCalls real;
  PSID owner = nullptr;
  BOOL defaulted = FALSE;
  const FileSecurity now = ReadFileSecurity(real, kestrune::ExtendedPath(path), L"size", L"read");
  ASSERT_TRUE(GetSecurityDescriptorOwner(now.Descriptor(), &owner, &defaulted));
  kestrune::LocalMemory<wchar_t> name;
  ASSERT_TRUE(ConvertSidToStringSidW(owner, name.Put()));
  std::vector<std::byte> dacl =
      DescriptorFrom((L"D:P(A;;FA;;;" + std::wstring(name.Get()) + L")").c_str());
  ASSERT_TRUE(SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, dacl.data()));
}

class WindowsStoreReplaceTest : public StoreTest {
 protected:
  std::wstring Commit() {
    return FailureText([&] { store->CommitReplacement(); });
  }
  std::wstring RollBack() {
    return FailureText([&] { store->RollBackRcs(); });
  }
  void CloseAndExpectNothingLeft() {
    store.reset();
    EXPECT_EQ(profile.Leftovers(), Names{});
  }
};

// Preparing

TEST_F(WindowsStoreReplaceTest, UnsettableOwnerLeavesTheFileUnchanged) {
  for (const DWORD code : {DWORD{ERROR_INVALID_OWNER}, DWORD{ERROR_INVALID_PRIMARY_GROUP},
                           DWORD{ERROR_PRIVILEGE_NOT_HELD}}) {
    Open();
    store->CreateBackups("old text", {});
    calls->before = On("Create", [&](const SystemCall& call) {
      return call.path.ends_with(L".tmp") ? std::optional(code) : std::nullopt;
    });
    EXPECT_EQ(FailureText([&] { store->PrepareReplacement("new text"); }),
              L"Cannot preserve replacement owner/group; original RCS unchanged.");
    calls->before = {};
    EXPECT_EQ(Rcs(), "old text");
    CloseAndExpectNothingLeft();
  }
}

// Committing

TEST_F(WindowsStoreReplaceTest, FileForItsOwnerAloneStaysSo) {
  RestrictToOwner(profile.Rcs());
  const FileSecurity before = RealSecurity();
  OpenPrepared();
  EXPECT_EQ(Commit(), L"");
  store->CheckSourceSecurity();
  EXPECT_TRUE(RealSecurity() == before);
  EXPECT_EQ(RollBack(), L"");
  EXPECT_TRUE(RealSecurity() == before);
  EXPECT_EQ(Rcs(), "old text");
}

TEST_F(WindowsStoreReplaceTest, EqualSizeAndTimeMeanUnchanged) {
  OpenPrepared();
  calls->after = On("GetAttributes", [](const SystemCall& call) {
    call.attributes->dwFileAttributes |=
        FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
    return std::nullopt;
  });
  EXPECT_EQ(Commit(), L"");
}

TEST_F(WindowsStoreReplaceTest, OtherSizeOrTimeFails) {
  const std::function<void(WIN32_FILE_ATTRIBUTE_DATA&)> changes[] = {
      [](WIN32_FILE_ATTRIBUTE_DATA& data) { ++data.nFileSizeHigh; },
      [](WIN32_FILE_ATTRIBUTE_DATA& data) { ++data.nFileSizeLow; },
      [](WIN32_FILE_ATTRIBUTE_DATA& data) { ++data.ftLastWriteTime.dwHighDateTime; },
      [](WIN32_FILE_ATTRIBUTE_DATA& data) { ++data.ftLastWriteTime.dwLowDateTime; }};
  for (const auto& change : changes) {
    OpenPrepared();
    calls->after = On("GetAttributes", [&](const SystemCall& call) {
      change(*call.attributes);
      return std::nullopt;
    });
    EXPECT_EQ(Commit(), kSourceChanged);
    calls->after = {};
    EXPECT_EQ(Rcs(), "old text");
    CloseAndExpectNothingLeft();
  }
}

TEST_F(WindowsStoreReplaceTest, FileLockedByHostIsNotReplaced) {
  OpenPrepared();
  const kestrune::FileHandle lock(CreateFileW(profile.Rcs().c_str(), GENERIC_READ, FILE_SHARE_READ,
                                              nullptr, OPEN_EXISTING, 0, nullptr));
  const std::wstring text = Commit();
  EXPECT_TRUE(text.starts_with(L"Replace RCS (Win32 ")) << text.size();
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

// Sharing violations

/// The codes for a file that another program has open; such a call changes nothing.
constexpr DWORD kLockCodes[] = {ERROR_SHARING_VIOLATION, ERROR_ACCESS_DENIED, ERROR_LOCK_VIOLATION,
                                ERROR_UNABLE_TO_REMOVE_REPLACED, ERROR_UNABLE_TO_MOVE_REPLACEMENT};

TEST_F(WindowsStoreReplaceTest, LockOfMomentDelaysReplacingAndRestoring) {
  for (const DWORD code : kLockCodes) {
    StartNewScript();
    WriteFileBytes(profile.Rcs(), "old text");
    OpenPrepared();
    calls->before = Failing("Replace", code, 3);
    EXPECT_EQ(Commit(), L"");
    EXPECT_EQ(calls->Waited(), 3 * kPauseBetweenTries);
    EXPECT_EQ(Rcs(), "new text");
    calls->before = Failing("Replace", code, 3);
    EXPECT_EQ(RollBack(), L"");
    EXPECT_EQ(calls->Waited(), 6 * kPauseBetweenTries);
    EXPECT_EQ(Rcs(), "old text");
    CloseAndExpectNothingLeft();
  }
}

TEST_F(WindowsStoreReplaceTest, OnlyLockIsTriedTenTimes) {
  for (const DWORD code : {DWORD{ERROR_SHARING_VIOLATION}, DWORD{ERROR_IO_DEVICE}}) {
    StartNewScript();
    OpenPrepared();
    int tries = 0;
    calls->before = On("Replace", [&](const SystemCall&) {
      ++tries;
      return code;
    });
    EXPECT_EQ(Commit(), L"Replace RCS (Win32 " + std::to_wstring(code) + L")");
    EXPECT_EQ(tries, code == ERROR_IO_DEVICE ? 1 : 10);
    EXPECT_EQ(calls->Waited(), code == ERROR_IO_DEVICE ? 0U : 450U);
    EXPECT_FALSE(store->HasReplacedRcs());
  }
}

TEST_F(WindowsStoreReplaceTest, ChangeDuringRetriesIsNotOverwritten) {
  OpenPrepared();
  calls->before = On("Replace", [this](const SystemCall&) {
    WriteFileBytes(profile.Rcs(), "foreign text");
    return ERROR_SHARING_VIOLATION;
  });
  EXPECT_EQ(Commit(), kSourceChanged);
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "foreign text");
}

TEST_F(WindowsStoreReplaceTest, ReplacementWithEffectIsNotRepeated) {
  OpenPrepared();
  int tries = 0;
  calls->after = On("Replace", [&](const SystemCall&) {
    ++tries;
    return ERROR_SHARING_VIOLATION;
  });
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 32)");
  EXPECT_EQ(tries, 1);
  EXPECT_TRUE(store->HasReplacedRcs());
  calls->after = {};
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
}

TEST_F(WindowsStoreReplaceTest, SharingViolationDelaysUndoingHalfReplacement) {
  OpenPrepared();
  // The replacement renames the old file and cannot rename the new one.
  calls->before = [&, lock = Failing("Move", ERROR_SHARING_VIOLATION, 3)](const SystemCall& call) {
    if (call.name != "Replace") {
      return lock(call);
    }
    EXPECT_TRUE(MoveFileExW(profile.Rcs().c_str(), call.other.c_str(), 0));
    return std::optional<DWORD>(ERROR_UNABLE_TO_MOVE_REPLACEMENT_2);
  };
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "old text");
}

TEST_F(WindowsStoreReplaceTest, SharingViolationOnNewFileIsRetried) {
  OpenPrepared();
  calls->before = [call = 0](const SystemCall& now) mutable {
    const bool is_refused = now.name == "Create" && now.path.ends_with(L".tmp") && ++call <= 3;
    return is_refused ? std::optional<DWORD>(ERROR_SHARING_VIOLATION) : std::nullopt;
  };
  EXPECT_EQ(store->ReadReplacement(), "new text");
  EXPECT_EQ(calls->Waited(), 3 * kPauseBetweenTries);
}

// Obstacles to a rollback

TEST_F(WindowsStoreReplaceTest, ReadOnlyRecoveryFileGivesWay) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  const std::wstring recovery = profile.Rcs() + L".recovery";
  WriteFileBytes(recovery, "stale");
  ASSERT_TRUE(SetFileAttributesW(recovery.c_str(), FILE_ATTRIBUTE_READONLY));
  calls->before = On("Delete", [](const SystemCall& call) {
    const DWORD attributes = GetFileAttributesW(call.path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0
               ? std::optional<DWORD>(ERROR_ACCESS_DENIED)
               : std::nullopt;
  });
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

}  // namespace
}  // namespace altium_registration
