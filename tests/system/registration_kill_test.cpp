// A registration whose process ends at every point of its way, by itself or from outside, and what
// the user and the next registration find then.

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "common/path.h"
#include "common/sha256_win32.h"
#include "common/text.h"
#include "registration/backup_format.h"
#include "registration/global_projects.h"
#include "registration/global_projects_key_win32.h"
#include "tests/support/disposable_profile_win32.h"
#include "tests/support/program_run_win32.h"
#include "tests/support/test_profile_win32.h"

namespace altium_registration {
namespace {

using kestrune::JoinPath;
using kestrune::ProgramRun;

constexpr int kEndedOnRequest = 99;
constexpr DWORD kLimit = 60'000;
/// How many ends a run of the tests tries.
constexpr int kPoints = 200;
constexpr int kRuns = 50;
constexpr wchar_t kProject[] = L"C:\\Kestrune\\Runtime\\Kestrune.PrjScr";
constexpr int kForeignProjects = 24;

std::string OldRcs() {
  std::string text = "Tree PCBCustom Caption='[Custom]' TopLevel='True'\r\nEnd\r\n";
  for (int i = 0; i < 400; ++i) {
    const std::string n = std::to_string(i);
    text += "PL User" + n + " Command='Foreign:Command" + n + "' Caption='It''s mine' End\r\n";
  }
  return text;
}

/// Every second number is missing, so that a registration rewrites all entries.
std::vector<RegistryValue> OldList() {
  std::vector<RegistryValue> values = {{L"Unrelated", 4, std::vector<std::byte>(4)}};
  for (int i = 0; i < kForeignProjects; ++i) {
    values.push_back({L"Item" + std::to_wstring(2 * i + 1), kRegistryText,
                      TextData(L"C:\\Foreign\\Project" + std::to_wstring(i) + L".PrjScr")});
  }
  return values;
}

class KilledRegistration : public testing::Test {
 protected:
  void SetUp() override {
    KESTRUNE_NEEDS_DISPOSABLE_PROFILE();
    // What an undisturbed run makes of the same beginning is the new state.
    Begin();
    ASSERT_EQ(RunToEnd(L""), 0) << Report();
    new_rcs_ = FileBytes(profile_->Rcs());
    new_list_ = List();
    points_ = std::stoi(Report().substr(Report().find('\n') + 1));
    ASSERT_NE(new_rcs_, old_rcs_);
    ASSERT_EQ(new_list_.size(), old_list_.size() + 1);
  }

  /// A fresh profile in the old state.
  void Begin() {
    profile_ = std::make_unique<TestProfile>(old_rcs_);
    for (const RegistryValue& value : old_list_) {
      profile_->SetValue(value);
    }
    enumerated_ = List();
    WIN32_FILE_ATTRIBUTE_DATA facts{};
    EXPECT_TRUE(GetFileAttributesExW(profile_->Rcs().c_str(), GetFileExInfoStandard, &facts));
    instance_ =
        InstanceText({profile_->Rcs(), profile_->Branch(), facts.dwFileAttributes,
                      facts.ftLastWriteTime.dwHighDateTime, facts.ftLastWriteTime.dwLowDateTime});
    SystemCalls real;
    const FileSecurity security = ReadFileSecurity(real, profile_->Rcs(), L"size", L"read");
    security_.assign(reinterpret_cast<const char*>(security.Bytes().data()),
                     security.Bytes().size());
  }

  [[nodiscard]] std::wstring Arguments(const std::wstring& options) const {
    return L"install " + kestrune::Quoted(profile_->Rcs()) + L" " +
           kestrune::Quoted(profile_->Branch()) + L" {GUID} " + kestrune::Quoted(kProject) +
           L" --report " + kestrune::Quoted(ReportPath()) + L" " + options;
  }
  [[nodiscard]] std::wstring ReportPath() const { return profile_->Directory() + L".report"; }
  [[nodiscard]] std::string Report() const { return FileBytes(ReportPath()); }
  [[nodiscard]] std::vector<RegistryValue> List() const {
    SystemCalls real;
    return ReadRegistryValues(real, profile_->Key());
  }

  int RunToEnd(const std::wstring& options) {
    ProgramRun run(kestrune::TestProgramPath(L"registration_command"), Arguments(options));
    return run.WaitForExit(kLimit).value_or(-1);
  }

