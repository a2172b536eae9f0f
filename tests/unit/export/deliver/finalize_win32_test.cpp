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
#include "tests/support/export/finalize_fixture_win32.h"
#include "tests/support/export/mailslot_win32.h"
#include "tests/support/export/refused_call_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/scarce_memory.h"
#include "tests/support/process/noted_boxes_win32.h"
#include "tests/support/scripted_calls_win32.h"
#include "tests/support/machine/unknown_folders_win32.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;

/// Calls the delivery in this process; the outcome has the text of the box.
class FinalizeTest : public FinalizeFixture {
 protected:
  FinalizeOutcome Deliver(const std::wstring& source = L"C:\\boards\\Main.PcbDoc") {
    return DeliverExport(folders_.local, native_, source, std::nullopt, doors_);
  }

  std::string FailedEntry(const wchar_t* exists, DWORD code) const {
    return Entry(L"Finalize failed", std::wstring(L"NativeExists=") + exists + L" NativeOutput=" +
                                         native_ + L" GetLastError=" + Decimal(code));
  }

  void ExpectDelivered(const std::wstring& destination) {
    const FinalizeOutcome outcome = Deliver();
    EXPECT_EQ(outcome.code, 0);
    EXPECT_EQ(outcome.icon, MessageIcon::Information);
    EXPECT_EQ(outcome.message, Delivered(destination));
    EXPECT_EQ(FileBytes(destination), native_bytes_);
    ExpectOnClipboard(destination);
  }

  void ExpectFailure(const std::wstring& message) {
    const FinalizeOutcome outcome = Deliver();
    EXPECT_EQ(outcome.code, 4);
    EXPECT_EQ(outcome.icon, MessageIcon::Error);
    EXPECT_EQ(outcome.message, message);
    ExpectClipboardUntouched();
  }

  std::string DefaultEntry() const {
    return Entry(L"Using default export directory", folders_.default_export);
  }

  ScriptedCalls calls_;
  NotedBoxes desktop_;
  Doors doors_{calls_, desktop_};
};

TEST_F(FinalizeTest, CopiesToDefaultDirectoryAndClipboard) {
  ExpectDelivered(default_destination_);
  EXPECT_EQ(FileBytes(native_), native_bytes_);
  EXPECT_THAT(Log(), ElementsAre(BeginEntry(default_destination_), DefaultEntry(),
                                 CopiedEntry(default_destination_)));
}

TEST_F(FinalizeTest, WithoutPathArchiveOfHostIsDelivered) {
  PutFile(folders_.native_zip, "found");
  EXPECT_EQ(FinalizeExport({std::nullopt, board_, {}}, doors_), 0);
  EXPECT_EQ(FileBytes(default_destination_), "found");
  EXPECT_THAT(desktop_.boxes, ElementsAre(NotedBoxes::Box{Delivered(default_destination_),
                                                          MessageIcon::Information}));
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
  PutFile(default_destination_, "an older and longer archive than the next");
  ExpectDelivered(default_destination_);
  EXPECT_EQ(NamesIn(folders_.default_export), std::vector<std::wstring>{L"Main.zip"});
}

TEST_F(FinalizeTest, BoardNameDropsOnlyTheLastExtension) {
  EXPECT_EQ(Deliver(L"C:\\b\\Main.v2.PcbDoc").code, 0);
  EXPECT_EQ(Deliver(L"C:\\b\\.PcbDoc").code, 0);
  EXPECT_EQ(Deliver(L"Z\u00FC\u0416").code, 0);
  EXPECT_EQ(NamesIn(folders_.default_export),
            (std::vector<std::wstring>{L".PcbDoc.zip", L"Main.v2.zip", L"Z\u00FC\u0416.zip"}));
}

TEST_F(FinalizeTest, SizeAbove4GiBIsWhole) {
  calls_.after = On("Copy", [&](const SystemCall&) {
    PutSparseFile(default_destination_, (std::uint64_t{4} << 30) + 10);
    return std::nullopt;
  });
  EXPECT_EQ(Deliver().message, Delivered(default_destination_, L"4096 MB"));
  EXPECT_TRUE(Log().back().ends_with(" Size=4294967306")) << Log().back();
}

