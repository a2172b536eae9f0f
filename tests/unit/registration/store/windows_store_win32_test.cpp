#include "registration/store/windows_store_win32.h"

#include <gtest/gtest.h>

#include <aclapi.h>
#include <sddl.h>

#include <string>
#include <vector>

#include "common/log/clock_time_win32.h"
#include "common/files/file_win32.h"
#include "common/files/sha256_win32.h"
#include "registration/store/backup_format.h"
#include "registration/transaction/global_projects.h"
#include "registration/rcs/rcs.h"
#include "tests/support/files_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/registration/store_fixture_win32.h"

namespace altium_registration {
namespace {

using kestrune::FileHandle;

using Names = std::vector<std::wstring>;

class WindowsStoreTest : public StoreTest {};

// Opening

TEST_F(WindowsStoreTest, ReadingLeavesFolderUnchanged) {
  WriteFileBytes(profile.Rcs() + L".recovery", "of a run that is rolling back");
  Open();
  EXPECT_EQ(store->ReadRcs(), "old text");
  EXPECT_TRUE(store->ReadGlobalProjects().empty());
  store->CheckSourceSecurity();
  EXPECT_FALSE(store->HasReplacedRcs());
  store.reset();
  EXPECT_EQ(FolderEntries(profile.Directory()), (Names{L"DXP.RCS", L"DXP.RCS.recovery"}));
}

TEST_F(WindowsStoreTest, CommitKeepsRecoveryFileOfAnotherRun) {
  WriteFileBytes(profile.Rcs() + L".recovery", "of a run that is rolling back");
  OpenPrepared();
  store->CommitReplacement();
  store.reset();
  EXPECT_EQ(profile.Leftovers(), Names{L"DXP.RCS.recovery"});
}

TEST_F(WindowsStoreTest, MissingFileNamesTheCode) {
  DeleteFileW(profile.Rcs().c_str());
  EXPECT_EQ(FailureText([&] { Open(); }), L"Read profile metadata (Win32 2)");
}

TEST_F(WindowsStoreTest, OnlyUnsafeAttributesAreRefused) {
  constexpr wchar_t kUnsafe[] = L"Unsafe/read-only RCS target.";
  SetFileAttributesW(profile.Rcs().c_str(), FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(FailureText([&] { Open(); }), kUnsafe);
  for (DWORD attribute = 1; attribute != 0; attribute <<= 1U) {
    SCOPED_TRACE(attribute);
    calls->after = On("GetAttributes", [&](const SystemCall& call) {
      call.attributes->dwFileAttributes = attribute;
      return std::nullopt;
    });
    const bool is_unsafe = attribute == FILE_ATTRIBUTE_READONLY ||
                           attribute == FILE_ATTRIBUTE_DIRECTORY ||
                           attribute == FILE_ATTRIBUTE_REPARSE_POINT;
    EXPECT_EQ(FailureText([&] { Open(); }), is_unsafe ? kUnsafe : L"");
    store.reset();
    EXPECT_EQ(FolderEntries(profile.Directory()), Names{L"DXP.RCS"});
  }
}

TEST_F(WindowsStoreTest, UnreadableSecurityIsNamedByItsStep) {
  calls->before = Failing("GetSecurity", ERROR_IO_DEVICE);
  EXPECT_EQ(FailureText([&] { Open(); }), L"Query RCS security size (Win32 1117)");
  calls->before = On("GetSecurity", [call = 0](const SystemCall&) mutable {
    return ++call == 2 ? std::optional<DWORD>(ERROR_IO_DEVICE) : std::nullopt;
  });
  EXPECT_EQ(FailureText([&] { Open(); }), L"Read RCS security (Win32 1117)");
}

// Reading the file

TEST_F(WindowsStoreTest, FileOpenForWritingIsNotRead) {
  Open();
  const FileHandle writer(CreateFileW(profile.Rcs().c_str(), GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                      nullptr));
  EXPECT_EQ(FailureText([&] { static_cast<void>(store->ReadRcs()); }), L"Open RCS (Win32 32)");
}

TEST_F(WindowsStoreTest, FileAboveTheLimitIsRefused) {
  WriteFileBytes(profile.Rcs(), std::string(kMaxRcsBytes, 'x'));
  Open();
  EXPECT_EQ(store->ReadRcs().size(), kMaxRcsBytes);
  WriteFileBytes(profile.Rcs(), std::string(kMaxRcsBytes + 1, 'x'));
  EXPECT_EQ(FailureText([&] { static_cast<void>(store->ReadRcs()); }), L"RCS exceeds limit.");
}

TEST_F(WindowsStoreTest, FileAboveFourGibibytesIsRefused) {
  {
    const FileHandle file(
        CreateFileW(profile.Rcs().c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    LARGE_INTEGER end{};
    end.QuadPart = 0x1'0000'000A;
    if (!SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN) || !SetEndOfFile(file.Get())) {
      GTEST_SKIP() << "no sparse file of 4 GiB here";
    }
  }
  Open();
  EXPECT_EQ(FailureText([&] { static_cast<void>(store->ReadRcs()); }), L"RCS exceeds limit.");
}

TEST_F(WindowsStoreTest, FileShorterThanItsSizeIsRefused) {
  Open();
  calls->after = On("GetSize", [](const SystemCall& call) {
    call.size->QuadPart = 9;
    return std::nullopt;
  });
  EXPECT_EQ(FailureText([&] { static_cast<void>(store->ReadRcs()); }), L"Read RCS (Win32 38)");
}

// Reading and writing the key

TEST_F(WindowsStoreTest, ValuesOfEveryTypeComeBackExactly) {
  std::vector<RegistryValue> values;
  for (const std::uint32_t type : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 0x12345U}) {
    values.push_back({L"v" + std::to_wstring(type),
                      type,
                      {std::byte{1}, std::byte{2}, std::byte{3}, std::byte{4}, std::byte{5}}});
    values.push_back({L"empty" + std::to_wstring(type), type, {}});
  }
  values.push_back({L"", kRegistryText, TextData(L"the default value")});
  values.push_back({std::wstring(1000, L'n'), kRegistryText, {std::byte{'x'}}});
  Open();
  for (const RegistryValue& value : values) {
    store->WriteGlobalProjectsValue(value);
  }
  EXPECT_TRUE(SameValues(store->ReadGlobalProjects(), values));
}

TEST_F(WindowsStoreTest, ValueAboveTheLimitIsRefused) {
  Open();
  RegistryValue large{L"Item0", 3, std::vector<std::byte>(kMaxRegistryValueBytes)};
  store->WriteGlobalProjectsValue(large);
  EXPECT_EQ(store->ReadGlobalProjects().at(0).data.size(), kMaxRegistryValueBytes);
  large.data.push_back(std::byte{0});
  store->WriteGlobalProjectsValue(large);
  EXPECT_EQ(FailureText([&] { static_cast<void>(store->ReadGlobalProjects()); }),
            L"Registry value exceeds safe limit.");
}

TEST_F(WindowsStoreTest, HundredThousandValuesAreRead) {
  {
    kestrune::RegistryKey key;
    ASSERT_EQ(calls->CreateKey(HKEY_CURRENT_USER, profile.Key(), KEY_SET_VALUE, key.Put()),
              ERROR_SUCCESS);
    for (int i = 0; i < 100'000; ++i) {
      const std::wstring name = L"Item" + std::to_wstring(i);
      ASSERT_EQ(calls->SetValue(key.Get(), name, REG_SZ, L"x", 4), ERROR_SUCCESS);
    }
  }
  Open();
  EXPECT_EQ(store->ReadGlobalProjects().size(), 100'000U);
}

TEST_F(WindowsStoreTest, ValueThatChangedDuringReadIsRefused) {
  Open();
  profile.SetText(L"Item0", L"x");
  const auto failure = [&] {
    return FailureText([&] { static_cast<void>(store->ReadGlobalProjects()); });
  };
  for (const auto& change : std::initializer_list<std::function<void(const SystemCall&)>>{
           [](const SystemCall& call) { *call.type = REG_BINARY; },
           [](const SystemCall& call) { *call.bytes -= 2; }}) {
    calls->after = On("QueryValue", [&](const SystemCall& call) {
      change(call);
      return std::nullopt;
    });
    EXPECT_EQ(failure(), L"Registry changed during read.");
  }
  calls->after = Failing("QueryValue", ERROR_MORE_DATA);
  EXPECT_EQ(failure(), L"Registry changed during read.");
  calls->after = {};
  EXPECT_EQ(failure(), L"");
}

TEST_F(WindowsStoreTest, KeyIsOpenedWithNeededAccessOnly) {
  profile.SetText(L"Item0", L"x");
  kestrune::RegistryKey key;
  ASSERT_EQ(
      RegOpenKeyExW(HKEY_CURRENT_USER, profile.Key().c_str(), 0, KEY_READ | WRITE_DAC, key.Put()),
      ERROR_SUCCESS);
  const auto allow = [&](const wchar_t* access) {
    kestrune::LocalMemory<void> dacl;
    return ConvertStringSecurityDescriptorToSecurityDescriptorW(access, SDDL_REVISION_1, dacl.Put(),
                                                                nullptr) &&
           RegSetKeySecurity(key.Get(), DACL_SECURITY_INFORMATION, dacl.Get()) == ERROR_SUCCESS;
  };
  if (!allow(L"D:P(D;;KW;;;WD)(A;;KR;;;WD)(A;;WD;;;OW)")) {
    GTEST_SKIP() << "the key's access cannot be restricted here";
  }
  Open();
  EXPECT_EQ(store->ReadGlobalProjects().size(), 1U);
  const std::wstring write_failure = FailureText([&] {
    store->WriteGlobalProjectsValue({L"Item1", kRegistryText, TextData(L"y")});
  });
  const std::wstring removal_failure =
      FailureText([&] { store->RemoveGlobalProjectsValue(L"Item0"); });
  ASSERT_TRUE(allow(L"D:(A;;KA;;;WD)"));
  if (write_failure.empty()) {
    GTEST_SKIP() << "the access list of a key is not enforced here";
  }
  EXPECT_EQ(write_failure, L"Open/create Global Projects (registry 5)");
  EXPECT_EQ(removal_failure, L"Open Global Projects for removal (registry 5)");
}

// Backups and log

TEST_F(WindowsStoreTest, BackupsHoldFileValuesInstanceAndSecurity) {
  profile.SetText(L"Item0", L"A");
  Open();
  store->CreateBackups("old text", store->ReadGlobalProjects());
  EXPECT_EQ(FolderEntries(store->BackupDirectory()),
            (Names{L"DXP.RCS.before", L"instance.txt", L"operation.log", L"registry.before.bin",
                   L"security.before.bin"}));
  EXPECT_EQ(FileBytes(Saved(L"DXP.RCS.before")), "old text");
  EXPECT_EQ(FileBytes(Saved(L"registry.before.bin")),
            RegistryBackup({{L"Item0", kRegistryText, TextData(L"A")}}));
  WIN32_FILE_ATTRIBUTE_DATA facts{};
  ASSERT_TRUE(GetFileAttributesExW(profile.Rcs().c_str(), GetFileExInfoStandard, &facts));
  EXPECT_EQ(
      FileBytes(Saved(L"instance.txt")),
      InstanceText({profile.Rcs(), profile.Branch(), facts.dwFileAttributes,
                    facts.ftLastWriteTime.dwHighDateTime, facts.ftLastWriteTime.dwLowDateTime}));
  EXPECT_EQ(FileBytes(Saved(L"operation.log")),
            "Before SHA256=" + kestrune::Sha256(kestrune::RealCalls(), "old text") + "\r\n");
  const std::vector<std::byte> security = RealSecurity().Bytes();
  EXPECT_EQ(FileBytes(Saved(L"security.before.bin")),
            std::string(reinterpret_cast<const char*>(security.data()), security.size()));
}

/// Returns the name of a backup directory of this process at a time, with a tick of 0.
std::wstring NameAt(const kestrune::ClockTime& utc) {
  return BackupDirectoryName({utc, GetCurrentProcessId(), 0});
}

TEST_F(WindowsStoreTest, BackupDirectoryHasGuidAndUtcTime) {
  SYSTEMTIME before{};
  SYSTEMTIME after{};
  GetSystemTime(&before);
  const ULONGLONG first_tick = GetTickCount64();
  Open();
  const ULONGLONG last_tick = GetTickCount64();
  GetSystemTime(&after);
  const std::wstring root = profile.Directory() + L"\\KestruneBackups\\{GUID}\\";
  ASSERT_TRUE(store->BackupDirectory().starts_with(root));
  const std::wstring name = store->BackupDirectory().substr(root.size());
  const std::size_t tick_at = name.rfind(L'_') + 1;
  const std::wstring stamp = name.substr(0, tick_at);
  // The parts before the tick have a fixed width, so their order is that of the times.
  EXPECT_LE(NameAt(kestrune::ClockTimeFrom(before)).substr(0, tick_at), stamp);
  EXPECT_LE(stamp, NameAt(kestrune::ClockTimeFrom(after)).substr(0, tick_at));
  const ULONGLONG tick = std::stoull(name.substr(tick_at));
  EXPECT_LE(first_tick, tick);
  EXPECT_LE(tick, last_tick);
}

TEST_F(WindowsStoreTest, SavedFileIsNeverOverwritten) {
  Open();
  ASSERT_TRUE(kestrune::TryCreateDirectories(store->BackupDirectory()));
  WriteFileBytes(Saved(L"DXP.RCS.before"), "foreign");
  EXPECT_EQ(FailureText([&] { store->CreateBackups("old text", {}); }), L"Backup RCS (Win32 80)");
  EXPECT_EQ(FileBytes(Saved(L"DXP.RCS.before")), "foreign");
}

TEST_F(WindowsStoreTest, FirstLogLineCreatesTheDirectory) {
  Open();
  EXPECT_EQ(FolderEntries(profile.Directory()), Names{L"DXP.RCS"});
  store->AppendLog("one");
  store->AppendLog("two \xE4");
  EXPECT_EQ(FileBytes(Saved(L"operation.log")), "one\r\ntwo \xE4\r\n");
  EXPECT_EQ(FolderEntries(store->BackupDirectory()), Names{L"operation.log"});
}

/// Reads the code of the failure of the next log line.
class LogFailureTest : public StoreTest {
 protected:
  DWORD Code() {
    try {
      store->AppendLog("x");
    } catch (const kestrune::Failure& failure) {
      return failure.code;
    }
    return ERROR_SUCCESS;
  }
};

TEST_F(LogFailureTest, CodeIsThatOfTheFailedCall) {
  Open();
  const std::pair<const char*, DWORD> rows[] = {
      {"Flush", ERROR_IO_DEVICE}, {"Write", ERROR_DISK_FULL}, {"Create", ERROR_SHARING_VIOLATION}};
  for (const auto& [name, code] : rows) {
    calls->before = Failing(name, code);
    EXPECT_EQ(Code(), code);
  }
  store.reset();
  calls->before = Failing("MakeDirectory", ERROR_WRITE_PROTECT);
  Open();
  EXPECT_EQ(Code(), DWORD{ERROR_WRITE_PROTECT});
}

/// Simulates a write that succeeds without writing anything, after an older failure.
CallHook WriteNothing() {
  return On("Write", [](const SystemCall& call) {
    *call.bytes = 0;
    return std::nullopt;
  });
}

TEST_F(LogFailureTest, ShortWriteHasItsOwnCode) {
  Open();
  calls->after = WriteNothing();
  SetLastError(ERROR_DISK_FULL);
  EXPECT_EQ(FailureText([&] { store->AppendLog("x"); }), L"Cannot write operation log.");
  EXPECT_EQ(Code(), DWORD{ERROR_WRITE_FAULT});
}

TEST_F(LogFailureTest, ShortReplacementWriteHasItsOwnCode) {
  Open();
  store->CreateBackups("old text", {});
  calls->after = WriteNothing();
  SetLastError(ERROR_DISK_FULL);
  EXPECT_EQ(FailureText([&] { store->PrepareReplacement("new text"); }),
            L"Write recovery/temp file (Win32 29)");
}

TEST_F(WindowsStoreTest, LongPathIsBackedUpAndReplaced) {
  std::wstring deep = profile.Directory();
  while (deep.size() < 300) {
    deep += L"\\0123456789012345678901234567890123456789";
  }
  ASSERT_TRUE(kestrune::TryCreateDirectories(deep));
  StoreTarget target = profile.Target();
  target.rcs_path = deep + L"\\DXP.RCS";
  WriteFileBytes(target.rcs_path, "old text");
  WindowsStore long_store(target, *calls);
  long_store.CreateBackups("old text", {});
  long_store.PrepareReplacement("new text");
  long_store.CommitReplacement();
  EXPECT_EQ(FileBytes(target.rcs_path), "new text");
  EXPECT_TRUE(FileBytes(long_store.BackupDirectory() + L"\\instance.txt").starts_with("RCS=C:\\"));
}

// Working files

TEST_F(WindowsStoreTest, ReplacementFileIsDeletedWithTheStore) {
  OpenPrepared();
  const Names left = profile.Leftovers();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_TRUE(left[0].starts_with(L"DXP.RCS.odbpp-"));
  EXPECT_TRUE(left[0].ends_with(L".tmp"));
  EXPECT_EQ(store->ReadReplacement(), "new text");
  EXPECT_TRUE(FileBytes(Saved(L"operation.log"))
                  .ends_with("Intended SHA256=" +
                             kestrune::Sha256(kestrune::RealCalls(), "new text") + "\r\n"));
  store.reset();
  EXPECT_EQ(profile.Leftovers(), Names{});
}

TEST_F(WindowsStoreTest, OnlyLeftoversOfDeadRunsAreCleared) {
  WriteFileBytes(profile.Rcs() + L".odbpp-4294967292_1_1.tmp", "dead");
  WriteFileBytes(profile.Rcs() + L".odbpp-.tmp", "dead");
  WriteFileBytes(profile.Rcs() + L".odbpp-4294967292_1_1.old.tmp", "displaced");
  WriteFileBytes(profile.Rcs() + L".odbpp.tmp", "foreign");
  const WindowsStore live_run(profile.Target(), *calls);
  WorkingFiles live = NameWorkingFiles(*calls, kestrune::ExtendedPath(profile.Rcs()));
  WriteFileBytes(live.replacement.Text(), "live");
  Open();
  EXPECT_EQ(profile.Leftovers().size(), 5U);
  store->AppendLog("first line");
  EXPECT_EQ(profile.Leftovers(),
            (Names{std::wstring(live.replacement.Name()), L"DXP.RCS.odbpp.tmp"}));
  EXPECT_EQ(FileBytes(Saved(L"DXP.RCS.odbpp-4294967292_1_1.old.tmp")), "displaced");
}

TEST_F(WindowsStoreTest, LeftoverOfEndedProcessIsCleared) {
  class EndedProcess : public kestrune::SystemCalls {
   public:
    BOOL GetExitCode(HANDLE, DWORD* code) override {
      *code = 0;
      return TRUE;
    }
  } ended;
  const kestrune::ExtendedPath rcs(profile.Rcs());
  WriteFileBytes(NameWorkingFiles(*calls, rcs).replacement.Text(), "dead");
  ClearLeftovers(ended, rcs, kestrune::ExtendedPath(profile.Directory()));
  EXPECT_EQ(profile.Leftovers(), Names{});
}

TEST_F(WindowsStoreTest, DisplacedFileStaysWhileRcsIsMissing) {
  WriteFileBytes(profile.Rcs() + L".odbpp-4294967292_1_1.old.tmp", "displaced");
  DeleteFileW(profile.Rcs().c_str());
  const std::wstring elsewhere = profile.Directory() + L"\\elsewhere";
  ASSERT_TRUE(kestrune::TryCreateDirectories(elsewhere));
  ClearLeftovers(*calls, kestrune::ExtendedPath(profile.Rcs()), kestrune::ExtendedPath(elsewhere));
  EXPECT_EQ(profile.Leftovers(), (Names{L"DXP.RCS.odbpp-4294967292_1_1.old.tmp", L"elsewhere"}));
}

/// Writes only half of the bytes in the first `torn_writes` calls.
class TearingCalls final : public ScriptedCalls {
 public:
  BOOL Write(HANDLE file, const void* bytes, DWORD size, DWORD* written) override {
    return ScriptedCalls::Write(file, bytes, torn_writes-- > 0 ? size / 2 : size, written);
  }
  int torn_writes = 0;
};

TEST_F(WindowsStoreTest, TornLogLineIsEnded) {
  auto tearing = std::make_unique<TearingCalls>();
  TearingCalls& script = *tearing;
  calls = std::move(tearing);
  Open().AppendLog("whole");
  script.torn_writes = 1;
  EXPECT_EQ(FailureText([&] { store->AppendLog("torn line"); }), L"Cannot write operation log.");
  store->AppendLog("next");
  EXPECT_EQ(FileBytes(Saved(L"operation.log")), "whole\r\ntorn \r\nnext\r\n");
}

}  // namespace
}  // namespace altium_registration