  /// Milliseconds, so that a wait below it ends most runs on their way.
  DWORD ShortestRun() {
    ULONGLONG shortest = kLimit;
    for (int i = 0; i < 5; ++i) {
      Begin();
      const ULONGLONG begin = GetTickCount64();
      EXPECT_EQ(RunToEnd(L""), 0);
      shortest = std::min(shortest, GetTickCount64() - begin);
    }
    return static_cast<DWORD>(shortest);
  }

  /// The laws of every death; answers whether DXP.RCS is missing.
  bool CheckRemains() {
    const std::string rcs = FileBytes(profile_->Rcs());
    const bool is_missing = rcs == "<missing>";
    if (is_missing) {
      CheckDisplacedFile();
    } else {
      EXPECT_TRUE(rcs == old_rcs_ || rcs == new_rcs_) << "torn, " << rcs.size() << " bytes";
    }
    CheckListIsOldNewOrBetween();
    if (rcs != old_rcs_) {
      CheckBackups();
    }
    return is_missing;
  }

  void CheckDisplacedFile() {
    for (const std::wstring& name : profile_->Leftovers()) {
      if (name.ends_with(L".old.tmp")) {
        EXPECT_EQ(FileBytes(JoinPath(profile_->Directory(), name)), old_rcs_);
        displaced_ = JoinPath(profile_->Directory(), name);
        return;
      }
    }
    ADD_FAILURE() << "DXP.RCS is missing and nothing holds its bytes";
  }

  void CheckListIsOldNewOrBetween() {
    const std::vector<RegistryValue> found = List();
    const auto is_in = [](const std::vector<RegistryValue>& list, const RegistryValue& wanted) {
      return std::ranges::any_of(list, [&](const RegistryValue& value) {
        return value.name == wanted.name && value.type == wanted.type && value.data == wanted.data;
      });
    };
    for (const RegistryValue& value : found) {
      EXPECT_TRUE(is_in(old_list_, value) || is_in(new_list_, value))
          << kestrune::Utf8FromWide(value.name);
    }
    CheckListKeepsForeignEntries(found);
  }

  void CheckBackups() {
    const std::wstring root = profile_->Directory() + L"\\KestruneBackups\\{GUID}";
    for (const std::wstring& run : FolderEntries(root)) {
      const std::wstring directory = JoinPath(root, run);
      const std::string log = FileBytes(JoinPath(directory, L"operation.log"));
      if (FileBytes(JoinPath(directory, L"DXP.RCS.before")) == old_rcs_ &&
          FileBytes(JoinPath(directory, L"registry.before.bin")) == RegistryBackup(enumerated_) &&
          FileBytes(JoinPath(directory, L"instance.txt")) == instance_ &&
          FileBytes(JoinPath(directory, L"security.before.bin")) == security_ &&
          log.starts_with("Before SHA256=" + kestrune::Sha256(old_rcs_) +
                          "\r\nIntended SHA256=" + kestrune::Sha256(new_rcs_) + "\r\n")) {
        return;
      }
    }
    ADD_FAILURE() << "no complete backups";
  }

  void CheckNextRegistration() {
    EXPECT_EQ(RunToEnd(L""), 0) << Report();
    EXPECT_EQ(FileBytes(profile_->Rcs()), new_rcs_);
    EXPECT_EQ(profile_->Leftovers(), std::vector<std::wstring>{});
    const std::vector<RegistryValue> list = List();
    const auto ours = std::ranges::count_if(
        list, [](const RegistryValue& value) { return value.data == TextData(kProject); });
    EXPECT_EQ(ours, 1);
    CheckListKeepsForeignEntries(list);
    DeleteFileW(ReportPath().c_str());
  }

  void CheckListKeepsForeignEntries(const std::vector<RegistryValue>& list) {
    for (const RegistryValue& foreign : old_list_) {
      EXPECT_TRUE(std::ranges::any_of(list, [&](const RegistryValue& value) {
        return value.type == foreign.type && value.data == foreign.data;
      })) << kestrune::Utf8FromWide(foreign.name);
    }
  }