TEST_F(FinalizeTest, PathsMayExceedTheClassicLimit) {
  const std::wstring folder = Scratch(std::wstring(200, L'x') + L"\\" + std::wstring(200, L'y'));
  native_ = folder + L"\\Bridge.zip";
  PutFile(native_, native_bytes_);
  Settings(L"[Export]\nDirectory=" + folder + L"\n");
  ExpectDelivered(folder + L"\\Main.zip");
}

TEST_F(FinalizeTest, ConfiguredDirectoryIsUsedDefaultMade) {
  ASSERT_TRUE(TryCreateDirectories(Scratch(L"out")));
  SetEnvironmentVariableW(L"KESTRUNE_TEST_OUT", Scratch(L"out").c_str());
  Settings(L"[Export]\nDirectory=%KESTRUNE_TEST_OUT%\n");
  const std::wstring zip = Scratch(L"out\\Main.zip");
  ExpectDelivered(zip);
  SetEnvironmentVariableW(L"KESTRUNE_TEST_OUT", nullptr);
  EXPECT_TRUE(Exists(folders_.default_export));
  EXPECT_TRUE(NamesIn(folders_.default_export).empty());
  EXPECT_THAT(Log(), ElementsAre(Entry(L"Configured export directory", L"%KESTRUNE_TEST_OUT%"),
                                 Entry(L"Using configured export directory", Scratch(L"out")),
                                 BeginEntry(zip), CopiedEntry(zip)));
}

TEST_F(FinalizeTest, MissingConfiguredDirectoryIsNotMade) {
  Settings(L"[Export]\nDirectory=" + Scratch(L"none") + L"\n");
  ExpectDelivered(default_destination_);
  EXPECT_FALSE(Exists(Scratch(L"none")));
  EXPECT_THAT(Log(),
              ElementsAre(Entry(L"Configured export directory", Scratch(L"none")),
                          Entry(L"Configured export directory unavailable", Scratch(L"none")),
                          BeginEntry(default_destination_), DefaultEntry(),
                          CopiedEntry(default_destination_)));
}

TEST_F(FinalizeTest, LockedConfiguredDestinationFallsBack) {
  const std::wstring zip = Scratch(L"out\\Main.zip");
  PutFile(zip, "old");
  Settings(L"[Export]\nDirectory=" + Scratch(L"out") + L"\n");
  {
    const FileHandle lock = HoldOpen(zip, GENERIC_READ, 0);
    ExpectDelivered(default_destination_);
  }
  EXPECT_EQ(FileBytes(zip), "old");
  EXPECT_THAT(
      Log(),
      ElementsAre(Entry(L"Configured export directory", Scratch(L"out")),
                  Entry(L"Using configured export directory", Scratch(L"out")), BeginEntry(zip),
                  Entry(L"Configured export copy failed",
                        L"Path=" + zip + L" Error=" + SystemText(ERROR_SHARING_VIOLATION)),
                  DefaultEntry(), CopiedEntry(default_destination_)));
}

TEST_F(FinalizeTest, TwoLockedDestinationsNameTheLast) {
  PutFile(Scratch(L"out\\Main.zip"), "old");
  PutFile(default_destination_, "old");
  Settings(L"[Export]\nDirectory=" + Scratch(L"out") + L"\n");
  const FileHandle lock = HoldOpen(Scratch(L"out\\Main.zip"), GENERIC_READ, 0);
  const FileHandle default_lock = HoldOpen(default_destination_, GENERIC_READ, 0);
  ExpectFailure(NotOverwritten(default_destination_, ERROR_SHARING_VIOLATION));
  EXPECT_EQ(Log().back(), FailedEntry(L"yes", ERROR_SHARING_VIOLATION));
}

