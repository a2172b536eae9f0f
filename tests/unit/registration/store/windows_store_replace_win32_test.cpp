// Replacing and restoring DXP.RCS while other programs or Windows interfere. Conditions that cannot
// be produced are simulated through scripted calls.

#include <gtest/gtest.h>

#include <windows.h>
#include <sddl.h>

#include <string>
#include <vector>

#include "common/system/owners_win32.h"
#include "registration/transaction/global_projects.h"
#include "registration/transaction/transaction.h"
#include "registration/store/store_files_win32.h"
#include "tests/support/registration/store_fixture_win32.h"

namespace altium_registration {
namespace {

using Names = std::vector<std::wstring>;

constexpr wchar_t kSourceChanged[] = L"Source metadata/content changed.";
constexpr wchar_t kForeignContent[] = L"Concurrent RCS change; refusing rollback overwrite.";

bool FailWith(DWORD code, BOOL& answer) {
  SetLastError(code);
  answer = FALSE;
  return true;
}

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

/// Writes as another program, with the file's former size and time.
void WriteUnnoticed(const std::wstring& path, std::string_view bytes) {
  const kestrune::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                              FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  FILETIME time{};
  DWORD written = 0;
  ASSERT_TRUE(GetFileTime(file.Get(), nullptr, nullptr, &time));
  ASSERT_TRUE(
      WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
  ASSERT_TRUE(SetFileTime(file.Get(), nullptr, nullptr, &time));
}

class WindowsStoreReplaceTest : public StoreTest {
 protected:
  std::wstring Commit() {
    return FailureText([&] { store->CommitReplacement(); });
  }
  std::wstring RollBack() {
    return FailureText([&] { store->RollBackRcs(); });
  }
  /// Returns a hook that acts only at the n-th call.
  template <class Hook>
  auto OnCall(int n, Hook hook) {
    return [n, hook, call = 0](const std::wstring& path, BOOL& answer) mutable {
      return ++call == n && hook(path, answer);
    };
  }
  /// Returns a hook that acts as long as a call is retried.
  template <class Hook>
  auto UntilPatienceEnds(Hook hook) {
    return [hook, call = 0](const std::wstring& path, BOOL& answer) mutable {
      return ++call <= kTries && hook(path, answer);
    };
  }
  /// Simulates a replacement that renames the old file but fails to rename the new one.
  void ReplaceStopsHalfWay() {
    calls->on_replace = [this](const std::wstring& displaced, BOOL& answer) {
      EXPECT_TRUE(MoveFileExW(profile.Rcs().c_str(), displaced.c_str(), 0));
      return FailWith(ERROR_UNABLE_TO_MOVE_REPLACEMENT_2, answer);
    };
  }
  /// Returns the security of DXP.RCS as "O:...G:...D:...".
  [[nodiscard]] std::wstring SecurityText() const {
    kestrune::LocalMemory<wchar_t> text;
    EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(
        RealSecurity().Descriptor(), SDDL_REVISION_1,
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
        text.Put(), nullptr));
    return text.Get();
  }
  [[nodiscard]] std::wstring Left(std::wstring_view ending) const {
    for (const std::wstring& name : profile.Leftovers()) {
      if (name.ends_with(ending)) {
        return profile.Directory() + L"\\" + name;
      }
    }
    return {};
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
    calls->on_create = [&](const std::wstring& path, BOOL& answer) {
      return path.ends_with(L".tmp") && FailWith(code, answer);
    };
    EXPECT_EQ(FailureText([&] { store->PrepareReplacement("new text"); }),
              L"Cannot preserve replacement owner/group; original RCS unchanged.");
    calls->on_create = {};
    EXPECT_EQ(Rcs(), "old text");
    CloseAndExpectNothingLeft();
  }
}

TEST_F(WindowsStoreReplaceTest, OwnerOrGroupMismatchLeavesFileUnchanged) {
  const std::wstring original = SecurityText();
  const std::size_t group = original.find(L"G:");
  const std::size_t dacl = original.find(L"D:");
  for (const std::wstring& other : {L"O:BG" + original.substr(group),
                                    original.substr(0, group) + L"G:BG" + original.substr(dacl)}) {
    Open();
    store->CreateBackups("old text", {});
    calls->on_get_security = [&](const std::wstring& path, std::vector<std::byte>& descriptor) {
      descriptor = DescriptorFrom(other.c_str());
      return path.ends_with(L".tmp");
    };
    EXPECT_EQ(FailureText([&] { store->PrepareReplacement("new text"); }),
              L"Cannot preserve replacement owner/group; original RCS unchanged.");
    EXPECT_EQ(Rcs(), "old text");
    EXPECT_EQ(profile.Leftovers(), Names{});
  }
}

TEST_F(WindowsStoreReplaceTest, FailedReplacementFileNamesItsStep) {
  const struct {
    void (*script)(ScriptedCalls& calls);
    const wchar_t* text;
  } steps[] = {{[](ScriptedCalls& script) {
                  script.on_create = [](const std::wstring&, BOOL& answer) {
                    return FailWith(ERROR_ACCESS_DENIED, answer);
                  };
                },
                L"Create recovery/temp file (Win32 5)"},
               {[](ScriptedCalls& script) {
                  script.on_write = [](BOOL& answer) { return FailWith(ERROR_DISK_FULL, answer); };
                },
                L"Write recovery/temp file (Win32 112)"},
               {[](ScriptedCalls& script) {
                  script.on_flush = [](BOOL& answer) { return FailWith(ERROR_IO_DEVICE, answer); };
                },
                L"Flush recovery/temp file (Win32 1117)"}};
  for (const auto& step : steps) {
    StartNewScript();
    Open();
    store->CreateBackups("old text", {});
    step.script(*calls);
    EXPECT_EQ(FailureText([&] { store->PrepareReplacement("new text"); }), step.text);
    EXPECT_EQ(profile.Leftovers(), Names{});
  }
}

struct IdentityStep {
  std::function<bool(BOOL& answer)> ScriptedCalls::*call;
  const wchar_t* text;
};

const IdentityStep kIdentitySteps[] = {
    {&ScriptedCalls::on_initialize_descriptor, L"Initialize replacement identity (Win32 1305)"},
    {&ScriptedCalls::on_get_owner, L"Read original owner (Win32 1305)"},
    {&ScriptedCalls::on_get_group, L"Read original group (Win32 1305)"},
    {&ScriptedCalls::on_set_owner, L"Set replacement owner (Win32 1305)"},
    {&ScriptedCalls::on_set_group, L"Set replacement group (Win32 1305)"},
};

TEST_F(WindowsStoreReplaceTest, FailedIdentityNamesItsStep) {
  for (const IdentityStep& step : kIdentitySteps) {
    StartNewScript();
    Open();
    store->CreateBackups("old text", {});
    (*calls).*step.call = [](BOOL& answer) { return FailWith(ERROR_UNKNOWN_REVISION, answer); };
    EXPECT_EQ(FailureText([&] { store->PrepareReplacement("new text"); }), step.text);
    EXPECT_EQ(Rcs(), "old text");
    EXPECT_EQ(profile.Leftovers(), Names{});
    EXPECT_FALSE(store->HasReplacedRcs());
  }
}

TEST_F(WindowsStoreReplaceTest, IdentityStepsComeInTheirOrder) {
  Open();
  store->CreateBackups("old text", {});
  std::vector<std::wstring> order;
  for (const IdentityStep& step : kIdentitySteps) {
    (*calls).*step.call = [&](BOOL&) {
      order.emplace_back(step.text);
      return false;
    };
  }
  calls->on_create = [&](const std::wstring& path, BOOL&) {
    order.emplace_back(path.ends_with(L".tmp") ? L"create" : L"log");
    return false;
  };
  store->PrepareReplacement("new text");
  std::vector<std::wstring> expected;
  for (const IdentityStep& step : kIdentitySteps) {
    expected.emplace_back(step.text);
  }
  expected.insert(expected.end(), {L"create", L"log"});
  EXPECT_EQ(order, expected);
}

TEST_F(WindowsStoreReplaceTest, FailedRecoveryIdentityBlocksTheRollback) {
  for (const IdentityStep& step : kIdentitySteps) {
    StartNewScript();
    WriteFileBytes(profile.Rcs(), "old text");
    OpenPrepared();
    EXPECT_EQ(Commit(), L"");
    (*calls).*step.call = [](BOOL& answer) { return FailWith(ERROR_UNKNOWN_REVISION, answer); };
    EXPECT_EQ(RollBack(), step.text);
    EXPECT_EQ(Rcs(), "new text");
    EXPECT_EQ(profile.Leftovers(), Names{});
  }
}

// Committing

TEST_F(WindowsStoreReplaceTest, CommitReplacesAndLeavesNoWorkingFile) {
  OpenPrepared();
  EXPECT_EQ(Commit(), L"");
  EXPECT_TRUE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "new text");
  EXPECT_EQ(profile.Leftovers(), Names{});
  store->CheckSourceSecurity();
}

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

TEST_F(WindowsStoreReplaceTest, MereTouchSinceOpeningFails) {
  OpenPrepared();
  const kestrune::FileHandle file(CreateFileW(profile.Rcs().c_str(), FILE_WRITE_ATTRIBUTES,
                                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                              OPEN_EXISTING, 0, nullptr));
  const FILETIME time = {1, 30'000'000};
  ASSERT_TRUE(SetFileTime(file.Get(), nullptr, nullptr, &time));
  EXPECT_EQ(Commit(), kSourceChanged);
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "old text");
}

