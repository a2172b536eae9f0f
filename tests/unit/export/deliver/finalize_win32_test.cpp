#include "export/deliver/finalize_win32.h"

#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <functional>
#include <limits>
#include <new>
#include <optional>

#include "common/files/file_win32.h"
#include "common/log/log_win32.h"
#include "common/text/text.h"
#include "common/failure/windows_error_win32.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/scarce_memory.h"
#include "tests/support/machine/unix_link_win32.h"
#include "tests/support/process/noted_boxes_win32.h"
#include "tests/support/scripted_calls_win32.h"
#include "tests/support/machine/unknown_folders_win32.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;

/// Holds everything of a finalization but the box; what the box shows is in the outcome.
class FinalizeTest : public ExportTest {
 protected:
  void SetUp() override {
    ExportTest::SetUp();
    native_ = Scratch(L"native\\Bridge.zip");
    PutFile(native_, "PK archive");
  }

  FinalizeOutcome Deliver(const std::wstring& source = L"C:\\boards\\Main.PcbDoc") {
    return DeliverExport(folders_.local, native_, source, std::nullopt, doors_);
  }

  std::string Narrow(const std::wstring& text) const { return Utf8FromWide(text); }

  std::string BeginEntry(const std::wstring& destination) const {
    return Narrow(L"Stage: Finalize begin | SourcePCB=C:\\boards\\Main.PcbDoc NativeOutput=" +
                  native_ + L" Destination=" + destination);
  }

  std::string CopiedEntry(const std::wstring& destination) const {
    return Narrow(L"Stage: Finalize copied | Destination=" + destination + L" Size=10");
  }

  std::string FailedEntry(const wchar_t* exists, DWORD code) const {
    return Narrow(std::wstring(L"Stage: Finalize failed | NativeExists=") + exists +
                  L" NativeOutput=" + native_ + L" GetLastError=" + Decimal(code));
  }

  std::string ErrorEntry(const std::wstring& text, const std::wstring& path) const {
    return Narrow(L"Stage: Finalize error | Error=" + text + L" Path=" + path);
  }

  std::wstring Success(const std::wstring& destination) const {
    return L"ODB++ export successful.\n\nZIP:\n" + destination +
           L"\n\nSize: 0 KB\n\nThe ZIP file and its path were copied to the Clipboard.";
  }

  void ExpectGenericFailure(const FinalizeOutcome& outcome) const {
    EXPECT_EQ(outcome.code, 4);
    EXPECT_EQ(outcome.icon, MessageIcon::Error);
    EXPECT_EQ(outcome.message,
              L"ODB++ export finalization failed.\nStage: Copying native output\nSee log: " +
                  folders_.log);
  }

  std::wstring DefaultZip() const { return folders_.default_export + L"\\Main.zip"; }
  std::string DefaultEntry() const {
    return Narrow(L"Stage: Using default export directory | " + folders_.default_export);
  }

  std::wstring native_;
  ScriptedCalls calls_;
  NotedBoxes desktop_;
  Doors doors_{calls_, desktop_};
};

TEST_F(FinalizeTest, CopiesToDefaultDirectoryAndClipboard) {
  const FinalizeOutcome outcome = Deliver();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.icon, MessageIcon::Information);
  EXPECT_EQ(outcome.message, Success(DefaultZip()));
  EXPECT_EQ(FileBytes(DefaultZip()), "PK archive");
  EXPECT_EQ(FileBytes(native_), "PK archive");
  EXPECT_THAT(Log(),
              ElementsAre(BeginEntry(DefaultZip()), DefaultEntry(), CopiedEntry(DefaultZip())));
}

TEST_F(FinalizeTest, WithoutLocalDataItEndsWithTwo) {
  UnknownFolders folders;
  EXPECT_EQ(FinalizeExport({native_, L"Main.PcbDoc", {}}, {folders, desktop_}), 2);
  EXPECT_THAT(desktop_.boxes, ElementsAre(NotedBoxes::Box{
                                  L"Cannot determine the current Windows user profile directory.",
                                  MessageIcon::Error}));
}

