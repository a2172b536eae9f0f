#include "install/deploy/file_installation_win32.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <optional>

#include "common/file_time_win32.h"
#include "common/file_win32.h"
#include "common/path.h"
#include "common/sha256_win32.h"
#include "common/text.h"
#include "install/deploy/refusal.h"
#include "tests/support/install_fixture_win32.h"
#include "tests/support/small_disk_win32.h"
#include "tests/support/unix_link_win32.h"

namespace kestrune {
namespace {

std::string Content(char letter) {
  // More than two chunks of a copy, and no multiple of one.
  return std::string(70'000, letter);
}

/// Counts the calls and does something at one of them: refuse it, or end as a process would.
class StrikingCalls : public InstallCalls {
 public:
  enum class Strike { Never, Refuse, DieBefore, DieAfter };
  /// What unwinds a killed run: handles close, nothing else happens.
  struct Killed {};

  StrikingCalls() = default;
  StrikingCalls(int at, Strike strike) : at_(at), strike_(strike) {}

  std::optional<PackageTimestamp> ReadPackageTime(const std::wstring& source) override {
    std::optional<PackageTimestamp> timestamp;
    Call([&] {
      timestamp = InstallCalls::ReadPackageTime(source);
      return timestamp.has_value();
    });
    return timestamp;
  }
  bool GoToBeginning(HANDLE file) override {
    return Call([&] { return InstallCalls::GoToBeginning(file); });
  }
  bool Read(HANDLE file, void* bytes, DWORD size, DWORD& done) override {
    return Call([&] { return InstallCalls::Read(file, bytes, size, done); });
  }
  bool Write(HANDLE file, const void* bytes, DWORD size, DWORD& done) override {
    return Call([&] { return InstallCalls::Write(file, bytes, size, done); });
  }
  bool Truncate(HANDLE file) override {
    return Call([&] { return InstallCalls::Truncate(file); });
  }
  bool Flush(HANDLE file) override {
    return Call([&] { return InstallCalls::Flush(file); });
  }
  bool GetTime(HANDLE file, std::uint64_t& time) override {
    return Call([&] { return InstallCalls::GetTime(file, time); });
  }
  bool SetTime(HANDLE file, std::uint64_t time) override {
    return Call([&] { return InstallCalls::SetTime(file, time); });
  }

  [[nodiscard]] int Count() const { return count_; }

 private:
  bool Call(const std::function<bool()>& call) {
    const bool is_it = ++count_ == at_;
    if (is_it && strike_ == Strike::Refuse) {
      return false;
    }
    if (is_it && strike_ == Strike::DieBefore) {
      throw Killed{};
    }
    const bool result = call();
    if (is_it && strike_ == Strike::DieAfter) {
      throw Killed{};
    }
    return result;
  }

  int count_ = 0;
  int at_ = 0;
  Strike strike_ = Strike::Never;
};

using Strike = StrikingCalls::Strike;

constexpr std::optional<InstallVerdict> kRefused;

class FileInstallation : public InstallTest {
 protected:
  void SetUp() override {
    InstallTest::SetUp();
    source_ = Scratch(L"pkg\\file.txt");
    target_ = Scratch(L"rt\\file.txt");
    ASSERT_TRUE(CreateDirectories(Scratch(L"rt")));
    Put(source_, Content('n'), kLaterTime);
  }

  static void Put(const std::wstring& path, const std::string& bytes, std::uint64_t time) {
    PutFile(path, bytes);
    SetTimeOf(path, time);
  }

  void PutOldTarget() const { Put(target_, Content('o') + "older and longer", kPackageTime); }

  /// Writes the manifest of the source's folder.
  void PutManifest(const std::string& value, const std::wstring& name = L"BFM_x.ini") const {
    PutFile(JoinPath(ParentPath(source_), name), "[Files]\r\nfile.txt=" + value + "\r\n");
  }
  [[nodiscard]] std::string ManifestValue(const std::string& time) const {
    return time + "|" + Sha256OfFile(source_);
  }

  /// Returns nothing for a refusal, which is in message_.
  std::optional<InstallVerdict> Decide() {
    std::optional<InstallVerdict> verdict;
    NoteRefusal([&] {
      InstallCalls calls;
      verdict = DecideInstall(source_, target_, calls);
    });
    return verdict;
  }
  bool Install() {
    InstallCalls calls;
    return InstallWith(calls);
  }
  bool InstallWith(InstallCalls& calls) {
    return NoteRefusal([&] { InstallFile(source_, target_, calls); });
  }
  bool NoteRefusal(const std::function<void()>& act) {
    message_.clear();
    code_ = ERROR_SUCCESS;
    try {
      act();
      return true;
    } catch (const Refusal& refusal) {
      message_ = refusal.text + refusal.subject;
      code_ = refusal.code;
      return false;
    }
  }

  std::wstring source_;
  std::wstring target_;
  std::wstring message_;
  DWORD code_ = ERROR_SUCCESS;
};

TEST_F(FileInstallation, AMissingTargetIsInstalledWithThePackagesTime) {
  EXPECT_EQ(Decide(), InstallVerdict::Install);
  EXPECT_TRUE(Install());
  EXPECT_EQ(message_, L"");
  EXPECT_EQ(FileBytes(target_), Content('n'));
  EXPECT_EQ(TimeOf(target_), kLaterTime);
}

TEST_F(FileInstallation, OnlyAnOlderTargetIsReplaced) {
  for (const std::uint64_t time : {kLaterTime, kLaterTime + 1}) {
    Put(target_, "mine", time);
    EXPECT_EQ(Decide(), InstallVerdict::UpToDate);
    EXPECT_TRUE(Install());
    EXPECT_EQ(FileBytes(target_), "mine");
  }
  Put(target_, "mine", kLaterTime - 10'000'000);
  EXPECT_EQ(Decide(), InstallVerdict::Update);
  EXPECT_TRUE(Install());
  EXPECT_EQ(FileBytes(target_), Content('n'));
  EXPECT_EQ(TimeOf(target_), kLaterTime);
}

TEST_F(FileInstallation, AnEmptyFileIsInstalledAndReplacesALongerOne) {
  Put(source_, "", kLaterTime);
  EXPECT_TRUE(Install());
  EXPECT_EQ(FileBytes(target_), "");
  PutOldTarget();
  EXPECT_TRUE(Install());
  EXPECT_EQ(FileBytes(target_), "");
  EXPECT_EQ(TimeOf(target_), kLaterTime);
}

TEST_F(FileInstallation, TheManifestsTimeCountsAndNotTheFiles) {
  PutManifest(ManifestValue("01DC8000:00000000"));
  ASSERT_TRUE(Install());
  EXPECT_EQ(TimeOf(target_), 0x01DC800000000000ULL);
}

TEST_F(FileInstallation, AManifestBeyondTheClassicPathLengthIsNeverPassedOver) {
  source_ = Scratch(std::wstring(120, L'a') + L"\\" + std::wstring(120, L'b') + L"\\file.txt");
  Put(source_, "new", kPackageTime);
  EXPECT_EQ(Decide(), InstallVerdict::Install);
  // Whether the system reads settings from there or not, the file's own time is out of the
  // question.
  PutManifest(ManifestValue("01DC8000:00000000"));
  if (Install()) {
    EXPECT_EQ(TimeOf(target_), 0x01DC800000000000ULL);
  } else {
    EXPECT_EQ(message_, L"Cannot establish source last-write time: " + source_);
    EXPECT_FALSE(Exists(target_));
  }
}

TEST_F(FileInstallation, AManifestThatDoesNotVouchIsAFailure) {
  const std::string digest = Sha256OfFile(source_);
  const std::wstring text = L"Cannot establish source last-write time: " + source_;
  for (const std::string& value :
       {std::string(), "01DC8000:00000000|" + LowerAscii(digest), "00000000:00000000|" + digest,
        "01dc8000:00000000|" + digest, "01DC8000:00000000|" + std::string(64, '0'),
        "01DC8000:00000000|" + digest + "0"}) {
    PutManifest(value);
    EXPECT_EQ(Decide(), kRefused) << value;
    EXPECT_EQ(message_, text);
    EXPECT_FALSE(Install());
  }
  // Nor does one without the file, nor one of two.
  PutFile(Scratch(L"pkg\\BFM_x.ini"), "[Files]\r\nother.txt=x\r\n");
  EXPECT_EQ(Decide(), kRefused);
  PutManifest(ManifestValue("01DC8000:00000000"));
  EXPECT_EQ(Decide(), InstallVerdict::Install);
  PutManifest(ManifestValue("01DC8000:00000000"), L"bfm_y.INI");
  EXPECT_EQ(Decide(), kRefused);
  EXPECT_FALSE(Exists(target_));
}

TEST_F(FileInstallation, FoldersAndOtherNamesAreNoManifests) {
  ASSERT_TRUE(CreateDirectories(Scratch(L"pkg\\BFM_folder.ini")));
  PutFile(Scratch(L"pkg\\BFM_x.ini_old"), "");
  PutFile(Scratch(L"pkg\\xBFM_x.ini"), "");
  EXPECT_EQ(Decide(), InstallVerdict::Install);
}

TEST_F(FileInstallation, AnUnprovenOriginReplacesNothingButFillsAGap) {
  source_ = Scratch(L"My KestruneS\\file.txt");
  Put(source_, "new", kLaterTime);
  EXPECT_EQ(Decide(), InstallVerdict::Install);
  PutOldTarget();
  EXPECT_EQ(Decide(), kRefused);
  EXPECT_EQ(message_,
            L"Original bundled timestamp metadata unavailable; target preserved: " + target_);
  EXPECT_FALSE(Install());
  PutManifest(ManifestValue("01DD0000:00000000"));
  EXPECT_EQ(Decide(), InstallVerdict::Update);
  ASSERT_TRUE(RemoveTree(Scratch(L"rt\\file.txt")));
  ASSERT_TRUE(DeleteFileW(Scratch(L"My KestruneS\\BFM_x.ini").c_str()));
  EXPECT_TRUE(Install());
  EXPECT_EQ(FileBytes(target_), "new");
}

TEST_F(FileInstallation, WhatIsNoFileIsRefused) {
  ASSERT_TRUE(CreateDirectories(target_));
  EXPECT_EQ(Decide(), kRefused);
  EXPECT_EQ(message_, L"Cannot establish target last-write time; file preserved: " + target_);
  source_ = Scratch(L"pkg");
  EXPECT_EQ(Decide(), kRefused);
  EXPECT_EQ(message_, L"Cannot establish source last-write time: " + source_);
  source_ = Scratch(L"pkg\\missing");
  EXPECT_EQ(Decide(), kRefused);
}

TEST_F(FileInstallation, ATargetThatCannotBeAskedIsPreserved) {
  const UnreadableFile unreadable(target_);
  if (!unreadable.Works()) {
    GTEST_SKIP() << "every path can be asked here";
  }
  EXPECT_EQ(Decide(), kRefused);
  EXPECT_EQ(message_, L"Cannot establish target last-write time; file preserved: " + target_);
}

TEST_F(FileInstallation, ASourceWithoutFolderLiesWithItsManifestInTheCurrentOne) {
  PutManifest(ManifestValue("01DC8000:00000000"));
  wchar_t before[MAX_PATH] = {};
  GetCurrentDirectoryW(MAX_PATH, before);
  ASSERT_TRUE(SetCurrentDirectoryW(Scratch(L"pkg").c_str()));
  source_ = L"file.txt";
  const bool installed = Install();
  SetCurrentDirectoryW(before);
  EXPECT_TRUE(installed) << Utf8FromWide(message_);
  EXPECT_EQ(TimeOf(target_), 0x01DC800000000000ULL);
}

TEST_F(FileInstallation, ALinkIsNoSource) {
  const std::wstring link = Scratch(L"pkg\\link.txt");
  if (!MakeFileLink(link, source_)) {
    GTEST_SKIP() << "no link could be made here";
  }
  const bool is_shown = (GetFileAttributesW(link.c_str()) & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  source_ = link;
  const std::optional<InstallVerdict> verdict = Decide();
  RemoveLink(link);
  if (!is_shown) {
    GTEST_SKIP() << "the link was seen as a file: Wine may show links of the host system so";
  }
  EXPECT_EQ(verdict, kRefused);
  EXPECT_EQ(message_, L"Cannot establish source last-write time: " + link);
}

TEST_F(FileInstallation, LockedFilesAreNamed) {
  {
    const FileHandle writer = HoldOpen(source_, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_FALSE(Install());
    EXPECT_EQ(message_, L"Cannot lock source: " + source_);
    EXPECT_EQ(code_, DWORD{ERROR_SHARING_VIOLATION});
  }
  PutOldTarget();
  {
    const FileHandle reader = HoldOpen(target_, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_FALSE(Install());
    EXPECT_EQ(message_, L"Cannot lock target: " + target_);
    EXPECT_EQ(code_, DWORD{ERROR_SHARING_VIOLATION});
  }
  target_ = Scratch(L"no folder\\file.txt");
  EXPECT_FALSE(Install());
  EXPECT_EQ(message_, L"Cannot lock target: " + target_);
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
  EXPECT_FALSE(Install());
  EXPECT_EQ(message_, L"Cannot lock target: " + target_);
  ClearReadOnly(target_);
}

/// Lets something happen between the verdict and the second look.
class MeddlingCalls : public InstallCalls {
 public:
  explicit MeddlingCalls(std::function<bool(PackageTimestamp&)> meddle)
      : meddle_(std::move(meddle)) {}
  /// The first look is the verdict's.
  std::optional<PackageTimestamp> ReadPackageTime(const std::wstring& source) override {
    std::optional<PackageTimestamp> timestamp = InstallCalls::ReadPackageTime(source);
    if (++looks_ % 2 == 0 && timestamp && !meddle_(*timestamp)) {
      timestamp.reset();
    }
    return timestamp;
  }

 private:
  std::function<bool(PackageTimestamp&)> meddle_;
  int looks_ = 0;
};

TEST_F(FileInstallation, WhatChangedBeforeTheLocksIsSeen) {
  const std::wstring text = L"Timestamp changed or became unreadable; target preserved: " + target_;
  MeddlingCalls unreadable([](PackageTimestamp&) { return false; });
  EXPECT_FALSE(InstallWith(unreadable));
  EXPECT_EQ(message_, text);
  EXPECT_FALSE(Exists(target_));
  PutOldTarget();
  EXPECT_FALSE(InstallWith(unreadable));
  EXPECT_EQ(message_, text);
  MeddlingCalls unproven([](PackageTimestamp& timestamp) {
    timestamp.origin_proven = false;
    return true;
  });
  EXPECT_FALSE(InstallWith(unproven));
  EXPECT_EQ(message_, text);
  // A target that has become as new as the package is success, without a copy.
  MeddlingCalls older([](PackageTimestamp& timestamp) {
    timestamp.time = kPackageTime;
    return true;
  });
  EXPECT_TRUE(InstallWith(older));
  EXPECT_EQ(message_, L"");
  EXPECT_EQ(FileBytes(target_), Content('o') + "older and longer");
}

TEST_F(FileInstallation, ANewTargetNeedsNoProvenOrigin) {
  MeddlingCalls unproven([](PackageTimestamp& timestamp) {
    timestamp.origin_proven = false;
    return true;
  });
  EXPECT_TRUE(InstallWith(unproven));
}

TEST_F(FileInstallation, ARefusalAtAnyCallLeavesTheWholeFileOrNone) {
  StrikingCalls counting;
  ASSERT_TRUE(InstallWith(counting));
  for (int at = 1; at <= counting.Count(); ++at) {
    ASSERT_TRUE(RemoveTree(target_));
    StrikingCalls calls(at, Strike::Refuse);
    const bool installed = InstallWith(calls);
    EXPECT_EQ(Exists(target_), installed) << at;
    if (installed) {
      // Only the marks may be refused without consequence.
      EXPECT_EQ(FileBytes(target_), Content('n')) << at;
      EXPECT_EQ(TimeOf(target_), kLaterTime) << at;
    } else {
      const std::wstring text = at == 1   ? L"Cannot establish source last-write time: " + source_
                                : at <= 4 ? L"Timestamp changed or became unreadable; target "
                                            L"preserved: " +
                                                target_
                                          : L"Cannot install file: " + target_;
      EXPECT_EQ(message_, text) << at;
    }
  }
}

TEST_F(FileInstallation, ARefusalAtAnyCallOfAnUpdateLeavesTheOldOrTheNewFileWhole) {
  PutOldTarget();
  const std::string old_content = FileBytes(target_);
  StrikingCalls counting;
  ASSERT_TRUE(InstallWith(counting));
  int restored = 0;
  for (int at = 1; at <= counting.Count(); ++at) {
    PutOldTarget();
    StrikingCalls calls(at, Strike::Refuse);
    const bool installed = InstallWith(calls);
    EXPECT_EQ(FileBytes(target_), installed ? Content('n') : old_content) << at;
    EXPECT_EQ(TimeOf(target_), installed ? kLaterTime : kPackageTime) << at;
    if (!installed && at == 1) {
      EXPECT_EQ(message_, L"Cannot establish source last-write time: " + source_);
    } else if (!installed) {
      const std::wstring text = message_.substr(0, message_.find(L": ") + 2);
      EXPECT_EQ(message_, text + target_);
      EXPECT_TRUE(text == L"Timestamp changed or became unreadable; target preserved: " ||
                  text == L"Cannot back up target: " ||
                  text == L"Update failed; original restored: ")
          << at;
      restored += text.starts_with(L"Update failed") ? 1 : 0;
    }
  }
  EXPECT_GT(restored, 8);
}

TEST_F(FileInstallation, ARollbackThatFailsTooSaysSo) {
  /// Refuses every write from a moment on.
  class FullDisk : public InstallCalls {
   public:
    bool Write(HANDLE file, const void* bytes, DWORD size, DWORD& done) override {
      return ++writes_ <= 4 && InstallCalls::Write(file, bytes, size, done);
    }

   private:
    int writes_ = 0;
  };
  PutOldTarget();
  FullDisk calls;
  EXPECT_FALSE(InstallWith(calls));
  EXPECT_EQ(message_, L"Update and rollback failed: " + target_);
  // What is left is old, so that the next run repairs it.
  EXPECT_LT(TimeOf(target_), kLaterTime);
  EXPECT_TRUE(Install());
  EXPECT_EQ(FileBytes(target_), Content('n'));
}

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

TEST_F(FileInstallation, WithoutABackupNothingIsUpdated) {
  PutOldTarget();
  const std::string old_content = FileBytes(target_);
  const std::wstring folders[] = {Scratch(L"no such folder"),
                                  Scratch(L"deep\\" + std::wstring(240, L'd'))};
  for (const std::wstring& folder : folders) {
    const TemporaryFolderAt moved(folder);
    EXPECT_FALSE(Install());
    EXPECT_EQ(message_, L"Cannot create update backup; target preserved: " + target_);
    EXPECT_EQ(FileBytes(target_), old_content);
    EXPECT_EQ(TimeOf(target_), kPackageTime);
  }
}

TEST_F(FileInstallation, AnUpdateLeavesNoBackupBehind) {
  const std::wstring folder = Scratch(L"temp");
  ASSERT_TRUE(CreateDirectories(folder));
  const TemporaryFolderAt moved(folder);
  PutOldTarget();
  EXPECT_TRUE(Install());
  EXPECT_EQ(NamesIn(folder), std::vector<std::wstring>{});
}

TEST_F(FileInstallation, AnUpdateWithoutRoomForItsBackupLeavesTheOldFile) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  ASSERT_TRUE(disk.Fill());
  PutOldTarget();
  const std::string old_content = FileBytes(target_);
  {
    const TemporaryFolderAt moved(disk.Folder());
    EXPECT_FALSE(Install());
  }
  EXPECT_EQ(message_, L"Cannot back up target: " + target_);
  EXPECT_EQ(FileBytes(target_), old_content);
  EXPECT_EQ(TimeOf(target_), kPackageTime);
  EXPECT_EQ(NamesIn(disk.Folder()), std::vector<std::wstring>{});
}

TEST_F(FileInstallation, ANewFileWithoutRoomIsNotThere) {
  const SmallDisk disk;
  KESTRUNE_NEEDS_SMALL_DISK(disk);
  ASSERT_TRUE(disk.Fill());
  target_ = JoinPath(disk.Folder(), L"file.txt");
  EXPECT_FALSE(Install());
  EXPECT_EQ(message_, L"Cannot install file: " + target_);
  EXPECT_EQ(NamesIn(disk.Folder()), std::vector<std::wstring>{});
}

/// Lets something happen before a file is opened, and may refuse it.
class MeddlingOpen : public InstallCalls {
 public:
  explicit MeddlingOpen(std::function<bool(const std::wstring&)> meddle)
      : meddle_(std::move(meddle)) {}
  HANDLE Open(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition,
              DWORD flags) override {
    return meddle_(path) ? InstallCalls::Open(path, access, sharing, disposition, flags)
                         : INVALID_HANDLE_VALUE;
  }

 private:
  std::function<bool(const std::wstring&)> meddle_;
};

TEST_F(FileInstallation, ABackupThatCannotBeOpenedIsDeleted) {
  const std::wstring folder = Scratch(L"temp");
  ASSERT_TRUE(CreateDirectories(folder));
  const TemporaryFolderAt moved(folder);
  PutOldTarget();
  const std::string old_content = FileBytes(target_);
  int backups = 0;
  MeddlingOpen calls([&](const std::wstring& path) {
    const bool is_backup = FileName(path).starts_with(L"bfu");
    backups += is_backup ? 1 : 0;
    return !is_backup;
  });
  EXPECT_FALSE(InstallWith(calls));
  EXPECT_TRUE(message_.starts_with(L"Cannot open update backup: " + folder)) << message_.size();
  EXPECT_EQ(backups, 1);
  EXPECT_EQ(NamesIn(folder), std::vector<std::wstring>{});
  EXPECT_EQ(FileBytes(target_), old_content);
  EXPECT_EQ(TimeOf(target_), kPackageTime);
}

TEST_F(FileInstallation, WhatVanishesOrAppearsBeforeTheLocksFailsThem) {
  PutOldTarget();
  MeddlingOpen target_vanishes([&](const std::wstring& path) {
    return path != target_ || DeleteFileW(target_.c_str()) != FALSE;
  });
  EXPECT_FALSE(InstallWith(target_vanishes));
  EXPECT_EQ(message_, L"Cannot lock target: " + target_);
  EXPECT_FALSE(Exists(target_));
  // One that appears meanwhile is somebody else's.
  MeddlingOpen target_appears([&](const std::wstring& path) {
    if (path == target_) {
      PutFile(target_, "theirs");
    }
    return true;
  });
  EXPECT_FALSE(InstallWith(target_appears));
  EXPECT_EQ(message_, L"Cannot lock target: " + target_);
  EXPECT_EQ(FileBytes(target_), "theirs");
  ASSERT_TRUE(DeleteFileW(target_.c_str()));
  MeddlingOpen source_vanishes([&](const std::wstring& path) {
    return path != source_ || DeleteFileW(source_.c_str()) != FALSE;
  });
  EXPECT_FALSE(InstallWith(source_vanishes));
  EXPECT_EQ(message_, L"Cannot lock source: " + source_);
  EXPECT_FALSE(Exists(target_));
}

TEST_F(FileInstallation, BothFilesStayLockedUntilTheEnd) {
  class Prying : public InstallCalls {
   public:
    Prying(std::wstring from, std::wstring to) : source(std::move(from)), target(std::move(to)) {}
    bool Write(HANDLE file, const void* bytes, DWORD size, DWORD& done) override {
      Pry();
      return InstallCalls::Write(file, bytes, size, done);
    }
    bool Flush(HANDLE file) override {
      Pry();
      return InstallCalls::Flush(file);
    }
    /// The source may be read by others, the target not even that.
    void Pry() {
      constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
      for (const DWORD access : {DWORD{GENERIC_WRITE}, DWORD{DELETE}}) {
        Expect(source, access, kAll);
      }
      for (const DWORD access : {DWORD{GENERIC_READ}, DWORD{GENERIC_WRITE}, DWORD{DELETE}}) {
        Expect(target, access, kAll);
      }
      ++pries;
    }
    static void Expect(const std::wstring& path, DWORD access, DWORD sharing) {
      const FileHandle file(
          CreateFileW(path.c_str(), access, sharing, nullptr, OPEN_EXISTING, 0, nullptr));
      const DWORD code = GetLastError();
      EXPECT_FALSE(file) << Utf8FromWide(path) << " access " << access;
      EXPECT_TRUE(code == ERROR_SHARING_VIOLATION || code == ERROR_ACCESS_DENIED) << code;
    }

    std::wstring source;
    std::wstring target;
    int pries = 0;
  } calls(source_, target_);
  EXPECT_TRUE(InstallWith(calls));
  PutOldTarget();
  EXPECT_TRUE(InstallWith(calls));
  EXPECT_GT(calls.pries, 10);
}

TEST_F(FileInstallation, ATargetWithoutTimeIsPreserved) {
  class NoTime : public InstallCalls {
   public:
    bool GetTime(HANDLE, std::uint64_t& time) override {
      time = 0;
      return true;
    }
  } calls;
  PutOldTarget();
  const std::string old_content = FileBytes(target_);
  EXPECT_FALSE(InstallWith(calls));
  EXPECT_EQ(message_, L"Timestamp changed or became unreadable; target preserved: " + target_);
  EXPECT_EQ(FileBytes(target_), old_content);
  EXPECT_EQ(TimeOf(target_), kPackageTime);
}

TEST_F(FileInstallation, AShortWriteFailsTheCopy) {
  class ShortWrite : public InstallCalls {
   public:
    bool Write(HANDLE file, const void* bytes, DWORD size, DWORD& done) override {
      return InstallCalls::Write(file, bytes, size - 1, done);
    }
  };
  ShortWrite calls;
  EXPECT_FALSE(InstallWith(calls));
  EXPECT_EQ(message_, L"Cannot install file: " + target_);
  EXPECT_FALSE(Exists(target_));
}

TEST_F(FileInstallation, ANewTargetIsDeletedWhateverIsThrown) {
  class NoMemory : public InstallCalls {
   public:
    bool Flush(HANDLE) override { throw std::bad_alloc(); }
  } no_memory;
  EXPECT_THROW(static_cast<void>(InstallWith(no_memory)), std::bad_alloc);
  EXPECT_FALSE(Exists(target_));
}

TEST_F(FileInstallation, ATemplateProvesWhatWasMadeFromIt) {
  source_ = Scratch(L"My KestruneS\\file.txt");
  Put(source_, "new", kLaterTime);
  PutOldTarget();
  InstallCalls calls;
  EXPECT_TRUE(NoteRefusal([&] { InstallFile(source_, target_, calls, OriginProof::Template); }));
  EXPECT_EQ(FileBytes(target_), "new");
}

TEST_F(FileInstallation, AnUnfinishedFilesTimeLiesIn1980InEveryTimeZone) {
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

/// After every death the next installation ends with the whole file.
class DyingInstallation : public FileInstallation {
 protected:
  static constexpr std::uint64_t kOwnTime = kLaterTime + 36'000'000'000;

  /// The package's manifest says an earlier time than the source file has itself.
  void SetUp() override {
    FileInstallation::SetUp();
    if (HasFatalFailure() || IsSkipped()) {
      return;
    }
    SetTimeOf(source_, kOwnTime);
    const FILETIME time = SplitFileTime(kLaterTime);
    PutManifest(ManifestValue(Capitals(time.dwHighDateTime) + ":" + Capitals(time.dwLowDateTime)));
  }

  /// Eight hexadecimal digits.
  static std::string Capitals(DWORD value) {
    std::string digits(8, '0');
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, value /= 16) {
      *digit = "0123456789ABCDEF"[value % 16];
    }
    return digits;
  }

  void DieEverywhere(const std::function<void()>& begin, int allowed_apart) {
    begin();
    StrikingCalls counting;
    ASSERT_TRUE(InstallWith(counting));
    int apart = 0;
    for (int at = 1; at <= counting.Count(); ++at) {
      for (const Strike strike : {Strike::DieBefore, Strike::DieAfter}) {
        begin();
        StrikingCalls calls(at, strike);
        EXPECT_THROW(static_cast<void>(InstallWith(calls)), StrikingCalls::Killed);
        EXPECT_NE(TimeOf(target_), kOwnTime) << at;
        // Wine moves the time of a file on with each write although it was set; dying between the
        // write and the mark after it then leaves a file that looks new. Everywhere a new file
        // looks new between its creation and its first mark.
        const bool looks_new = TimeOf(target_) > kLaterTime;
        EXPECT_TRUE(Install()) << at << " " << Utf8FromWide(message_);
        if (looks_new) {
          apart += FileBytes(target_) == Content('n') ? 0 : 1;
          continue;
        }
        EXPECT_EQ(FileBytes(target_), Content('n')) << at;
        EXPECT_EQ(TimeOf(target_), kLaterTime) << at;
      }
    }
    EXPECT_LE(apart, allowed_apart);
  }
};

TEST_F(DyingInstallation, ANewTargetIsOlderThanAnyPackage) {
  // Before its first mark; and for each of three chunks after its write and before its mark.
  DieEverywhere([&] { ASSERT_TRUE(RemoveTree(target_)); }, RunsUnderWine() ? 7 : 1);
}

TEST_F(DyingInstallation, AnUpdatedTargetIsOlderThanAnyPackage) {
  DieEverywhere([&] { PutOldTarget(); }, RunsUnderWine() ? 6 : 0);
}

TEST_F(FileInstallation, CopyingTakesContentAndTimeFromWhereverThePositionsAre) {
  PutOldTarget();
  const FileHandle from = HoldOpen(source_, GENERIC_READ, FILE_SHARE_READ);
  const FileHandle to = HoldOpen(target_, GENERIC_READ | GENERIC_WRITE, 0);
  SetFilePointer(from.Get(), 5, nullptr, FILE_BEGIN);
  SetFilePointer(to.Get(), 0, nullptr, FILE_END);
  InstallCalls calls;
  CopyFileContent(from.Get(), to.Get(), calls);
  std::uint64_t time = 0;
  EXPECT_TRUE(calls.GetTime(to.Get(), time));
  EXPECT_EQ(time, kLaterTime);
  EXPECT_EQ(GetFileSize(to.Get(), nullptr), Content('n').size());
}

}  // namespace
}  // namespace kestrune