TEST_F(WindowsStoreReplaceTest, EqualSizeAndTimeMeanUnchanged) {
  OpenPrepared();
  calls->after_get_attributes = [](WIN32_FILE_ATTRIBUTE_DATA& data, BOOL&) {
    data.dwFileAttributes |= FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
  };
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
    calls->after_get_attributes = [&](WIN32_FILE_ATTRIBUTE_DATA& data, BOOL&) { change(data); };
    EXPECT_EQ(Commit(), kSourceChanged);
    calls->after_get_attributes = {};
    EXPECT_EQ(Rcs(), "old text");
    CloseAndExpectNothingLeft();
  }
}

TEST_F(WindowsStoreReplaceTest, FileGoneSinceOpeningNamesTheCode) {
  OpenPrepared();
  DeleteFileW(profile.Rcs().c_str());
  EXPECT_EQ(Commit(), L"Recheck profile (Win32 2)");
  EXPECT_FALSE(store->HasReplacedRcs());
}

TEST_F(WindowsStoreReplaceTest, ForeignSecurityIsNotUndone) {
  OpenPrepared();
  RestrictToOwner(profile.Rcs());
  const FileSecurity changed = RealSecurity();
  EXPECT_EQ(FailureText([&] { store->CheckSourceSecurity(); }),
            L"Source security changed or was not preserved.");
  EXPECT_EQ(Commit(), L"Source security changed or was not preserved.");
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_TRUE(RealSecurity() == changed);
}

TEST_F(WindowsStoreReplaceTest, ReplacementWithChangedSecurityIsNotUsed) {
  OpenPrepared();
  RestrictToOwner(Left(L".tmp"));
  EXPECT_EQ(Commit(), L"Replacement security changed before commit (Win32 0)");
  EXPECT_EQ(Rcs(), "old text");
  ASSERT_TRUE(DeleteFileW(Left(L".tmp").c_str()));
  EXPECT_EQ(Commit(), L"Replacement security changed before commit (Win32 2)");
  EXPECT_FALSE(store->HasReplacedRcs());
}