TEST_F(FinalizeTest, WithoutPublicDocumentsItEndsWithTwo) {
  UnknownFolders folders;
  folders.listed_profile = Scratch(L"profile");
  EXPECT_EQ(FinalizeExport({std::nullopt, L"Main.PcbDoc", {}}, {folders, desktop_}), 2);
  EXPECT_TRUE(desktop_.boxes.empty());
  EXPECT_TRUE(Log().empty());
}

TEST_F(FinalizeTest, AnotherExportOfBoardReplacesArchive) {
  PutFile(DefaultZip(), "an older and longer archive");
  EXPECT_EQ(Deliver().code, 0);
  PutFile(native_, "PK");
  EXPECT_EQ(Deliver().code, 0);
  EXPECT_EQ(FileBytes(DefaultZip()), "PK");
  EXPECT_EQ(NamesIn(folders_.default_export), std::vector<std::wstring>{L"Main.zip"});
}

TEST_F(FinalizeTest, BoardNameDropsOnlyTheLastExtension) {
  EXPECT_EQ(Deliver(L"C:\\b\\Main.v2.PcbDoc").code, 0);
  EXPECT_EQ(Deliver(L"C:\\b\\.PcbDoc").code, 0);
  EXPECT_EQ(Deliver(L"Z\u00FC\u0416").code, 0);
  EXPECT_EQ(NamesIn(folders_.default_export),
            (std::vector<std::wstring>{L".PcbDoc.zip", L"Main.v2.zip", L"Z\u00FC\u0416.zip"}));
}

TEST_F(FinalizeTest, ConfiguredDirectoryIsUsedDefaultMade) {
  ASSERT_TRUE(TryCreateDirectories(Scratch(L"out")));
  SetEnvironmentVariableW(L"KESTRUNE_TEST_OUT", Scratch(L"out").c_str());
  Settings(L"[Export]\nDirectory=%KESTRUNE_TEST_OUT%\n");
  const std::wstring zip = Scratch(L"out\\Main.zip");
  const FinalizeOutcome outcome = Deliver();
  SetEnvironmentVariableW(L"KESTRUNE_TEST_OUT", nullptr);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.message, Success(zip));
  EXPECT_EQ(FileBytes(zip), "PK archive");
  EXPECT_TRUE(Exists(folders_.default_export));
  EXPECT_TRUE(NamesIn(folders_.default_export).empty());
  EXPECT_THAT(Log(),
              ElementsAre("Stage: Configured export directory | %KESTRUNE_TEST_OUT%",
                          Narrow(L"Stage: Using configured export directory | " + Scratch(L"out")),
                          BeginEntry(zip), CopiedEntry(zip)));
}

TEST_F(FinalizeTest, MissingConfiguredDirectoryIsNotMade) {
  Settings(L"[Export]\nDirectory=" + Scratch(L"none") + L"\n");
  EXPECT_EQ(Deliver().code, 0);
  EXPECT_FALSE(Exists(Scratch(L"none")));
  EXPECT_THAT(
      Log(),
      ElementsAre(Narrow(L"Stage: Configured export directory | " + Scratch(L"none")),
                  Narrow(L"Stage: Configured export directory unavailable | " + Scratch(L"none")),
                  BeginEntry(DefaultZip()), DefaultEntry(), CopiedEntry(DefaultZip())));
}

TEST_F(FinalizeTest, LockedConfiguredDestinationFallsBack) {
  const std::wstring zip = Scratch(L"out\\Main.zip");
  PutFile(zip, "old");
  Settings(L"[Export]\nDirectory=" + Scratch(L"out") + L"\n");
  const FileHandle lock = HoldOpen(zip, GENERIC_READ, 0);
  const FinalizeOutcome outcome = Deliver();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.message, Success(DefaultZip()));
  EXPECT_EQ(FileBytes(DefaultZip()), "PK archive");
  EXPECT_THAT(
      Log(), ElementsAre(Narrow(L"Stage: Configured export directory | " + Scratch(L"out")),
                         Narrow(L"Stage: Using configured export directory | " + Scratch(L"out")),
                         BeginEntry(zip),
                         Narrow(L"Stage: Configured export copy failed | Path=" + zip + L" Error=" +
                                WindowsErrorText(ERROR_SHARING_VIOLATION)),
                         DefaultEntry(), CopiedEntry(DefaultZip())));
}