TEST_F(FinalizeTest, ALockedDefaultDestinationIsAFailure) {
  PutFile(default_destination_, "old");
  {
    const FileHandle lock = HoldOpen(default_destination_, GENERIC_READ, FILE_SHARE_READ);
    ExpectFailure(NotOverwritten(default_destination_, ERROR_SHARING_VIOLATION));
  }
  EXPECT_EQ(FileBytes(default_destination_), "old");
  EXPECT_THAT(Log(),
              ElementsAre(BeginEntry(default_destination_),
                          Entry(L"Finalize error", L"Error=copy Path=" + default_destination_),
                          FailedEntry(L"yes", ERROR_SHARING_VIOLATION)));
}

TEST_F(FinalizeTest, ArchiveHeldExclusivelyCannotBeCopied) {
  const FileHandle held = HoldOpen(native_, GENERIC_READ | GENERIC_WRITE, 0);
  ExpectFailure(NotOverwritten(default_destination_, ERROR_SHARING_VIOLATION));
}

TEST_F(FinalizeTest, CopyOntoItselfKeepsTheArchive) {
  native_ = default_destination_;
  PutFile(native_, native_bytes_);
  EXPECT_TRUE(Deliver().message.starts_with(L"Cannot overwrite the destination ZIP.\n\n"));
  EXPECT_EQ(FileBytes(native_), native_bytes_);
}

TEST_F(FinalizeTest, FolderAsDestinationIsKept) {
  PutFile(default_destination_ + L"\\inside.txt", "kept");
  EXPECT_TRUE(Deliver().message.starts_with(L"Cannot overwrite the destination ZIP.\n\n"));
  EXPECT_EQ(FileBytes(default_destination_ + L"\\inside.txt"), "kept");
}

TEST_F(FinalizeTest, AMissingArchiveFailsWithItsCode) {
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  ExpectFailure(SeeLog());
  EXPECT_THAT(Log(), ElementsAre(BeginEntry(default_destination_),
                                 Entry(L"Finalize error",
                                       L"Error=Generated ZIP is missing or empty Path=" + native_),
                                 FailedEntry(L"no", ERROR_FILE_NOT_FOUND)));
  EXPECT_TRUE(Exists(folders_.default_export));
  EXPECT_FALSE(Exists(default_destination_));
}

TEST_F(FinalizeTest, EmptyArchiveOrFolderKeepsOldOne) {
  PutFile(default_destination_, "old");
  PutFile(native_, "");
  ExpectFailure(SeeLog());
  EXPECT_EQ(Log()[1],
            Entry(L"Finalize error", L"Error=Generated ZIP is missing or empty Path=" + native_));
  EXPECT_TRUE(Log().back().starts_with("Stage: Finalize failed | NativeExists=yes"));
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  ASSERT_TRUE(TryCreateDirectories(native_));
  ExpectFailure(SeeLog());
  EXPECT_TRUE(Log().back().starts_with("Stage: Finalize failed | NativeExists=yes"));
  EXPECT_EQ(FileBytes(default_destination_), "old");
}

TEST_F(FinalizeTest, DefaultDirectoryThatCannotBeCreatedFails) {
  ASSERT_TRUE(TryCreateDirectories(Scratch(L"out")));
  Settings(L"[Export]\nDirectory=" + Scratch(L"out") + L"\n");
  PutFile(folders_.default_export, "a file where the folder should be");
  ExpectFailure(SeeLog());
  EXPECT_EQ(Log().back(), FailedEntry(L"yes", ERROR_ALREADY_EXISTS));
  EXPECT_FALSE(Exists(Scratch(L"out\\Main.zip")));
}