TEST_F(WindowsStoreReplaceTest, LateForeignWriteIsMovedBack) {
  OpenPrepared();
  calls->on_replace = OnCall(1, [this](const std::wstring&, BOOL&) {
    WriteUnnoticed(profile.Rcs(), "foreign!");
    return false;
  });
  EXPECT_EQ(Commit(), kSourceChanged);
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "foreign!");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, LateForeignWriteIsKeptOtherwise) {
  OpenPrepared();
  calls->on_replace = OnCall(1, [this](const std::wstring&, BOOL&) {
    WriteUnnoticed(profile.Rcs(), "foreign!");
    return false;
  });
  calls->on_move = [](const std::wstring&, BOOL& answer) {
    return FailWith(ERROR_ACCESS_DENIED, answer);
  };
  EXPECT_EQ(Commit(), kSourceChanged);
  EXPECT_TRUE(store->HasReplacedRcs());
  EXPECT_EQ(RollBack(), kForeignContent);
  EXPECT_EQ(Rcs(), "new text");
  const std::wstring kept = Left(L".old.tmp");
  store.reset();
  EXPECT_EQ(FileBytes(kept), "foreign!");
}

TEST_F(WindowsStoreReplaceTest, FailureWithoutEffectIsNotReplaced) {
  for (const DWORD code :
       {DWORD{ERROR_UNABLE_TO_REMOVE_REPLACED}, DWORD{ERROR_UNABLE_TO_MOVE_REPLACEMENT}}) {
    OpenPrepared();
    calls->on_replace = [code](const std::wstring&, BOOL& answer) {
      return FailWith(code, answer);
    };
    EXPECT_EQ(Commit(), L"Replace RCS (Win32 " + std::to_wstring(code) + L")");
    EXPECT_FALSE(store->HasReplacedRcs());
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

TEST_F(WindowsStoreReplaceTest, HalfReplacementIsUndone) {
  OpenPrepared();
  ReplaceStopsHalfWay();
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, LostFileComesFromTheDisplacedFile) {
  OpenPrepared();
  ReplaceStopsHalfWay();
  calls->on_move = UntilPatienceEnds(
      [](const std::wstring&, BOOL& answer) { return FailWith(ERROR_SHARING_VIOLATION, answer); });
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
  EXPECT_TRUE(store->HasReplacedRcs());
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, LostFileComesBackWithForeignText) {
  OpenPrepared();
  calls->on_replace = [this](const std::wstring& displaced, BOOL& answer) {
    WriteUnnoticed(profile.Rcs(), "foreign!");
    EXPECT_TRUE(MoveFileExW(profile.Rcs().c_str(), displaced.c_str(), 0));
    return FailWith(ERROR_UNABLE_TO_MOVE_REPLACEMENT_2, answer);
  };
  calls->on_move = UntilPatienceEnds(
      [](const std::wstring&, BOOL& answer) { return FailWith(ERROR_SHARING_VIOLATION, answer); });
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
  EXPECT_EQ(RollBack(), kForeignContent);
  EXPECT_EQ(Rcs(), "foreign!");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, FileLostAltogetherComesBackFromBackup) {
  OpenPrepared();
  calls->on_replace = [this](const std::wstring&, BOOL& answer) {
    DeleteFileW(profile.Rcs().c_str());
    return FailWith(ERROR_UNABLE_TO_MOVE_REPLACEMENT, answer);
  };
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1176)");
  EXPECT_TRUE(store->HasReplacedRcs());
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, OnlyDisplacedFileIsKept) {
  OpenPrepared();
  ReplaceStopsHalfWay();
  calls->on_move = [](const std::wstring&, BOOL& answer) {
    return FailWith(ERROR_SHARING_VIOLATION, answer);
  };
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
  EXPECT_EQ(RollBack(), L"Restore RCS (Win32 32)");
  const std::wstring kept = Left(L".old.tmp");
  store.reset();
  EXPECT_EQ(FileBytes(kept), "old text");
  EXPECT_EQ(FileBytes(profile.Rcs() + L".recovery"), "old text");
}

TEST_F(WindowsStoreReplaceTest, FileInTheGapIsNotOverwritten) {
  for (const char* text : {"foreign!", "new text"}) {
    WriteFileBytes(profile.Rcs(), "old text");
    OpenPrepared();
    ReplaceStopsHalfWay();
    calls->on_move = [](const std::wstring&, BOOL& answer) {
      return FailWith(ERROR_SHARING_VIOLATION, answer);
    };
    EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
    calls->on_move = {};
    WriteFileBytes(profile.Rcs(), text);
    EXPECT_EQ(RollBack(), kForeignContent);
    EXPECT_EQ(Rcs(), text);
    const std::wstring kept = Left(L".old.tmp");
    store.reset();
    EXPECT_EQ(FileBytes(kept), "old text");
    EXPECT_TRUE(DeleteFileW(kept.c_str()));
  }
}

TEST_F(WindowsStoreReplaceTest, FileInGapDuringCallIsReplaced) {
  for (const char* text : {"foreign!", "new text"}) {
    WriteFileBytes(profile.Rcs(), "old text");
    OpenPrepared();
    calls->on_replace = [&](const std::wstring& displaced, BOOL& answer) {
      EXPECT_TRUE(MoveFileExW(profile.Rcs().c_str(), displaced.c_str(), 0));
      WriteFileBytes(profile.Rcs(), text);
      return FailWith(ERROR_UNABLE_TO_MOVE_REPLACEMENT_2, answer);
    };
    EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
    EXPECT_TRUE(store->HasReplacedRcs());
    EXPECT_NE(RollBack(), L"");
    EXPECT_EQ(Rcs(), text);
    const std::wstring kept = Left(L".old.tmp");
    store.reset();
    EXPECT_EQ(FileBytes(kept), "old text");
    EXPECT_TRUE(DeleteFileW(kept.c_str()));
  }
}

TEST_F(WindowsStoreReplaceTest, SameTextOfAnotherRunIsForeign) {
  OpenPrepared();
  calls->on_replace = [this](const std::wstring&, BOOL& answer) {
    WriteUnnoticed(profile.Rcs(), "new text");
    return FailWith(ERROR_SHARING_VIOLATION, answer);
  };
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 32)");
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "new text");
}

