#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/machine/machine_in_a_box_win32.h"

namespace kestrune {

/// 2026-01-01 and a day later, as file times.
inline constexpr std::uint64_t kPackageTime = 134'117'856'000'000'000;
inline constexpr std::uint64_t kLaterTime = kPackageTime + 864'000'000'000;

/// Returns the last-write time of a file; 0 when it has none.
std::uint64_t TimeOf(const std::wstring& path);
void SetTimeOf(const std::wstring& path, std::uint64_t time);

/// Runs a test program under the name of another one until the end of the scope.
class RunningAs {
 public:
  explicit RunningAs(const std::wstring& path);

 private:
  ProgramRun run_;
};

/// Sets up a machine without hosts, a small package and no runtime, and removes everything
/// afterwards.
class InstallTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Returns a path in the test's own folder.
  [[nodiscard]] std::wstring Scratch(std::wstring_view name) const;
  /// Returns a path in the runtime directory.
  [[nodiscard]] std::wstring Runtime(std::wstring_view name) const;
  void Settings(std::wstring_view text) const;
  /// Accepts these record kinds in the user's registration.ini.
  void ExtraRecords(std::wstring_view kinds) const;

  /// Expects exactly these entries ("Stage | Detail") in the log, in this order and repeated
  /// `times` times, and clears the log.
  void ExpectLogged(int times, const std::vector<std::wstring>& entries) const;

  /// Starts `Kestrune.exe <command> --package <package_> <more>`.
  RunOutcome Run(const std::wstring& command, const std::wstring& more = {}) const;
  RunOutcome RunQuietly(const std::wstring& command, const std::wstring& more = {}) const;

  ProfileFolders folders_ = FindProfileFolders();
  std::wstring package_;

 private:
  std::wstring scratch_;
};

/// Moves an instance's profile to another roaming folder.
void MoveHost(MadeInstance& instance, const std::wstring& roaming);

/// Returns the report's first lines about an instance.
std::wstring HeaderOf(const MadeInstance& instance);

/// Returns the directory of the latest run's backups and log for an instance.
std::wstring LatestBackup(const MadeInstance& instance);

/// Returns the report about an instance with a transaction.
std::wstring Transacted(const MadeInstance& instance, std::wstring_view end,
                        std::wstring_view backend = L"recognized text RCS");
std::wstring Registered(const MadeInstance& instance);
std::wstring Removed(const MadeInstance& instance);
std::wstring Failed(const MadeInstance& instance, std::wstring_view text);
std::wstring Skipped(const MadeInstance& instance, std::wstring_view text);

/// Returns whether the host shows exactly one button of ours, which starts the deployed script.
::testing::AssertionResult HasWorkingButton(const MadeInstance& instance);
/// Returns whether neither a button nor a script project of ours is left.
::testing::AssertionResult HasNothingOfOurs(const MadeInstance& instance);

}  // namespace kestrune
