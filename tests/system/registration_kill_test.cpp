// Ends the process of a registration at points of the change and of the rollback, and checks the
// files, and that the user and the next registration can recover.

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/text/path.h"
#include "common/files/sha256_win32.h"
#include "common/text/text.h"
#include "registration/store/backup_format.h"
#include "registration/transaction/global_projects.h"
#include "registration/store/global_projects_key_win32.h"
#include "tests/support/machine/disposable_profile_win32.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/process/program_run_win32.h"
#include "tests/support/machine/test_profile_win32.h"
#include "tests/support/real_calls_win32.h"

namespace altium_registration {
namespace {

using kestrune::JoinPath;
using kestrune::ProgramRun;

constexpr int kEndedOnRequest = 99;
constexpr DWORD kLimit = 60'000;
/// The number of points of an installation at which the tests end the process.
constexpr int kPoints = 200;
constexpr int kRemovalPoints = 60;
constexpr wchar_t kProject[] = L"C:\\Kestrune\\Runtime\\Kestrune.PrjScr";
constexpr int kForeignProjects = 24;
constexpr wchar_t kRecovery[] = L"DXP.RCS.recovery";

/// A failure that makes a registration roll back, by the point where a call fails.
struct FailingPoint {
  const char* why;
  const char* point;
  /// Among the points of this name; 0 is the last one.
  int number;
  /// The number of points of the rollback at which the tests end the process.
  int ends;
};

constexpr FailingPoint kFailingPoints[] = {
    {"the last check refuses a finished registration", "GetSecurity before", 0, 20},
    {"the list is half written", "SetValue after", 13, 10},
    {"the new file lacks its access list", "SetSecurity before", 2, 10},
    {"the replacement reports failure after its effect", "Replace after", 1, 10},
};

std::string OldRcs() {
  std::string text = "Tree PCBCustom Caption='[Custom]' TopLevel='True'\r\nEnd\r\n";
  for (int i = 0; i < 400; ++i) {
    const std::string n = std::to_string(i);
    text += "PL User" + n + " Command='Foreign:Command" + n + "' Caption='It''s mine' End\r\n";
  }
  return text;
}

/// Returns entries of which every second number is missing, so that all are rewritten.
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
    LearnTheNewState();
    ASSERT_EQ(new_list_.size(), old_list_.size() + 1);
  }

  /// Reads the new state after an undisturbed run from the same initial state.
  void LearnTheNewState() {
    Begin();
    ASSERT_EQ(RunToEnd(L""), 0) << Report();
    new_rcs_ = FileBytes(profile_->Rcs());
    new_list_ = List();
    points_ = Points();
    ASSERT_NE(new_rcs_, old_rcs_);
  }

  /// Makes later runs removals, with the installed state as the old one.
  void TurnToRemoval() {
    verb_ = L"remove";
    old_rcs_ = new_rcs_;
    old_list_ = new_list_;
    LearnTheNewState();
    ASSERT_EQ(new_list_.size() + 1, old_list_.size());
  }