TEST_F(WindowsStoreReplaceTest, UnreadableOutcomeCountsAsReplaced) {
  for (const bool is_unlocked_again : {false, true}) {
    OpenPrepared();
    kestrune::FileHandle lock;
    calls->on_replace = [&](const std::wstring&, BOOL& answer) {
      if (!lock) {
        lock.Reset(CreateFileW(profile.Rcs().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0,
                               nullptr));
      }
      return FailWith(ERROR_SHARING_VIOLATION, answer);
    };
    EXPECT_EQ(Commit(), L"Replace RCS (Win32 32)");
    EXPECT_TRUE(store->HasReplacedRcs());
    if (is_unlocked_again) {
      lock.Reset();
    }
    // A file that can then be identified as the old one needs no rollback.
    EXPECT_EQ(RollBack(), is_unlocked_again ? L"" : L"Read RCS (Win32 32)");
    lock.Reset();
    EXPECT_EQ(Rcs(), "old text");
    CloseAndExpectNothingLeft();
  }
}

TEST_F(WindowsStoreReplaceTest, LostForeignTextIsRestoredAndNamed) {
  OpenPrepared();
  calls->on_replace = [this](const std::wstring& displaced, BOOL& answer) {
    WriteUnnoticed(profile.Rcs(), "foreign!");
    EXPECT_TRUE(MoveFileExW(profile.Rcs().c_str(), displaced.c_str(), 0));
    return FailWith(ERROR_UNABLE_TO_MOVE_REPLACEMENT_2, answer);
  };
  EXPECT_EQ(Commit(), kSourceChanged);
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "foreign!");
}

TEST_F(WindowsStoreReplaceTest, UnrestorableForeignTextPrecedesTheBackup) {
  OpenPrepared();
  calls->on_replace = [this](const std::wstring& displaced, BOOL& answer) {
    WriteUnnoticed(profile.Rcs(), "foreign!");
    EXPECT_TRUE(MoveFileExW(profile.Rcs().c_str(), displaced.c_str(), 0));
    return FailWith(ERROR_UNABLE_TO_MOVE_REPLACEMENT_2, answer);
  };
  calls->on_move = [](const std::wstring&, BOOL& answer) {
    return FailWith(ERROR_SHARING_VIOLATION, answer);
  };
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
  EXPECT_EQ(RollBack(), kForeignContent);
  EXPECT_EQ(Rcs(), "<missing>");
  const std::wstring kept = Left(L".old.tmp");
  store.reset();
  EXPECT_EQ(FileBytes(kept), "foreign!");
}

TEST_F(WindowsStoreReplaceTest, SecondForeignTextIsNotOverwritten) {
  OpenPrepared();
  calls->on_replace = [this](const std::wstring& displaced, BOOL& answer) {
    WriteUnnoticed(profile.Rcs(), "foreign!");
    kestrune::SystemCalls real;
    answer = real.Replace(kestrune::ExtendedPath(profile.Rcs()),
                          kestrune::ExtendedPath(Left(L".tmp")), kestrune::ExtendedPath(displaced));
    WriteUnnoticed(profile.Rcs(), "a third!");
    return true;
  };
  EXPECT_EQ(Commit(), kSourceChanged);
  EXPECT_TRUE(store->HasReplacedRcs());
  EXPECT_EQ(RollBack(), kForeignContent);
  EXPECT_EQ(Rcs(), "a third!");
  const std::wstring kept = Left(L".old.tmp");
  store.reset();
  EXPECT_EQ(FileBytes(kept), "foreign!");
}

TEST_F(WindowsStoreReplaceTest, DisplacedFileKeepsItsSecurity) {
  OpenPrepared();
  calls->on_replace = [this](const std::wstring& displaced, BOOL& answer) {
    RestrictToOwner(profile.Rcs());
    EXPECT_TRUE(MoveFileExW(profile.Rcs().c_str(), displaced.c_str(), 0));
    return FailWith(ERROR_UNABLE_TO_MOVE_REPLACEMENT_2, answer);
  };
  calls->on_move = UntilPatienceEnds(
      [](const std::wstring&, BOOL& answer) { return FailWith(ERROR_SHARING_VIOLATION, answer); });
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
  const FileSecurity foreign = [this] {
    kestrune::SystemCalls real;
    return ReadFileSecurity(real, kestrune::ExtendedPath(Left(L".old.tmp")), L"size", L"read");
  }();
  EXPECT_EQ(RollBack(), L"Concurrent/unknown RCS security change; refusing rollback overwrite.");
  EXPECT_EQ(Rcs(), "old text");
  EXPECT_TRUE(RealSecurity() == foreign);
}

TEST_F(WindowsStoreReplaceTest, DamagedBackupDoesNotBlockTheGap) {
  OpenPrepared();
  ReplaceStopsHalfWay();
  calls->on_move = UntilPatienceEnds(
      [](const std::wstring&, BOOL& answer) { return FailWith(ERROR_SHARING_VIOLATION, answer); });
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1177)");
  WriteFileBytes(Saved(L"DXP.RCS.before"), "damaged");
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
}