TEST_F(FinalizeTest, TwoLockedDestinationsNameTheLast) {
  PutFile(Scratch(L"out\\Main.zip"), "old");
  PutFile(DefaultZip(), "old");
  Settings(L"[Export]\nDirectory=" + Scratch(L"out") + L"\n");
  const FileHandle lock = HoldOpen(Scratch(L"out\\Main.zip"), GENERIC_READ, 0);
  const FileHandle default_lock = HoldOpen(DefaultZip(), GENERIC_READ, 0);
  const FinalizeOutcome outcome = Deliver();
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(outcome.icon, MessageIcon::Error);
  EXPECT_EQ(outcome.message, L"Cannot overwrite the destination ZIP.\n\n" + DefaultZip() + L"\n\n" +
                                 WindowsErrorText(ERROR_SHARING_VIOLATION));
  EXPECT_EQ(Log().back(), FailedEntry(L"yes", ERROR_SHARING_VIOLATION));
}

TEST_F(FinalizeTest, ALockedDefaultDestinationIsAFailure) {
  PutFile(DefaultZip(), "old");
  const FileHandle lock = HoldOpen(DefaultZip(), GENERIC_READ, 0);
  const FinalizeOutcome outcome = Deliver();
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(outcome.message, L"Cannot overwrite the destination ZIP.\n\n" + DefaultZip() + L"\n\n" +
                                 WindowsErrorText(ERROR_SHARING_VIOLATION));
  EXPECT_THAT(Log(), ElementsAre(BeginEntry(DefaultZip()), ErrorEntry(L"copy", DefaultZip()),
                                 FailedEntry(L"yes", ERROR_SHARING_VIOLATION)));
}

TEST_F(FinalizeTest, AMissingArchiveFailsWithItsCode) {
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  ExpectGenericFailure(Deliver());
  EXPECT_THAT(Log(), ElementsAre(BeginEntry(DefaultZip()),
                                 ErrorEntry(L"Generated ZIP is missing or empty", native_),
                                 FailedEntry(L"no", ERROR_FILE_NOT_FOUND)));
  EXPECT_TRUE(Exists(folders_.default_export));
  EXPECT_FALSE(Exists(DefaultZip()));
}

TEST_F(FinalizeTest, EmptyArchiveOrFolderKeepsOldOne) {
  PutFile(DefaultZip(), "old");
  PutFile(native_, "");
  ExpectGenericFailure(Deliver());
  EXPECT_EQ(Log()[1], ErrorEntry(L"Generated ZIP is missing or empty", native_));
  EXPECT_TRUE(Log().back().starts_with("Stage: Finalize failed | NativeExists=yes"))
      << Log().back();
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  ASSERT_TRUE(TryCreateDirectories(native_));
  ExpectGenericFailure(Deliver());
  EXPECT_TRUE(Log().back().starts_with("Stage: Finalize failed | NativeExists=yes"))
      << Log().back();
  EXPECT_EQ(FileBytes(DefaultZip()), "old");
}

TEST_F(FinalizeTest, UnmakableDefaultDirectoryAlwaysFails) {
  ASSERT_TRUE(TryCreateDirectories(Scratch(L"out")));
  Settings(L"[Export]\nDirectory=" + Scratch(L"out") + L"\n");
  PutFile(folders_.default_export, "a file where the folder should be");
  ExpectGenericFailure(Deliver());
  EXPECT_EQ(Log().back(), FailedEntry(L"yes", ERROR_ALREADY_EXISTS));
  EXPECT_FALSE(Exists(Scratch(L"out\\Main.zip")));
}

