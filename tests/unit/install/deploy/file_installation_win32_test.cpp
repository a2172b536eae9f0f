#include "install/deploy/file_installation_win32.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <optional>

#include "common/files/file_time_win32.h"
#include "common/files/file_win32.h"
#include "common/files/sha256_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "install/deploy/refusal.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/machine/small_disk_win32.h"
#include "tests/support/machine/unix_link_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/remove_tree_win32.h"
#include "tests/support/scripted_calls_win32.h"

namespace kestrune {
namespace {

/// The time that PutManifest gives a file.
constexpr std::uint64_t kManifestTime = 0x01DC'8000'0000'0000;

/// Returns more than two chunks of a copy, and no multiple of one.
std::string Content(char letter) {
  return std::string(70'000, letter);
}

std::string OldContent() {
  return Content('o') + "older and longer";
}

/// Counts the calls and makes one of them fail, or ends there like a killed process: no further
/// call is made, and all handles are closed.
class StrikingCalls : public ScriptedCalls {
 public:
  enum class Strike { Never, Refuse, DieBefore, DieAfter };

  explicit StrikingCalls(int at = 0, Strike strike = Strike::Never) {
    before = [=, this](const SystemCall&) -> std::optional<DWORD> {
      ++count_;
      const bool is_struck = count_ == at && strike != Strike::DieAfter;
      const bool is_dead = count_ > at && strike != Strike::Never && strike != Strike::Refuse;
      return is_struck || is_dead ? std::optional<DWORD>(ERROR_ACCESS_DENIED) : std::nullopt;
    };
    after = [=, this](const SystemCall&) {
      return count_ == at && strike == Strike::DieAfter ? std::optional<DWORD>(ERROR_ACCESS_DENIED)
                                                        : std::nullopt;
    };
  }

  [[nodiscard]] int Count() const { return count_; }

 private:
  int count_ = 0;
};

using Strike = StrikingCalls::Strike;

/// Gives this process another folder for temporary files until the end of the scope.
class TemporaryFolderAt {
 public:
  explicit TemporaryFolderAt(const std::wstring& folder) {
    GetEnvironmentVariableW(L"TMP", old_, MAX_PATH);
    SetEnvironmentVariableW(L"TMP", folder.c_str());
  }
  TemporaryFolderAt(const TemporaryFolderAt&) = delete;
  TemporaryFolderAt& operator=(const TemporaryFolderAt&) = delete;
  ~TemporaryFolderAt() { SetEnvironmentVariableW(L"TMP", old_[0] == L'\0' ? nullptr : old_); }

 private:
  wchar_t old_[MAX_PATH] = {};
};

class FileInstallation : public InstallTest {
 protected:
  void SetUp() override {
    InstallTest::SetUp();
    source_ = Scratch(L"pkg\\file.txt");
    target_ = Scratch(L"rt\\file.txt");
    ASSERT_TRUE(TryCreateDirectories(Scratch(L"rt")) && TryCreateDirectories(Scratch(L"temp")));
    temporary_.emplace(Scratch(L"temp"));
    Put(source_, Content('n'), kLaterTime);
  }

  static void Put(const std::wstring& path, const std::string& bytes, std::uint64_t time) {
    PutFile(path, bytes);
    SetTimeOf(path, time);
  }
  void PutOldTarget() const { Put(target_, OldContent(), kPackageTime); }

  /// Writes the manifest of the source's folder.
  void PutManifest(const std::string& value, const std::wstring& name = L"BFM_x.ini") const {
    PutFile(JoinPath(ParentPath(source_), name), "[Files]\r\nfile.txt=" + value + "\r\n");
  }
  [[nodiscard]] std::string Digest() const {
    return Sha256OfFile(RealCalls(), ExtendedPath(source_));
  }
  [[nodiscard]] std::string GoodValue() const { return "01DC8000:00000000|" + Digest(); }

  InstallVerdict Decide() { return DecideInstall(calls_, source_, target_); }
  /// Installs the file. Returns false for a failure, which is in message_ and code_.
  bool Install() { return InstallWith(calls_); }
  bool InstallWith(SystemCalls& calls, OriginProof proof = OriginProof::Source) {
    message_.clear();
    try {
      InstallFile(calls, source_, target_, proof);
      return true;
    } catch (const Refusal& refusal) {
      message_ = refusal.text + refusal.subject;
      code_ = refusal.code;
      return false;
    }
  }

  void ExpectRefused(const std::wstring& text) { ExpectRefused(text, target_); }
  void ExpectRefused(const std::wstring& text, const std::wstring& subject) {
    EXPECT_FALSE(Install());
    EXPECT_EQ(message_, text + subject);
  }
  void ExpectInstalled() {
    EXPECT_TRUE(Install()) << Utf8FromWide(message_);
    ExpectNewTarget();
  }
  void ExpectNewTarget() const {
    EXPECT_EQ(FileBytes(target_), Content('n'));
    EXPECT_EQ(TimeOf(target_), kLaterTime);
  }
  void ExpectOldTarget() const {
    EXPECT_EQ(FileBytes(target_), OldContent());
    EXPECT_EQ(TimeOf(target_), kPackageTime);
    EXPECT_EQ(NamesIn(Scratch(L"temp")), std::vector<std::wstring>{});
  }
  /// Does something before each call of this name for this path.
  void Before(std::string_view name, const std::wstring& path, const std::function<void()>& act) {
    calls_.before =
        [=, text = ExtendedPath(path).Text()](const SystemCall& call) -> std::optional<DWORD> {
      if (call.name == name && call.path == text) {
        act();
      }
      return std::nullopt;
    };
  }

  static constexpr const wchar_t* kNoSourceTime = L"Cannot establish source last-write time: ";
  static constexpr const wchar_t* kNoTargetTime =
      L"Cannot establish target last-write time; file preserved: ";
  static constexpr const wchar_t* kChanged =
      L"Timestamp changed or became unreadable; target preserved: ";
  static constexpr const wchar_t* kNoSourceLock = L"Cannot lock source: ";
  static constexpr const wchar_t* kNoTargetLock = L"Cannot lock target: ";
  static constexpr const wchar_t* kNotInstalled = L"Cannot install file: ";
  static constexpr const wchar_t* kNoBackup = L"Cannot create update backup; target preserved: ";
  static constexpr const wchar_t* kNotBackedUp = L"Cannot back up target: ";

  ScriptedCalls calls_;
  std::wstring source_;
  std::wstring target_;
  std::wstring message_;
  DWORD code_ = ERROR_SUCCESS;
  std::optional<TemporaryFolderAt> temporary_;
};

TEST_F(FileInstallation, MissingTargetIsInstalled) {
  EXPECT_EQ(Decide(), InstallVerdict::Install);
  ExpectInstalled();
}

TEST_F(FileInstallation, OnlyOlderTargetIsReplaced) {
  for (const std::uint64_t time : {kLaterTime, kLaterTime + 1}) {
    Put(target_, "mine", time);
    // The target need not be opened.
    const FileHandle held = HoldOpen(target_, GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(Decide(), InstallVerdict::UpToDate);
    EXPECT_TRUE(Install());
    EXPECT_EQ(FileBytes(target_), "mine");
  }
  Put(target_, "mine", kLaterTime - 10'000'000);
  EXPECT_EQ(Decide(), InstallVerdict::Update);
  ExpectInstalled();
  EXPECT_EQ(NamesIn(Scratch(L"temp")), std::vector<std::wstring>{});
}

TEST_F(FileInstallation, EmptyFileReplacesLongerOne) {
  Put(source_, "", kLaterTime);
  EXPECT_TRUE(Install());
  EXPECT_EQ(FileBytes(target_), "");
  PutOldTarget();
  EXPECT_TRUE(Install());
  EXPECT_EQ(FileBytes(target_), "");
  EXPECT_EQ(TimeOf(target_), kLaterTime);
}

TEST_F(FileInstallation, ManifestsTimeReplacesTheFiles) {
  PutManifest(GoodValue());
  ASSERT_TRUE(Install());
  EXPECT_EQ(TimeOf(target_), kManifestTime);
}

TEST_F(FileInstallation, RelativeSourceHasItsFoldersManifest) {
  PutManifest(GoodValue());
  wchar_t before[MAX_PATH] = {};
  GetCurrentDirectoryW(MAX_PATH, before);
  ASSERT_TRUE(SetCurrentDirectoryW(Scratch(L"pkg").c_str()));
  source_ = L"file.txt";
  const bool installed = Install();
  SetCurrentDirectoryW(before);
  EXPECT_TRUE(installed) << Utf8FromWide(message_);
  EXPECT_EQ(TimeOf(target_), kManifestTime);
}

TEST_F(FileInstallation, ManifestWithLongPathIsNeverIgnored) {
  source_ = Scratch(std::wstring(120, L'a') + L"\\" + std::wstring(120, L'b') + L"\\file.txt");
  Put(source_, "new", kPackageTime);
  EXPECT_EQ(Decide(), InstallVerdict::Install);
  // Even if the system cannot read this path, the file's own time must not be used.
  PutManifest(GoodValue());
  if (Install()) {
    EXPECT_EQ(TimeOf(target_), kManifestTime);
  } else {
    EXPECT_EQ(message_, kNoSourceTime + source_);
    EXPECT_FALSE(Exists(target_));
  }
}

TEST_F(FileInstallation, ManifestThatDoesNotMatchIsRefused) {
  const std::string time = "01DC8000:00000000|";
  for (const std::string& value :
       {std::string(), time + LowerAscii(Digest()), "00000000:00000000|" + Digest(),
        "01dc8000:00000000|" + Digest(), time + std::string(64, '0'), GoodValue() + "0"}) {
    PutManifest(value);
    ExpectRefused(kNoSourceTime, source_);
  }
  // Nor may the file be absent from it, or a second one exist.
  PutFile(Scratch(L"pkg\\BFM_x.ini"), "[Files]\r\nother.txt=x\r\n");
  ExpectRefused(kNoSourceTime, source_);
  PutManifest(GoodValue());
  EXPECT_EQ(Decide(), InstallVerdict::Install);
  PutManifest(GoodValue(), L"bfm_y.INI");
  ExpectRefused(kNoSourceTime, source_);
  EXPECT_FALSE(Exists(target_));
}

TEST_F(FileInstallation, FoldersAndOtherNamesAreNoManifests) {
  ASSERT_TRUE(TryCreateDirectories(Scratch(L"pkg\\BFM_folder.ini")));
  PutFile(Scratch(L"pkg\\BFM_x.ini_old"), "");
  PutFile(Scratch(L"pkg\\xBFM_x.ini"), "");
  EXPECT_EQ(Decide(), InstallVerdict::Install);
}

TEST_F(FileInstallation, UnprovenOriginReplacesNothing) {
  source_ = Scratch(L"My KestruneS\\file.txt");
  Put(source_, Content('n'), kLaterTime);
  ExpectInstalled();
  PutOldTarget();
  ExpectRefused(L"Original bundled timestamp metadata unavailable; target preserved: ");
  ExpectOldTarget();
  PutManifest("01DD0000:00000000|" + Digest());
  EXPECT_EQ(Decide(), InstallVerdict::Update);
  ASSERT_TRUE(DeleteFileW(Scratch(L"My KestruneS\\BFM_x.ini").c_str()));
  EXPECT_TRUE(InstallWith(calls_, OriginProof::Template));
  ExpectNewTarget();
}

TEST_F(FileInstallation, SourceAndTargetMustBeFiles) {
  ASSERT_TRUE(TryCreateDirectories(target_));
  ExpectRefused(kNoTargetTime);
  EXPECT_EQ(code_, 0U);
  for (const wchar_t* source : {L"pkg", L"pkg\\missing"}) {
    source_ = Scratch(source);
    ExpectRefused(kNoSourceTime, source_);
  }
}

TEST_F(FileInstallation, TargetWithoutReadableTimeIsPreserved) {
  PutOldTarget();
  calls_.before = [&](const SystemCall& call) {
    return call.name == "GetAttributes" && call.path == ExtendedPath(target_).Text()
               ? std::optional<DWORD>(ERROR_CANT_RESOLVE_FILENAME)
               : std::nullopt;
  };
  ExpectRefused(kNoTargetTime);
  EXPECT_EQ(code_, DWORD{ERROR_CANT_RESOLVE_FILENAME});
  class NoTime : public SystemCalls {
   public:
    BOOL GetWriteTime(HANDLE, FILETIME* time) override {
      *time = {};
      return TRUE;
    }
  } no_time;
  EXPECT_FALSE(InstallWith(no_time));
  EXPECT_EQ(message_, kChanged + target_);
  ExpectOldTarget();
}

TEST_F(FileInstallation, FilesWithoutTimeAreRefused) {
  PutOldTarget();
  class NoTimeOfOne : public SystemCalls {
   public:
    std::wstring path;
    BOOL GetAttributes(const ExtendedPath& asked, WIN32_FILE_ATTRIBUTE_DATA* data) override {
      const BOOL found = SystemCalls::GetAttributes(asked, data);
      if (asked.Text() == ExtendedPath(path).Text()) {
        data->ftLastWriteTime = {};
      }
      return found;
    }
  } calls;
  for (const auto& [path, text] : {std::pair(source_, kNoSourceTime), {target_, kNoTargetTime}}) {
    calls.path = path;
    EXPECT_FALSE(InstallWith(calls));
    EXPECT_EQ(message_, text + path);
    EXPECT_EQ(code_, 0U);
  }
  ExpectOldTarget();
}

TEST_F(FileInstallation, ALinkIsNoSource) {
  const std::wstring link = Scratch(L"pkg\\link.txt");
  if (!MakeFileLink(link, source_)) {
    GTEST_SKIP() << "no link could be made here";
  }
  const bool is_shown = (GetFileAttributesW(link.c_str()) & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  source_ = link;
  const bool installed = Install();
  RemoveLink(link);
  if (!is_shown) {
    GTEST_SKIP() << "the link was seen as a file: Wine may show links of the host system so";
  }
  EXPECT_FALSE(installed);
  EXPECT_EQ(message_, kNoSourceTime + link);
}

TEST_F(FileInstallation, LockedFilesAreNamed) {
  {
    const FileHandle writer = HoldOpen(source_, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ExpectRefused(kNoSourceLock, source_);
    EXPECT_EQ(code_, DWORD{ERROR_SHARING_VIOLATION});
  }
  PutOldTarget();
  {
    const FileHandle reader = HoldOpen(target_, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ExpectRefused(kNoTargetLock);
    EXPECT_EQ(code_, DWORD{ERROR_SHARING_VIOLATION});
  }
  target_ = Scratch(L"no folder\\file.txt");
  ExpectRefused(kNoTargetLock);
  EXPECT_EQ(code_, DWORD{ERROR_PATH_NOT_FOUND});
}

TEST_F(FileInstallation, AReadOnlyTargetIsPreserved) {
  PutOldTarget();
  ASSERT_TRUE(SetFileAttributesW(target_.c_str(), FILE_ATTRIBUTE_READONLY));
  const FileHandle probe(CreateFileW(target_.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
  if (probe) {
    GTEST_SKIP() << "this Wine runs as root, whom a read-only mark does not stop";
  }
  ExpectRefused(kNoTargetLock);
  ClearReadOnly(RealCalls(), target_);
}

TEST_F(FileInstallation, ChangedTimesAreReadAgain) {
  source_ = Scratch(L"kestrunes\\file.txt");
  Put(source_, Content('n'), kLaterTime);
  const std::wstring manifest = Scratch(L"kestrunes\\BFM_x.ini");
  Before("Create", target_ + L".incoming", [&] { PutFile(manifest, "[Files]\r\n"); });
  ExpectRefused(kChanged);
  EXPECT_FALSE(Exists(target_));
  PutOldTarget();
  PutManifest("01DD0000:00000000|" + Digest());
  Before("Create", target_, [&] { EXPECT_TRUE(DeleteFileW(manifest.c_str())); });
  ExpectRefused(kChanged);
  // A target that has become as new as the package is success, without a copy.
  source_ = Scratch(L"pkg\\file.txt");
  Before("Create", target_, [&] { SetTimeOf(target_, kLaterTime); });
  EXPECT_TRUE(Install());
  EXPECT_EQ(FileBytes(target_), OldContent());
}

TEST_F(FileInstallation, FilesThatVanishOrAppearAreRefused) {
  PutOldTarget();
  Before("Create", target_, [&] { DeleteFileW(target_.c_str()); });
  ExpectRefused(kNoTargetLock);
  EXPECT_FALSE(Exists(target_));
  Before("Create", target_ + L".incoming", [&] { PutFile(target_, "of another program"); });
  ExpectRefused(kNoTargetLock);
  EXPECT_EQ(FileBytes(target_), "of another program");
  EXPECT_FALSE(Exists(target_ + L".incoming"));
  ASSERT_TRUE(DeleteFileW(target_.c_str()));
  Before("Create", source_, [&] { DeleteFileW(source_.c_str()); });
  ExpectRefused(kNoSourceLock, source_);
  EXPECT_FALSE(Exists(target_));
}

TEST_F(FileInstallation, RefusedCallLeavesWholeFileOrNone) {
  StrikingCalls counting;
  ASSERT_TRUE(InstallWith(counting));
  int refused = 0;
  for (int at = 1; at <= counting.Count(); ++at) {
    SCOPED_TRACE(at);
    ASSERT_TRUE(RemoveTree(target_));
    StrikingCalls calls(at, Strike::Refuse);
    if (InstallWith(calls)) {
      // Only marking the file as unfinished may fail without consequence.
      ExpectNewTarget();
      continue;
    }
    EXPECT_FALSE(Exists(target_));
    EXPECT_TRUE(message_ == kNoSourceTime + source_ || message_ == kNoTargetTime + target_ ||
                message_ == kNoSourceLock + source_ || message_ == kNoTargetLock + target_ ||
                message_ == kChanged + target_ || message_ == kNotInstalled + target_)
        << Utf8FromWide(message_);
    ++refused;
  }
  EXPECT_GT(refused, 15);
}

TEST_F(FileInstallation, RefusedCallLeavesOldOrNewFile) {
  PutOldTarget();
  StrikingCalls counting;
  ASSERT_TRUE(InstallWith(counting));
  int restored = 0;
  for (int at = 1; at <= counting.Count(); ++at) {
    SCOPED_TRACE(at);
    PutOldTarget();
    StrikingCalls calls(at, Strike::Refuse);
    if (InstallWith(calls)) {
      ExpectNewTarget();
      continue;
    }
    ExpectOldTarget();
    const bool is_restored = message_ == L"Update failed; original restored: " + target_;
    EXPECT_TRUE(is_restored || message_ == kNoSourceTime + source_ ||
                message_ == kNoTargetTime + target_ || message_ == kNoSourceLock + source_ ||
                message_ == kNoTargetLock + target_ || message_ == kChanged + target_ ||
                message_ == kNoBackup + target_ || message_ == kNotBackedUp + target_ ||
                message_.starts_with(L"Cannot open update backup: " + Scratch(L"temp\\bfu")))
        << Utf8FromWide(message_);
    restored += is_restored ? 1 : 0;
  }
  EXPECT_GT(restored, 8);
}

TEST_F(FileInstallation, FailedRollbackIsReportedAndRepairable) {
  PutOldTarget();
  calls_.before = [writes = 0](const SystemCall& call) mutable -> std::optional<DWORD> {
    return call.name == "Write" && ++writes > 4 ? std::optional<DWORD>(ERROR_DISK_FULL)
                                                : std::nullopt;
  };
  ExpectRefused(L"Update and rollback failed: ");
  calls_.before = {};
  ExpectInstalled();
}

TEST_F(FileInstallation, WithoutABackupNothingIsUpdated) {
  PutOldTarget();
  for (const std::wstring& folder : {std::wstring(L"none"), std::wstring(240, L'd')}) {
    temporary_.emplace(Scratch(folder));
    ExpectRefused(kNoBackup);
    ExpectOldTarget();
  }
  EXPECT_EQ(code_, DWORD{ERROR_FILENAME_EXCED_RANGE});
}

TEST_F(FileInstallation, FullDiskLeavesOldFileOrNone) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  ASSERT_TRUE(disk.Fill());
  PutOldTarget();
  temporary_.emplace(disk.Folder());
  ExpectRefused(kNotBackedUp);
  ExpectOldTarget();
  target_ = JoinPath(disk.Folder(), L"file.txt");
  ExpectRefused(kNotInstalled);
  EXPECT_EQ(NamesIn(disk.Folder()), std::vector<std::wstring>{});
}

/// Tries to open both files whenever one is written: others may read the source and not even read
/// the target.
TEST_F(FileInstallation, BothFilesStayLockedUntilTheEnd) {
  int tries = 0;
  std::wstring written = target_ + L".incoming";
  const auto expect_locked = [](const std::wstring& path, DWORD access) {
    constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const FileHandle file(
        CreateFileW(path.c_str(), access, kAll, nullptr, OPEN_EXISTING, 0, nullptr));
    const DWORD code = GetLastError();
    EXPECT_FALSE(file) << Utf8FromWide(path) << " access " << access;
    EXPECT_TRUE(code == ERROR_SHARING_VIOLATION || code == ERROR_ACCESS_DENIED) << code;
  };
  calls_.before = [&](const SystemCall& call) -> std::optional<DWORD> {
    if (call.name == "Write" || call.name == "Flush") {
      expect_locked(written, GENERIC_READ);
      for (const DWORD access : {DWORD{GENERIC_WRITE}, DWORD{DELETE}}) {
        expect_locked(source_, access);
        expect_locked(written, access);
      }
      ++tries;
    }
    return std::nullopt;
  };
  EXPECT_TRUE(Install());
  written = target_;
  PutOldTarget();
  EXPECT_TRUE(Install());
  EXPECT_GT(tries, 10);
}

TEST_F(FileInstallation, AShortWriteFailsTheCopy) {
  class ShortWrite : public SystemCalls {
   public:
    BOOL Write(HANDLE file, const void* bytes, DWORD size, DWORD* done) override {
      return SystemCalls::Write(file, bytes, size - 1, done);
    }
  } calls;
  EXPECT_FALSE(InstallWith(calls));
  EXPECT_EQ(message_, kNotInstalled + target_);
  EXPECT_EQ(code_, DWORD{ERROR_WRITE_FAULT});
  EXPECT_FALSE(Exists(target_));
}

TEST_F(FileInstallation, AnyExceptionDeletesTheNewFile) {
  calls_.before = [](const SystemCall& call) -> std::optional<DWORD> {
    return call.name == "Flush" ? throw std::bad_alloc() : std::nullopt;
  };
  EXPECT_THROW(static_cast<void>(Install()), std::bad_alloc);
  EXPECT_EQ(NamesIn(Scratch(L"rt")), std::vector<std::wstring>{});
}

TEST_F(FileInstallation, UnfinishedTimeIsIn1980InEveryZone) {
  constexpr std::int64_t kHour = 36'000'000'000;
  for (int offset = -12; offset <= 14; ++offset) {
    const FILETIME time =
        SplitFileTime(kUnfinishedTime + static_cast<std::uint64_t>(offset * kHour));
    SYSTEMTIME parts{};
    WORD date = 0;
    WORD hour = 0;
    EXPECT_TRUE(FileTimeToSystemTime(&time, &parts));
    EXPECT_EQ(parts.wYear, 1980) << offset;
    EXPECT_TRUE(FileTimeToDosDateTime(&time, &date, &hour)) << offset;
  }
}

/// Ends the process at each call. The next installation must end with the whole file.
class DyingInstallation : public FileInstallation {
 protected:
  static constexpr std::uint64_t kOwnTime = kManifestTime + 36'000'000'000;

  /// Writes a manifest with an earlier time than the source file has itself.
  void SetUp() override {
    FileInstallation::SetUp();
    if (HasFatalFailure() || IsSkipped()) {
      return;
    }
    SetTimeOf(source_, kOwnTime);
    PutManifest(GoodValue());
  }

  void DieEverywhere(const std::function<void()>& begin, int allowed_differences) {
    begin();
    StrikingCalls counting;
    ASSERT_TRUE(InstallWith(counting));
    int differences = 0;
    for (int at = 1; at <= counting.Count(); ++at) {
      for (const Strike strike : {Strike::DieBefore, Strike::DieAfter}) {
        begin();
        StrikingCalls calls(at, strike);
        static_cast<void>(InstallWith(calls));
        EXPECT_NE(TimeOf(target_), kOwnTime) << at;
        // Wine changes the time of a file with each write although it was set; dying between the
        // write and the mark after it then leaves a file that looks new. On every system a new file
        // looks new between its creation and its first mark.
        const bool looks_new = TimeOf(target_) > kManifestTime;
        EXPECT_TRUE(Install()) << at << " " << Utf8FromWide(message_);
        if (looks_new) {
          differences += FileBytes(target_) == Content('n') ? 0 : 1;
          continue;
        }
        EXPECT_EQ(FileBytes(target_), Content('n')) << at;
        EXPECT_EQ(TimeOf(target_), kManifestTime) << at;
      }
    }
    EXPECT_LE(differences, allowed_differences);
  }
};

TEST_F(DyingInstallation, LeavesNewTargetOlderThanAnyPackage) {
  // Between its creation and its first mark; and for each of three chunks between its write and its
  // mark.
  DieEverywhere([&] { ASSERT_TRUE(RemoveTree(target_)); }, RunsUnderWine() ? 8 : 2);
}

TEST_F(DyingInstallation, LeavesUpdatedTargetOlderThanAnyPackage) {
  DieEverywhere([&] { PutOldTarget(); }, RunsUnderWine() ? 6 : 0);
}

TEST_F(FileInstallation, ACopyStartsAtPositionZero) {
  PutOldTarget();
  const FileHandle from = HoldOpen(source_, GENERIC_READ, FILE_SHARE_READ);
  const FileHandle to = HoldOpen(target_, GENERIC_READ | GENERIC_WRITE, 0);
  SetFilePointer(from.Get(), 5, nullptr, FILE_BEGIN);
  SetFilePointer(to.Get(), 0, nullptr, FILE_END);
  CopyFileContent(calls_, from.Get(), to.Get());
  FILETIME time{};
  EXPECT_TRUE(calls_.GetWriteTime(to.Get(), &time));
  EXPECT_EQ(JoinFileTime(time), kLaterTime);
  EXPECT_EQ(GetFileSize(to.Get(), nullptr), Content('n').size());
}

}  // namespace
}  // namespace kestrune