TEST_F(WindowsStoreReplaceTest, FailedCallWithEffectCountsAsReplaced) {
  OpenPrepared();
  calls->on_replace = OnCall(1, [this](const std::wstring& displaced, BOOL& answer) {
    kestrune::SystemCalls real;
    EXPECT_TRUE(real.Replace(kestrune::ExtendedPath(profile.Rcs()),
                             kestrune::ExtendedPath(Left(L".tmp")),
                             kestrune::ExtendedPath(displaced)));
    return FailWith(ERROR_IO_DEVICE, answer);
  });
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1117)");
  EXPECT_TRUE(store->HasReplacedRcs());
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

// Restoring the exact security

TEST_F(WindowsStoreReplaceTest, UnwritableDaclCountsAsReplaced) {
  OpenPrepared();
  calls->on_set_security = [](const std::wstring&, BOOL& answer) {
    return FailWith(ERROR_ACCESS_DENIED, answer);
  };
  EXPECT_EQ(Commit(), L"Restore exact RCS DACL (Win32 5)");
  EXPECT_TRUE(store->HasReplacedRcs());
  EXPECT_EQ(FailureText([&] { store->RestoreRcsSecurity(); }), L"Restore exact RCS DACL (Win32 5)");
}

TEST_F(WindowsStoreReplaceTest, DaclOrOwnerMismatchIsNamed) {
  OpenPrepared();
  const std::wstring original = SecurityText();
  const std::wstring dacl = original.substr(original.find(L"D:"));
  std::wstring answered;
  calls->on_get_security = [&](const std::wstring&, std::vector<std::byte>& descriptor) {
    descriptor = DescriptorFrom(answered.c_str());
    return true;
  };
  answered = original + L"(A;;FR;;;BG)";
  EXPECT_EQ(FailureText([&] { store->RestoreRcsSecurity(); }), L"RCS security readback mismatch.");
  answered = L"O:BGG:BG" + dacl;
  EXPECT_EQ(FailureText([&] { store->RestoreRcsSecurity(); }),
            L"RCS owner/group changed; manual recovery required.");
}

TEST_F(WindowsStoreReplaceTest, MismatchedDaclIsOursInTheRollback) {
  OpenPrepared();
  const std::wstring odd = SecurityText() + L"(A;;FR;;;BG)";
  bool is_odd = false;
  calls->on_set_security = [&](const std::wstring&, BOOL&) {
    is_odd = !is_odd;
    return false;
  };
  calls->on_get_security = [&](const std::wstring& path, std::vector<std::byte>& descriptor) {
    descriptor = DescriptorFrom(odd.c_str());
    return is_odd && path.ends_with(L"DXP.RCS");
  };
  EXPECT_EQ(Commit(), L"RCS security readback mismatch.");
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
}

TEST_F(WindowsStoreReplaceTest, UnreadableSecurityIsStillKnown) {
  OpenPrepared();
  int refusals = 0;
  calls->on_replace = OnCall(1, [&](const std::wstring&, BOOL&) {
    refusals = kTries;
    return false;
  });
  calls->on_get_security = [&](const std::wstring& path, std::vector<std::byte>&) {
    SetLastError(ERROR_ACCESS_DENIED);
    return path.ends_with(L"DXP.RCS") && refusals-- > 0;
  };
  EXPECT_EQ(Commit(), L"Query RCS security size (Win32 5)");
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
}

// Rolling back

TEST_F(WindowsStoreReplaceTest, HalfRestorationEndsWithTheRecoveryFile) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  ReplaceStopsHalfWay();
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, StuckRestorationKeepsEveryWorkingFile) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  ReplaceStopsHalfWay();
  calls->on_move = [](const std::wstring&, BOOL& answer) {
    return FailWith(ERROR_SHARING_VIOLATION, answer);
  };
  EXPECT_EQ(RollBack(), L"Restore RCS (Win32 1177)");
  EXPECT_EQ(Rcs(), "<missing>");
  const std::wstring displaced = Left(L".old.tmp");
  store.reset();
  EXPECT_EQ(FileBytes(displaced), "new text");
  EXPECT_EQ(FileBytes(profile.Rcs() + L".recovery"), "old text");
}

TEST_F(WindowsStoreReplaceTest, RecoveryFileOfAnotherRunIsKept) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  calls->on_create = [this](const std::wstring& path, BOOL&) {
    if (path.ends_with(L".recovery")) {
      WriteFileBytes(profile.Rcs() + L".recovery", "of another run");
    }
    return false;
  };
  EXPECT_EQ(RollBack(), L"Create recovery/temp file (Win32 80)");
  store.reset();
  EXPECT_EQ(FileBytes(profile.Rcs() + L".recovery"), "of another run");
}

TEST_F(WindowsStoreReplaceTest, RollbackRestoresTheSavedBytes) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, StaleRecoveryFileIsNoObstacle) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  WriteFileBytes(profile.Rcs() + L".recovery", "stale");
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, ForeignChangeIsNeverRolledBack) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  WriteUnnoticed(profile.Rcs(), "foreign!");
  EXPECT_EQ(RollBack(), kForeignContent);
  EXPECT_EQ(Rcs(), "foreign!");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, ForeignSecurityIsNeverRolledBack) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  RestrictToOwner(profile.Rcs());
  EXPECT_EQ(RollBack(), L"Concurrent/unknown RCS security change; refusing rollback overwrite.");
  EXPECT_EQ(Rcs(), "new text");
}

TEST_F(WindowsStoreReplaceTest, FileRemovedByOthersIsNotRestored) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  DeleteFileW(profile.Rcs().c_str());
  EXPECT_EQ(RollBack(), kForeignContent);
  EXPECT_EQ(Rcs(), "<missing>");
}