  /// Creates a profile in the old state.
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
    kestrune::SystemCalls real;
    const FileSecurity security =
        ReadFileSecurity(real, kestrune::ExtendedPath(profile_->Rcs()), L"size", L"read");
    security_.assign(reinterpret_cast<const char*>(security.Bytes().data()),
                     security.Bytes().size());
  }

  [[nodiscard]] std::wstring Arguments(const std::wstring& options) const {
    return verb_ + L" " + kestrune::Quoted(profile_->Rcs()) + L" " +
           kestrune::Quoted(profile_->Branch()) + L" {GUID} " + kestrune::Quoted(kProject) +
           L" --report " + kestrune::Quoted(ReportPath()) + L" " + options;
  }
  [[nodiscard]] std::wstring ReportPath() const { return profile_->Directory() + L".report"; }
  [[nodiscard]] std::string Report() const { return FileBytes(ReportPath()); }
  [[nodiscard]] std::vector<RegistryValue> List() const {
    kestrune::SystemCalls real;
    return ReadRegistryValues(real, profile_->Key());
  }

  /// Returns the points that the last run to the end passed.
  [[nodiscard]] std::vector<std::string> Points() const {
    std::istringstream report(Report());
    std::vector<std::string> points;
    std::string line;
    std::getline(report, line);
    while (std::getline(report, line)) {
      points.push_back(line);
    }
    return points;
  }

  /// Returns the place of a failing point among all points of a whole run, counted from 1.
  [[nodiscard]] int PlaceOf(const FailingPoint& failing) const {
    int place = 0;
    int found = 0;
    for (std::size_t i = 0; i < points_.size(); ++i) {
      if (points_[i] == failing.point && (failing.number == 0 || ++found <= failing.number)) {
        place = static_cast<int>(i) + 1;
      }
    }
    return place;
  }

  int RunToEnd(const std::wstring& options) {
    ProgramRun run(kestrune::TestProgramPath(L"registration_command"), Arguments(options));
    return run.WaitForExit(kLimit).value_or(-1);
  }

  /// Checks the state that every killed run must leave; returns whether DXP.RCS is missing.
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

  /// Checks a replacement that stopped between its renames: the displaced file holds the old bytes,
  /// or the new ones during a rollback, and then the recovery file the old ones.
  void CheckDisplacedFile() {
    for (const std::wstring& name : profile_->Leftovers()) {
      if (name.ends_with(L".old.tmp")) {
        displaced_ = JoinPath(profile_->Directory(), name);
        const bool undoes = FileBytes(displaced_) == new_rcs_;
        way_back_ = undoes ? JoinPath(profile_->Directory(), kRecovery) : displaced_;
        EXPECT_EQ(FileBytes(way_back_), old_rcs_);
        return;
      }
    }
    ADD_FAILURE() << "DXP.RCS is missing and nothing holds its bytes";
  }

  /// Restores DXP.RCS as a user would who finds none.
  void PutBack() { EXPECT_TRUE(MoveFileExW(way_back_.c_str(), profile_->Rcs().c_str(), 0)); }

  /// Ends runs at `ends` points from `first` to `last`, evenly. Checks what each leaves, and that
  /// the next registration succeeds.
  void EndRuns(const std::wstring& options, int first, int last, int ends) {
    ASSERT_GE(last - first + 1, ends);
    recovery_files_ = 0;
    int replaced = 0;
    for (int i = 0; i < ends && !HasFailure(); ++i) {
      const int point = first + i * (last - first) / (ends - 1);
      SCOPED_TRACE("point " + std::to_string(point));
      Begin();
      EXPECT_EQ(RunToEnd(options + L" --die-at " + std::to_wstring(point)), kEndedOnRequest);
      EXPECT_FALSE(CheckRemains());
      replaced += FileBytes(profile_->Rcs()) == new_rcs_ ? 1 : 0;
      CheckNextRegistration();
    }
    EXPECT_GT(replaced, 0);
    EXPECT_LT(replaced, ends);
    EXPECT_EQ(recovery_files_ > 0, !options.empty()) << "only a rollback writes a recovery file";
    std::cout << "[ MEASURED ] ended at " << ends << " of " << last - first + 1 << " points, "
              << replaced << " of them with the new DXP.RCS\n";
  }

  /// Checks that a failing run restores everything; returns the number of its points.
  int CheckWholeRollback(int failing) {
    Begin();
    EXPECT_EQ(RunToEnd(L"--fail-at " + std::to_wstring(failing)), 1);
    EXPECT_NE(Report().find(" Rollback complete (or no owned writes).\n"), std::string::npos)
        << Report();
    EXPECT_EQ(FileBytes(profile_->Rcs()), old_rcs_);
    EXPECT_EQ(RegistryBackup(Sorted(List())), RegistryBackup(Sorted(enumerated_)));
    EXPECT_EQ(profile_->Leftovers(), std::vector<std::wstring>{});
    return static_cast<int>(Points().size());
  }

  static std::vector<RegistryValue> Sorted(std::vector<RegistryValue> values) {
    std::ranges::sort(values, {}, &RegistryValue::name);
    return values;
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
          log.starts_with("Before SHA256=" + kestrune::Sha256(kestrune::RealCalls(), old_rcs_) +
                          "\r\nIntended SHA256=" +
                          kestrune::Sha256(kestrune::RealCalls(), new_rcs_) + "\r\n")) {
        return;
      }
    }
    ADD_FAILURE() << "no complete backups";
  }

  void CheckNextRegistration() {
    // A recovery file names no run and may be that of a running one; only a rollback deletes it.
    std::vector<std::wstring> kept = profile_->Leftovers();
    std::erase_if(kept, [](const std::wstring& name) { return name != kRecovery; });
    EXPECT_EQ(RunToEnd(L""), 0) << Report();
    EXPECT_EQ(FileBytes(profile_->Rcs()), new_rcs_);
    EXPECT_EQ(profile_->Leftovers(), kept);
    recovery_files_ += static_cast<int>(kept.size());
    const std::vector<RegistryValue> list = List();
    const auto ours = std::ranges::count_if(
        list, [](const RegistryValue& value) { return value.data == TextData(kProject); });
    EXPECT_EQ(ours, verb_ == L"install" ? 1 : 0);
    CheckListKeepsForeignEntries(list);
    DeleteFileW(ReportPath().c_str());
  }

  void CheckListKeepsForeignEntries(const std::vector<RegistryValue>& list) {
    for (const RegistryValue& foreign : old_list_) {
      if (foreign.data == TextData(kProject)) {
        continue;
      }
      EXPECT_TRUE(std::ranges::any_of(list, [&](const RegistryValue& value) {
        return value.type == foreign.type && value.data == foreign.data;
      })) << kestrune::Utf8FromWide(foreign.name);
    }
  }

  std::wstring verb_ = L"install";
  std::string old_rcs_ = OldRcs();
  std::vector<RegistryValue> old_list_ = OldList();
  std::unique_ptr<TestProfile> profile_;
  /// The expected content of the backups of a run.
  std::vector<RegistryValue> enumerated_;
  std::string instance_;
  std::string security_;
  std::string new_rcs_;
  std::vector<RegistryValue> new_list_;
  std::vector<std::string> points_;
  /// The displaced file beside a missing DXP.RCS, and the file to be renamed to it.
  std::wstring displaced_;
  std::wstring way_back_;
  /// The number of runs after which a recovery file was found.
  int recovery_files_ = 0;
};