  const std::string old_rcs_ = OldRcs();
  const std::vector<RegistryValue> old_list_ = OldList();
  std::unique_ptr<TestProfile> profile_;
  /// What the backups of a run have to hold.
  std::vector<RegistryValue> enumerated_;
  std::string instance_;
  std::string security_;
  std::string new_rcs_;
  std::vector<RegistryValue> new_list_;
  std::wstring displaced_;
  int points_ = 0;
};

TEST_F(KilledRegistration, AtEveryPointTheFileIsWholeAndTheNextRunRepairsTheRest) {
  ASSERT_GE(points_, kPoints);
  int replaced = 0;
  // The first and the last point, and the others evenly between them.
  for (int i = 0; i < kPoints; ++i) {
    const int point = 1 + i * (points_ - 1) / (kPoints - 1);
    SCOPED_TRACE("point " + std::to_string(point));
    Begin();
    EXPECT_EQ(RunToEnd(L"--die-at " + std::to_wstring(point)), kEndedOnRequest);
    EXPECT_FALSE(CheckRemains());
    replaced += FileBytes(profile_->Rcs()) == new_rcs_ ? 1 : 0;
    CheckNextRegistration();
    if (HasFailure()) {
      break;
    }
  }
  EXPECT_GT(replaced, 0);
  EXPECT_LT(replaced, kPoints);
  std::cout << "[ MEASURED ] ended at " << kPoints << " of " << points_ << " points, " << replaced
            << " of them behind the replacement of DXP.RCS\n";
}

TEST_F(KilledRegistration, FromOutsideAtAnyTimeTheFileIsWholeAndTheNextRunRepairsTheRest) {
  const DWORD duration = ShortestRun();
  std::mt19937 random(20260307);
  int inside_replacement = 0;
  int ended_before = 0;
  for (int i = 0; i < kRuns; ++i) {
    SCOPED_TRACE("run " + std::to_string(i));
    Begin();
    ProgramRun run(kestrune::TestProgramPath(L"registration_command"), Arguments(L""));
    ASSERT_TRUE(run.Started());
    const DWORD wait = random() % (duration + 1);
    ended_before += run.WaitForExit(wait) ? 1 : 0;
    run.Terminate();
    run.WaitForExit(kLimit);
    if (CheckRemains()) {
      // Only where a replacement is two renames; the user puts the displaced file back by hand.
      ++inside_replacement;
      EXPECT_TRUE(MoveFileExW(displaced_.c_str(), profile_->Rcs().c_str(), 0));
    }
    CheckNextRegistration();
    if (HasFailure()) {
      break;
    }
  }
  EXPECT_LT(ended_before, kRuns);
  std::cout << "[ MEASURED ] ended from outside " << kRuns - ended_before << " times, "
            << inside_replacement << " of them inside the replacement of DXP.RCS\n";
}

TEST_F(KilledRegistration, BetweenTheTwoRenamesOfAReplacementTheDisplacedFileIsKept) {
  Begin();
  EXPECT_EQ(RunToEnd(L"--die-half-way"), kEndedOnRequest);
  EXPECT_TRUE(CheckRemains());
  // Without DXP.RCS a registration refuses and clears nothing.
  EXPECT_EQ(RunToEnd(L""), 1);
  EXPECT_TRUE(Report().starts_with("Read profile metadata (Win32 2)\n"));
  EXPECT_EQ(FileBytes(displaced_), old_rcs_);
  ASSERT_TRUE(MoveFileExW(displaced_.c_str(), profile_->Rcs().c_str(), 0));
  CheckNextRegistration();
}

TEST_F(KilledRegistration, TwoAtOnceNeverTearTheFileOrLoseAnEntryAndOneMoreRunSettlesIt) {
  constexpr int kRounds = 10;
  int both_succeeded = 0;
  int one_succeeded = 0;
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    Begin();
    const std::wstring program = kestrune::TestProgramPath(L"registration_command");
    ProgramRun first(program, Arguments(L""));
    ProgramRun second(program, Arguments(L""));
    const int first_code = first.WaitForExit(kLimit).value_or(-1);
    const int second_code = second.WaitForExit(kLimit).value_or(-1);
    EXPECT_TRUE(first_code == 0 || first_code == 1) << first_code;
    EXPECT_TRUE(second_code == 0 || second_code == 1) << second_code;
    both_succeeded += first_code + second_code == 0 ? 1 : 0;
    one_succeeded += first_code + second_code == 1 ? 1 : 0;
    EXPECT_FALSE(CheckRemains());
    CheckNextRegistration();
  }
  std::cout << "[ MEASURED ] of " << kRounds << " pairs both succeeded " << both_succeeded
            << " times, one " << one_succeeded << " times\n";
}

}  // namespace
}  // namespace altium_registration