TEST_F(WindowsStoreReplaceTest, ChangeWhileWritingRecoveryStopsTheRollback) {
  for (const bool changes_content : {true, false}) {
    WriteFileBytes(profile.Rcs(), "old text");
    OpenPrepared();
    ASSERT_EQ(Commit(), L"");
    calls->on_create = [&](const std::wstring& path, BOOL&) {
      if (path.ends_with(L".recovery")) {
        if (changes_content) {
          WriteUnnoticed(profile.Rcs(), "foreign!");
        } else {
          RestrictToOwner(profile.Rcs());
        }
      }
      return false;
    };
    EXPECT_EQ(RollBack(), L"RCS content/security changed during rollback.");
    EXPECT_EQ(Rcs(), changes_content ? "foreign!" : "new text");
    calls->on_create = {};
    CloseAndExpectNothingLeft();
  }
}

TEST_F(WindowsStoreReplaceTest, LateChangeInRollbackIsMovedBack) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  calls->on_replace = [this](const std::wstring&, BOOL&) {
    WriteUnnoticed(profile.Rcs(), "foreign!");
    return false;
  };
  EXPECT_EQ(RollBack(), L"RCS content/security changed during rollback.");
  EXPECT_EQ(Rcs(), "foreign!");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, OwnerMismatchOfRecoveryStopsTheRollback) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  calls->on_create = [](const std::wstring& path, BOOL& answer) {
    return path.ends_with(L".recovery") && FailWith(ERROR_INVALID_OWNER, answer);
  };
  EXPECT_EQ(RollBack(),
            L"Cannot preserve recovery owner/group; recovery replacement not attempted.");
  EXPECT_EQ(Rcs(), "new text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, RestorationThatFailsNamesTheCode) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  calls->on_replace = [](const std::wstring&, BOOL& answer) {
    return FailWith(ERROR_ACCESS_DENIED, answer);
  };
  EXPECT_EQ(RollBack(), L"Restore RCS (Win32 5)");
  EXPECT_EQ(Rcs(), "new text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, MismatchedRestoredFileIsNamed) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  calls->on_set_security = [this](const std::wstring&, BOOL&) {
    WriteUnnoticed(profile.Rcs(), "torn txt");
    return false;
  };
  EXPECT_EQ(RollBack(), L"Rollback file validation failed.");
}

TEST_F(WindowsStoreReplaceTest, ChangedBackupIsNotRestored) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  WriteFileBytes(Saved(L"DXP.RCS.before"), "damaged");
  EXPECT_EQ(RollBack(), L"Rollback file validation failed.");
  EXPECT_EQ(Rcs(), "new text");
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
    const auto refuse_three = [&] {
      return [code, call = 0](const std::wstring&, BOOL& answer) mutable {
        return ++call <= 3 && FailWith(code, answer);
      };
    };
    calls->on_replace = refuse_three();
    EXPECT_EQ(Commit(), L"");
    EXPECT_EQ(calls->Waited(), 3 * kPauseBetweenTries);
    EXPECT_EQ(Rcs(), "new text");
    calls->on_replace = refuse_three();
    EXPECT_EQ(RollBack(), L"");
    EXPECT_EQ(calls->Waited(), 6 * kPauseBetweenTries);
    EXPECT_EQ(Rcs(), "old text");
    CloseAndExpectNothingLeft();
  }
}

TEST_F(WindowsStoreReplaceTest, LockThatStaysIsTriedTenTimes) {
  OpenPrepared();
  int tries = 0;
  calls->on_replace = [&](const std::wstring&, BOOL& answer) {
    ++tries;
    return FailWith(ERROR_SHARING_VIOLATION, answer);
  };
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 32)");
  EXPECT_EQ(tries, 10);
  EXPECT_EQ(calls->Waited(), 450U);
  EXPECT_FALSE(store->HasReplacedRcs());
}

TEST_F(WindowsStoreReplaceTest, OtherFailuresAreNotRetried) {
  OpenPrepared();
  int tries = 0;
  calls->on_replace = [&](const std::wstring&, BOOL& answer) {
    ++tries;
    return FailWith(ERROR_IO_DEVICE, answer);
  };
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 1117)");
  EXPECT_EQ(tries, 1);
}

TEST_F(WindowsStoreReplaceTest, ChangeDuringRetriesIsNotOverwritten) {
  OpenPrepared();
  calls->on_replace = OnCall(1, [this](const std::wstring&, BOOL& answer) {
    WriteFileBytes(profile.Rcs(), "foreign text");
    return FailWith(ERROR_SHARING_VIOLATION, answer);
  });
  EXPECT_EQ(Commit(), kSourceChanged);
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "foreign text");
}

TEST_F(WindowsStoreReplaceTest, ReplacementWithEffectIsNotRepeated) {
  OpenPrepared();
  int tries = 0;
  calls->on_replace = [&](const std::wstring& displaced, BOOL& answer) {
    kestrune::SystemCalls real;
    if (++tries == 1) {
      EXPECT_TRUE(real.Replace(kestrune::ExtendedPath(profile.Rcs()),
                               kestrune::ExtendedPath(Left(L".tmp")),
                               kestrune::ExtendedPath(displaced)));
      return FailWith(ERROR_SHARING_VIOLATION, answer);
    }
    return false;
  };
  EXPECT_EQ(Commit(), L"Replace RCS (Win32 32)");
  EXPECT_EQ(tries, 1);
  EXPECT_TRUE(store->HasReplacedRcs());
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
}