TEST_F(FinalizeTest, ArchiveIsOpenUntilItIsCopied) {
  bool looked = false;
  calls_.before = On("Copy", [&](const SystemCall&) {
    looked = true;
    EXPECT_FALSE(DeleteFileW(native_.c_str()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_EQ(CreateFileW(native_.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                          nullptr, OPEN_EXISTING, 0, nullptr),
              INVALID_HANDLE_VALUE);
    return std::nullopt;
  });
  EXPECT_EQ(Deliver().code, 0);
  EXPECT_TRUE(looked);
  EXPECT_TRUE(DeleteFileW(native_.c_str())) << "and no longer";
}

TEST_F(FinalizeTest, ArchiveThatHostStillHoldsIsDelivered) {
  const FileHandle host =
      HoldOpen(native_, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE);
  EXPECT_EQ(Deliver().code, 0);
  EXPECT_EQ(FileBytes(DefaultZip()), "PK archive");
}

TEST_F(FinalizeTest, CopyOfReadOnlyArchiveIsWritable) {
  ASSERT_TRUE(SetFileAttributesW(native_.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(Deliver().code, 0);
  EXPECT_EQ(GetFileAttributesW(DefaultZip().c_str()) & FILE_ATTRIBUTE_READONLY, 0U);
  EXPECT_EQ(Deliver().code, 0) << "and again";
}

TEST_F(FinalizeTest, NameOfSettingsCountsInEitherDirectory) {
  Settings(L"[Export]\nFileName=rev-%BOARD%\n");
  EXPECT_EQ(Deliver().code, 0);
  EXPECT_EQ(NamesIn(folders_.default_export), std::vector<std::wstring>{L"rev-Main.zip"});
}

TEST_F(FinalizeTest, UnusableNameIsReplacedAndLogged) {
  Settings(L"[Export]\nFileName=..\\%BOARD%\n");
  EXPECT_EQ(Deliver().code, 0);
  EXPECT_EQ(NamesIn(folders_.default_export), std::vector<std::wstring>{L"Main.zip"});
  EXPECT_EQ(Log().front(), "Stage: Configured archive name unavailable | ..\\%BOARD%");
}

TEST_F(FinalizeTest, ATakenOverExportSaysNothing) {
  const std::wstring name = L"TAVORIN.Kestrune." + Decimal(GetCurrentProcessId());
  const FileHandle slot(CreateMailslotW((L"\\\\.\\mailslot\\" + name).c_str(), 0, 0, nullptr));
  Settings(L"[Target]\nEnabled=1\nExecutablePath=" + TestProgramPath(L"child_recorder") +
           L"\nArguments=%ODBPP%\nMailslotName=" + name + L"\n");
  const FinalizeOutcome outcome =
      DeliverExport(folders_.local, native_, L"Main.PcbDoc", 50000, doors_);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.message, L"");
  std::string message(2000, '\0');
  DWORD read = 0;
  ASSERT_TRUE(ReadFile(slot.Get(), message.data(), 2000, &read, nullptr));
  EXPECT_EQ(message.substr(0, read), "-bridge:\"AltiumDesigner\" -bridge-version:\"0.2.3\" " +
                                         Narrow(DefaultZip()) + " -space:5mil");
}

TEST_F(FinalizeTest, MissingApplicationIsNamedAfterSuccess) {
  Settings(L"[Target]\nEnabled=1\nExecutablePath=C:\\none.exe\n");
  const FinalizeOutcome outcome = Deliver();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.message,
            Success(DefaultZip()) +
                L"\n\nThe configured application was not started.\n"
                L"The configured after-export executable does not exist: C:\\none.exe");
}

TEST_F(FinalizeTest, HeldClipboardIsWarningWithInformationIcon) {
  ProgramRun holder(TestProgramPath(L"clipboard_reader"),
                    L"--hold " + Quoted(Scratch(L"held")) + L" 20000");
  for (int i = 0; i < 500 && !Exists(Scratch(L"held")); ++i) {
    Sleep(20);
  }
  const FinalizeOutcome outcome = Deliver();
  DeleteFileW(Scratch(L"held").c_str());
  EXPECT_EQ(holder.WaitForExit(20000), 0);
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.icon, MessageIcon::Information);
  EXPECT_EQ(outcome.message, L"ODB++ export successful.\n\nZIP:\n" + DefaultZip() +
                                 L"\n\nSize: 0 KB\n\nWarning: Cannot open the Windows Clipboard.");
}

/// Deliveries in a process that runs out of memory.
class FinalizeInScarcity : public FinalizeTest {
 protected:
  using Refused = ScarceMemory::Refused;
  static constexpr long kPoints = 80;

  /// Returns the number of attempted allocations; `outcome_` is empty when the exception escaped.
  long DeliverWith(long allowed, Refused refused) {
    outcome_.reset();
    const ScarceMemory memory(allowed, refused);
    try {
      outcome_ = DeliverExport(folders_.local, native_, board_, std::nullopt, doors_);
    } catch (const std::bad_alloc&) {
      // The dispatch reports it.
    }
    return ScarceMemory::Asked();
  }

  /// Repeats the delivery with a failure at each point, each time without an archive and a log.
  void DeliverAtEachPoint(Refused refused, const std::function<void()>& check) {
    const long all = DeliverWith(std::numeric_limits<long>::max(), Refused::One);
    ASSERT_EQ(outcome_->code, 0);
    ASSERT_GT(all, kPoints);
    for (long point = 0; point <= kPoints; ++point) {
      const long allowed = (all - 1) * point / kPoints;
      SCOPED_TRACE(testing::Message() << "allocation " << allowed << " of " << all);
      DeleteFileW(DefaultZip().c_str());
      DeleteFileW(folders_.log.c_str());
      DeliverWith(allowed, refused);
      if (!Exists(DefaultZip())) {
        EXPECT_TRUE(!outcome_ || outcome_->code == 4);
      } else {
        EXPECT_EQ(FileBytes(DefaultZip()), "PK archive");
      }
      check();
    }
  }

  std::wstring board_ = L"C:\\boards\\Main.PcbDoc";
  std::optional<FinalizeOutcome> outcome_;
};

TEST_F(FinalizeInScarcity, OneFailureIsReportedOrHarmless) {
  int failed = 0;
  DeliverAtEachPoint(Refused::One, [&] {
    ASSERT_TRUE(outcome_);
    if (outcome_->code == 4) {
      ++failed;
      ExpectGenericFailure(*outcome_);
      EXPECT_EQ(Log().back(), FailedEntry(L"yes", ERROR_NOT_ENOUGH_MEMORY));
    } else {
      EXPECT_EQ(outcome_->message.substr(0, 24), L"ODB++ export successful.");
    }
  });
  EXPECT_GT(failed, 0);
}

TEST_F(FinalizeInScarcity, LackOfMemoryTearsNoArchive) {
  int escaped = 0;
  DeliverAtEachPoint(Refused::AllFromThenOn, [&] { escaped += outcome_ ? 0 : 1; });
  EXPECT_GT(escaped, 0);
}

TEST_F(FinalizeTest, UnreadableSettingsAreSilentlyTheDefaults) {
  ASSERT_TRUE(TryCreateDirectories(folders_.common + L"\\Kestrune"));
  const UnreadableFile file(folders_.common_settings);
  if (!file.Works()) {
    GTEST_SKIP() << "this system tells the presence of a link to itself";
  }
  const FinalizeOutcome outcome = Deliver();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.message, Success(DefaultZip()));
  EXPECT_THAT(Log(),
              ElementsAre(BeginEntry(DefaultZip()), DefaultEntry(), CopiedEntry(DefaultZip())));
}

TEST_F(FinalizeTest, UnknownApplicationStatusFailsTheExport) {
  const UnreadableFile file(Scratch(L"loop.exe"));
  if (!file.Works()) {
    GTEST_SKIP() << "this system tells the presence of a link to itself";
  }
  Settings(L"[Target]\nEnabled=1\nExecutablePath=" + Scratch(L"loop.exe") + L"\n");
  ExpectGenericFailure(Deliver());
  EXPECT_EQ(FileBytes(DefaultZip()), "PK archive");
  EXPECT_EQ(Log().back(), FailedEntry(L"yes", ERROR_CANT_RESOLVE_FILENAME));
}

TEST_F(FinalizeTest, TheFailureMessageNamesTheLog) {
  EXPECT_EQ(FinalizeFailureMessage(RealCalls()),
            L"ODB++ export finalization failed.\nStage: Copying native output\nSee log: " +
                LogFilePath(RealCalls()));
}

}  // namespace
}  // namespace kestrune