TEST_F(KilledRegistration, InstallationLeavesWholeFileAtEveryPoint) {
  KESTRUNE_NEEDS_TIME();
  EndRuns(L"", 1, static_cast<int>(points_.size()), kPoints);
}

TEST_F(KilledRegistration, RemovalLeavesWholeFileAtEveryPoint) {
  KESTRUNE_NEEDS_TIME();
  ASSERT_NO_FATAL_FAILURE(TurnToRemoval());
  EndRuns(L"", 1, static_cast<int>(points_.size()), kRemovalPoints);
}

TEST_F(KilledRegistration, RollbackLeavesWholeFileAtEveryPoint) {
  KESTRUNE_NEEDS_TIME();
  for (const FailingPoint& failing : kFailingPoints) {
    SCOPED_TRACE(failing.why);
    const int place = PlaceOf(failing);
    const int last = CheckWholeRollback(place);
    EndRuns(L"--fail-at " + std::to_wstring(place), place + 1, last, failing.ends);
    if (HasFailure()) {
      return;
    }
  }
}

TEST_F(KilledRegistration, HalfReplacementKeepsTheDisplacedFile) {
  Begin();
  EXPECT_EQ(RunToEnd(L"--die-half-way 1"), kEndedOnRequest);
  EXPECT_TRUE(CheckRemains());
  EXPECT_EQ(way_back_, displaced_);
  // Without DXP.RCS a registration fails and deletes nothing.
  EXPECT_EQ(RunToEnd(L""), 1);
  EXPECT_TRUE(Report().starts_with("Read profile metadata (Win32 2)\n"));
  EXPECT_EQ(FileBytes(displaced_), old_rcs_);
  PutBack();
  CheckNextRegistration();
}

TEST_F(KilledRegistration, HalfRestorationKeepsTheRecoveryFile) {
  Begin();
  const int place = PlaceOf(kFailingPoints[0]);
  EXPECT_EQ(RunToEnd(L"--die-half-way 2 --fail-at " + std::to_wstring(place)), kEndedOnRequest);
  EXPECT_TRUE(CheckRemains());
  EXPECT_NE(way_back_, displaced_);
  EXPECT_EQ(RunToEnd(L""), 1);
  EXPECT_EQ(FileBytes(displaced_), new_rcs_);
  EXPECT_EQ(FileBytes(way_back_), old_rcs_);
  PutBack();
  CheckNextRegistration();
}

TEST_F(KilledRegistration, TwoAtOnceKeepFileAndEntries) {
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