TEST_F(WindowsStoreReplaceTest, SharingViolationDelaysUndoingHalfReplacement) {
  OpenPrepared();
  ReplaceStopsHalfWay();
  calls->on_move = [call = 0](const std::wstring&, BOOL& answer) mutable {
    return ++call <= 3 && FailWith(ERROR_SHARING_VIOLATION, answer);
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

// Changes at the last moment

TEST_F(WindowsStoreReplaceTest, LateSecurityChangeIsMovedBack) {
  OpenPrepared();
  FileSecurity foreign;
  calls->on_replace = OnCall(1, [&](const std::wstring&, BOOL&) {
    RestrictToOwner(profile.Rcs());
    foreign = RealSecurity();
    return false;
  });
  EXPECT_EQ(Commit(), L"Source security changed or was not preserved.");
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "old text");
  EXPECT_TRUE(RealSecurity() == foreign);
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, LateSecurityInRollbackIsMovedBack) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  FileSecurity foreign;
  calls->on_replace = OnCall(1, [&](const std::wstring&, BOOL&) {
    RestrictToOwner(profile.Rcs());
    foreign = RealSecurity();
    return false;
  });
  EXPECT_EQ(RollBack(), L"RCS content/security changed during rollback.");
  EXPECT_EQ(Rcs(), "new text");
  EXPECT_TRUE(RealSecurity() == foreign);
}

TEST_F(WindowsStoreReplaceTest, OnlyExactSecurityIsOwnAfterRestoring) {
  OpenPrepared();
  const std::wstring odd = SecurityText() + L"(A;;FR;;;BG)";
  bool is_odd = false;
  calls->on_replace = [&](const std::wstring&, BOOL&) {
    is_odd = true;
    return false;
  };
  calls->on_set_security = [&](const std::wstring&, BOOL&) {
    is_odd = false;
    return false;
  };
  calls->on_get_security = [&](const std::wstring& path, std::vector<std::byte>& descriptor) {
    descriptor = DescriptorFrom(odd.c_str());
    return is_odd && path.ends_with(L"DXP.RCS");
  };
  // The security right after replacing counts as ours only until the exact one is restored.
  EXPECT_EQ(Commit(), L"");
  is_odd = true;
  EXPECT_EQ(RollBack(), L"Concurrent/unknown RCS security change; refusing rollback overwrite.");
  EXPECT_EQ(Rcs(), "new text");
}

TEST_F(WindowsStoreReplaceTest, DaclLossFailsWhilePreparing) {
  Open();
  store->CreateBackups("old text", {});
  const std::wstring odd = SecurityText() + L"(A;;FR;;;BG)";
  bool is_written = false;
  calls->on_set_security = [&](const std::wstring& path, BOOL&) {
    is_written = path.ends_with(L".tmp");
    return false;
  };
  calls->on_get_security = [&](const std::wstring&, std::vector<std::byte>& descriptor) {
    descriptor = DescriptorFrom(odd.c_str());
    return is_written;
  };
  EXPECT_EQ(FailureText([&] { store->PrepareReplacement("new text"); }),
            L"RCS security readback mismatch.");
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, ReplacementFileIsDeletedWithoutTheFile) {
  OpenPrepared();
  DeleteFileW(profile.Rcs().c_str());
  EXPECT_EQ(Commit(), L"Recheck profile (Win32 2)");
  CloseAndExpectNothingLeft();
}

// Displaced files that cannot be read

/// Returns a hook that fails to open files whose name ends in `ending`.
auto Unreadable(std::wstring_view ending) {
  return [ending](const SystemCall& call) {
    const bool is_other =
        !ending.starts_with(L".undone") && call.path.ends_with(L".undone.old.tmp");
    return call.name == "Create" && call.path.ends_with(ending) && !is_other
               ? std::optional<DWORD>(ERROR_LOCK_VIOLATION)
               : std::nullopt;
  };
}

TEST_F(WindowsStoreReplaceTest, UnreadableDisplacedFileIsMovedBack) {
  OpenPrepared();
  calls->before = Unreadable(L".old.tmp");
  EXPECT_EQ(Commit(), L"Read displaced RCS (Win32 33)");
  EXPECT_FALSE(store->HasReplacedRcs());
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, UnmovableDisplacedFileIsKeptAndNamed) {
  OpenPrepared();
  calls->before = Unreadable(L".old.tmp");
  calls->on_move = [](const std::wstring&, BOOL& answer) {
    return FailWith(ERROR_SHARING_VIOLATION, answer);
  };
  EXPECT_EQ(Commit(), L"Read displaced RCS (Win32 33)");
  EXPECT_TRUE(store->HasReplacedRcs());
  const std::wstring kept = Left(L".old.tmp");
  EXPECT_EQ(RollBack(), L"Read displaced RCS, kept as " +
                            std::wstring(kestrune::ExtendedPath(kept).Name()) + L" (Win32 33)");
  EXPECT_EQ(Rcs(), "old text");
  calls->before = {};
  store.reset();
  EXPECT_EQ(FileBytes(kept), "old text");
}

TEST_F(WindowsStoreReplaceTest, UnreadableUndoneFileIsKept) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  calls->before = Unreadable(L".undone.old.tmp");
  const std::wstring message = RollBack();
  const std::wstring kept = Left(L".undone.old.tmp");
  EXPECT_EQ(message, L"Read displaced RCS, kept as " +
                         std::wstring(kestrune::ExtendedPath(kept).Name()) + L" (Win32 33)");
  EXPECT_EQ(Rcs(), "old text");
  calls->before = {};
  store.reset();
  EXPECT_EQ(FileBytes(kept), "new text");
}

TEST_F(WindowsStoreReplaceTest, FailedMoveIsRetriedByTheRollback) {
  OpenPrepared();
  calls->on_replace = OnCall(1, [this](const std::wstring&, BOOL&) {
    WriteUnnoticed(profile.Rcs(), "foreign!");
    return false;
  });
  calls->on_move = UntilPatienceEnds(
      [](const std::wstring&, BOOL& answer) { return FailWith(ERROR_SHARING_VIOLATION, answer); });
  EXPECT_EQ(Commit(), kSourceChanged);
  EXPECT_TRUE(store->HasReplacedRcs());
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "foreign!");
  CloseAndExpectNothingLeft();
}

// Obstacles to a rollback