TEST_F(FinalizeTest, ArchiveIsOpenUntilItIsCopied) {
  bool looked = false;
  calls_.before = On("Copy", [&](const SystemCall&) {
    looked = true;
    EXPECT_FALSE(DeleteFileW(native_.c_str()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    const FileHandle writer(CreateFileW(native_.c_str(), GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                        0, nullptr));
    EXPECT_FALSE(writer);
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
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
}

TEST_F(FinalizeTest, CopyOfReadOnlyArchiveIsWritable) {
  ASSERT_TRUE(SetFileAttributesW(native_.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(Deliver().code, 0);
  EXPECT_EQ(GetFileAttributesW(default_destination_.c_str()) & FILE_ATTRIBUTE_READONLY, 0U);
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

TEST_F(FinalizeTest, AcceptedExportShowsNoBox) {
  const OwnMailslot slot;
  Settings(L"[Target]\nEnabled=1\nExecutablePath=" + TestProgramPath(L"child_recorder") +
           L"\nArguments=%ODBPP%\nMailslotName=" + slot.Name() + L"\n");
  EXPECT_EQ(FinalizeExport({native_, L"Main.PcbDoc", 50000}, doors_), 0);
  EXPECT_TRUE(desktop_.boxes.empty());
  ExpectClipboardUntouched();
  EXPECT_EQ(slot.Next(), "-bridge:\"AltiumDesigner\" -bridge-version:\"0.2.3\" " +
                             Utf8FromWide(default_destination_) + " -space:5mil");
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  ExpectFailure(SeeLog());
  EXPECT_EQ(slot.Next(), std::nullopt);
}

TEST_F(FinalizeTest, MissingApplicationIsNamedAfterSuccess) {
  Settings(L"[Target]\nEnabled=1\nExecutablePath=C:\\none.exe\n");
  const FinalizeOutcome outcome = Deliver();
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.message,
            Delivered(default_destination_) +
                L"\n\nThe configured application was not started.\n"
                L"The configured after-export executable does not exist: C:\\none.exe");
}

TEST_F(FinalizeTest, HeldClipboardIsWarningWithInformationIcon) {
  const HeldClipboard held(Scratch(L"held"));
  const FinalizeOutcome outcome = Deliver();
  EXPECT_EQ(outcome.code, 3);
  EXPECT_EQ(outcome.icon, MessageIcon::Information);
  EXPECT_EQ(outcome.message, L"ODB++ export successful.\n\nZIP:\n" + default_destination_ +
                                 L"\n\nSize: 0 KB\n\nWarning: Cannot open the Windows Clipboard.");
}

/// Deliveries in a process that runs out of memory.
class FinalizeInScarcity : public FinalizeTest {
 protected:
  using Refused = ScarceMemory::Refused;
  static constexpr long kPoints = 80;

  /// Returns the number of attempted allocations; `outcome_` is empty when an exception was thrown.
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
      DeleteFileW(default_destination_.c_str());
      DeleteFileW(folders_.log.c_str());
      DeliverWith(allowed, refused);
      if (!Exists(default_destination_)) {
        EXPECT_TRUE(!outcome_ || outcome_->code == 4);
      } else {
        EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
      }
      check();
    }
  }

  std::optional<FinalizeOutcome> outcome_;
};

TEST_F(FinalizeInScarcity, OneFailureIsReportedOrHarmless) {
  int failed = 0;
  DeliverAtEachPoint(Refused::One, [&] {
    ASSERT_TRUE(outcome_);
    if (outcome_->code == 4) {
      ++failed;
      EXPECT_EQ(outcome_->message, SeeLog());
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
  calls_.before = RefusedCall("GetAttributes", folders_.common_settings, ERROR_NETNAME_DELETED);
  ExpectDelivered(default_destination_);
  EXPECT_THAT(Log(), ElementsAre(BeginEntry(default_destination_), DefaultEntry(),
                                 CopiedEntry(default_destination_)));
}

TEST_F(FinalizeTest, UnknownApplicationStatusFailsTheExport) {
  calls_.before = RefusedCall("GetAttributes", L"viewer.exe", ERROR_NETNAME_DELETED);
  Settings(L"[Target]\nEnabled=1\nExecutablePath=C:\\viewer.exe\n");
  ExpectFailure(SeeLog());
  EXPECT_EQ(FileBytes(default_destination_), native_bytes_);
  EXPECT_EQ(Log().back(), FailedEntry(L"yes", ERROR_NETNAME_DELETED));
}

TEST_F(FinalizeTest, TheFailureMessageNamesTheLog) {
  EXPECT_EQ(FinalizeFailureMessage(RealCalls()),
            L"ODB++ export finalization failed.\nStage: Copying native output\nSee log: " +
                LogFilePath(RealCalls()));
}

}  // namespace
}  // namespace kestrune