TEST_F(WindowsStoreReplaceTest, BlockedDisplacedNameDoesNotBlockRollback) {
  OpenPrepared();
  std::vector<std::wstring> displaced;
  calls->on_replace = [&](const std::wstring& name, BOOL&) {
    displaced.push_back(name);
    return false;
  };
  calls->on_delete = [](const std::wstring& path, BOOL& answer) {
    return path.ends_with(L".old.tmp") && FailWith(ERROR_SHARING_VIOLATION, answer);
  };
  EXPECT_EQ(Commit(), L"");
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  ASSERT_EQ(displaced.size(), 2U);
  EXPECT_NE(displaced[0], displaced[1]);
}

TEST_F(WindowsStoreReplaceTest, UndeletableRecoveryFileDoesNotBlockRollback) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  const std::wstring recovery = profile.Rcs() + L".recovery";
  ASSERT_TRUE(CreateDirectoryW(recovery.c_str(), nullptr));
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  store.reset();
  EXPECT_EQ(profile.Leftovers(), Names{L"DXP.RCS.recovery"});
}

TEST_F(WindowsStoreReplaceTest, ReadOnlyRecoveryFileGivesWay) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  const std::wstring recovery = profile.Rcs() + L".recovery";
  WriteFileBytes(recovery, "stale");
  ASSERT_TRUE(SetFileAttributesW(recovery.c_str(), FILE_ATTRIBUTE_READONLY));
  calls->on_delete = [](const std::wstring& path, BOOL& answer) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
           FailWith(ERROR_ACCESS_DENIED, answer);
  };
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WindowsStoreReplaceTest, RestorationWithEffectIsComplete) {
  OpenPrepared();
  ASSERT_EQ(Commit(), L"");
  calls->on_replace = OnCall(1, [this](const std::wstring& displaced, BOOL& answer) {
    kestrune::SystemCalls real;
    EXPECT_TRUE(real.Replace(kestrune::ExtendedPath(profile.Rcs()),
                             kestrune::ExtendedPath(profile.Rcs() + L".recovery"),
                             kestrune::ExtendedPath(displaced)));
    return FailWith(ERROR_IO_DEVICE, answer);
  });
  EXPECT_EQ(RollBack(), L"");
  EXPECT_EQ(Rcs(), "old text");
  CloseAndExpectNothingLeft();
}

// Whole transactions

class WholeTransactionTest : public WindowsStoreReplaceTest {
 protected:
  bool Run() {
    profile.SetText(L"Item3", L"A");
    Open();
    RegistrationChange change;
    change.rcs_before = store->ReadRcs();
    change.rcs_after = "new text";
    change.values_before = store->ReadGlobalProjects();
    std::wstring error;
    EXPECT_TRUE(PlanGlobalProjects(change.values_before, L"K", true, change.values_after, error));
    change.validate = [](std::string_view text) { return text == "new text"; };
    return RunTransaction(*store, change, message);
  }
  std::string Texts() {
    std::string joined;
    for (const wchar_t* name : {L"Item0", L"Item1", L"Item2", L"Item3"}) {
      wchar_t text[8] = {};
      DWORD size = sizeof text;
      joined += RegGetValueW(HKEY_CURRENT_USER, profile.Key().c_str(), name, RRF_RT_REG_SZ, nullptr,
                             text, &size) == ERROR_SUCCESS
                    ? static_cast<char>(text[0])
                    : '-';
    }
    return joined;
  }
  std::wstring message;
};

TEST_F(WholeTransactionTest, FileAndListEndInNewState) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(message, L"Commit validated; file and registry updated.");
  EXPECT_EQ(Rcs(), "new text");
  EXPECT_EQ(Texts(), "AK--");
  EXPECT_TRUE(FileBytes(Saved(L"operation.log"))
                  .ends_with("\r\nCommit validated; file and registry updated.\r\n"));
  CloseAndExpectNothingLeft();
}

TEST_F(WholeTransactionTest, SecondRunLeavesOnlyItsLog) {
  ASSERT_TRUE(Run());
  RegistrationChange change;
  Open();
  change.rcs_before = change.rcs_after = store->ReadRcs();
  change.values_before = change.values_after = store->ReadGlobalProjects();
  change.validate = [](std::string_view text) { return text == "new text"; };
  EXPECT_TRUE(RunTransaction(*store, change, message));
  EXPECT_EQ(message, L"Idempotent: no changes.");
  EXPECT_EQ(FolderEntries(store->BackupDirectory()), Names{L"operation.log"});
}

TEST_F(WholeTransactionTest, RegistryFailurePutsFileAndListBack) {
  int call = 0;
  calls->on_set_value = [&](LSTATUS& answer) {
    answer = ERROR_ACCESS_DENIED;
    return ++call == 2;
  };
  EXPECT_FALSE(Run());
  EXPECT_EQ(message,
            L"Write Global Projects value (registry 5) Rollback complete (or no owned writes).");
  EXPECT_EQ(Rcs(), "old text");
  EXPECT_EQ(Texts(), "---A");
  EXPECT_EQ(FileBytes(Saved(L"DXP.RCS.before")), "old text");
  CloseAndExpectNothingLeft();
}

TEST_F(WholeTransactionTest, ClosedKeyBlocksListButRestoresFile) {
  calls->on_delete_value = [](LSTATUS& answer) {
    answer = ERROR_ACCESS_DENIED;
    return true;
  };
  EXPECT_FALSE(Run());
  EXPECT_EQ(message,
            L"Remove Global Projects value (registry 5) Registry recovery blocked: Remove Global "
            L"Projects value (registry 5) MANUAL RECOVERY REQUIRED; backups retained.");
  EXPECT_EQ(Rcs(), "old text");
  EXPECT_EQ(Texts().back(), 'A');
}

}  // namespace
}  // namespace altium_registration
