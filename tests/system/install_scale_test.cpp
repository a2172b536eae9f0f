// Installations into many instances, and killed installations.
#include <gtest/gtest.h>

#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <random>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/remove_tree_win32.h"

namespace kestrune {
namespace {

constexpr DWORD kLimit = 120'000;
/// The sweep over every call is that of a registration, KilledRegistration; these end inside the
/// calls.
constexpr int kKills = 40;

class ManyInstances : public InstallTest {
 protected:
  std::vector<MadeInstance> Make(unsigned count) {
    ClearBox();
    std::vector<MadeInstance> hosts;
    for (unsigned number = 1; number <= count; ++number) {
      hosts.push_back(MakeHost(UsedHost(number, number % 2 == 0 ? 17 : 24)));
    }
    return hosts;
  }
};

TEST_F(ManyInstances, OneTenAndHundredAreAllRegistered) {
  std::map<unsigned, DWORD> milliseconds;
  for (const unsigned count : {1U, 10U, 100U}) {
    const std::vector<MadeInstance> hosts = Make(count);
    const RunOutcome outcome = RunQuietly(L"--install");
    ASSERT_TRUE(EndsSilentlyWith(0, outcome));
    milliseconds[count] = outcome.milliseconds;
    for (const MadeInstance& host : hosts) {
      EXPECT_TRUE(HasWorkingButton(host));
    }
    EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--status")));
  }
  std::cout << "[ MEASURED ] --install over 1, 10, 100 instances: " << milliseconds[1] << ", "
            << milliseconds[10] << ", " << milliseconds[100] << " ms; "
            << (milliseconds[100] - milliseconds[10]) / 90 << " ms for each further instance\n";
}

/// Installations into customization files of almost the largest size that is accepted.
class LargestFile : public ManyInstances {
 protected:
  static constexpr std::size_t kSize = 8'380'000;

  /// Installs and returns the program's peak working set in bytes.
  std::size_t PeakOfInstallation(const std::string& shape, const BoxInstance& large) {
    const MadeInstance host = MakeHost(large);
    ProgramRun run(KestrunePath(), L"--install --quiet --package " + Quoted(package_));
    EXPECT_TRUE(run.Started());
    // The system discards the peak when the process ends, so it is polled until then.
    std::size_t peak = 0;
    while (!run.WaitForExit(1)) {
      PROCESS_MEMORY_COUNTERS counters{};
      counters.cb = sizeof(counters);
      if (GetProcessMemoryInfo(run.Process(), &counters, sizeof(counters))) {
        peak = std::max<std::size_t>(peak, counters.PeakWorkingSetSize);
      }
    }
    EXPECT_EQ(run.WaitForExit(0).value_or(-1), 0);
    EXPECT_TRUE(HasWorkingButton(host));
    std::cout << "[ MEASURED ] peak working set over a DXP.RCS with " << shape << ", "
              << large.rcs.size() << " bytes: " << peak << ", " << peak / large.rcs.size()
              << " times the file\n";
    EXPECT_GT(peak, large.rcs.size());
    return peak;
  }

  /// Returns the number in as few characters as the format can hold.
  static std::string Short(unsigned number) {
    constexpr std::string_view kDigits =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::string text;
    do {
      text.push_back(kDigits[number % kDigits.size()]);
      number /= kDigits.size();
    } while (number != 0);
    return text;
  }
};

TEST_F(LargestFile, OfUsualShapeTakesEightfoldMemory) {
  BoxInstance large = UsedHost(1, 24);
  for (int i = 0; large.rcs.size() < kSize; ++i) {
    const std::string n = std::to_string(i);
    large.rcs += "PL Own" + n + " Command='Own:Command" + n + "' Caption='Command " + n +
                 "' Image='C:\\Icons\\" + n + ".bmp' Shortcut1='Ctrl+Shift+" + n + "' End\r\n";
  }
  EXPECT_LE(PeakOfInstallation("usual records", large), 8 * large.rcs.size());
}

/// Every accepted file must be handled within two gigabytes of address space, regardless of its
/// shape.
TEST_F(LargestFile, OfWorstShapesFitsTheAddressSpace) {
  constexpr std::size_t kFar = 512U << 20;
  BoxInstance records = UsedHost(1, 24);
  for (unsigned i = 0; records.rcs.size() < kSize; ++i) {
    records.rcs += "PL _" + Short(i) + " End ";
  }
  EXPECT_LE(PeakOfInstallation("nothing but small records", records), kFar);

  ClearBox();
  BoxInstance attributes = UsedHost(1, 24);
  attributes.rcs += "PL _Own";
  for (unsigned i = 0; attributes.rcs.size() < kSize; ++i) {
    attributes.rcs += " _" + Short(i) + "=1";
  }
  attributes.rcs += " End\r\n";
  EXPECT_LE(PeakOfInstallation("one record of small attributes", attributes), kFar);
}

/// Kills an installation into three instances at any time, and checks what is left.
class KilledInstallation : public InstallTest {
 protected:
  void SetUp() override {
    InstallTest::SetUp();
    if (HasFatalFailure() || IsSkipped()) {
      return;
    }
    Begin();
    ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
    for (const MadeInstance& host : hosts_) {
      new_rcs_[host.rcs] = FileBytes(host.rcs);
    }
    for (const std::wstring& name : RuntimeFiles()) {
      runtime_[name] = FileBytes(Runtime(name));
    }
  }

  /// Sets up three instances without the button, and no runtime.
  void Begin() {
    ASSERT_TRUE(RemoveTree(folders_.local + L"\\Kestrune")) << GetLastError();
    hosts_.clear();
    for (unsigned number = 1; number <= 3; ++number) {
      const BoxInstance instance = UsedHost(number, number == 2 ? 17 : 24);
      static_cast<void>(RemoveTree(PlaceOf(instance).profile));
      hosts_.push_back(MakeHost(instance));
      old_rcs_[hosts_.back().rcs] = instance.rcs;
    }
  }

  ULONGLONG ShortestRun() {
    ULONGLONG shortest = kLimit;
    for (int i = 0; i < 3; ++i) {
      Begin();
      shortest = std::min<ULONGLONG>(shortest, RunQuietly(L"--install").milliseconds);
    }
    return shortest;
  }

  /// Starts an installation and kills its process after `microseconds`. Returns whether it was
  /// still running.
  bool KillAfter(std::int64_t microseconds) {
    LARGE_INTEGER frequency{};
    LARGE_INTEGER now{};
    QueryPerformanceFrequency(&frequency);
    ProgramRun run(KestrunePath(), L"--install --quiet --package " + Quoted(package_));
    EXPECT_TRUE(run.Started());
    QueryPerformanceCounter(&now);
    const std::int64_t end = now.QuadPart + microseconds * frequency.QuadPart / 1'000'000;
    // The last two milliseconds are a busy wait, since a sleep is too coarse to hit every step.
    while (now.QuadPart < end) {
      if (end - now.QuadPart > frequency.QuadPart / 500) {
        Sleep(1);
      }
      QueryPerformanceCounter(&now);
    }
    const bool alive = !run.WaitForExit(0);
    run.Terminate();
    run.WaitForExit(kLimit);
    return alive;
  }

  void CheckCustomizationFile(const MadeInstance& host) {
    if (!Exists(host.rcs)) {
      PutDisplacedFileBack(host);
      return;
    }
    const std::string rcs = FileBytes(host.rcs);
    EXPECT_TRUE(rcs == old_rcs_[host.rcs] || rcs == new_rcs_[host.rcs])
        << "torn, " << rcs.size() << " bytes";
  }

  /// Moves the displaced file back as a user would. Wine replaces a file with two renames.
  void PutDisplacedFileBack(const MadeInstance& host) {
    for (const std::wstring& name : NamesIn(host.profile)) {
      const std::wstring path = JoinPath(host.profile, name);
      if (name.ends_with(L".old.tmp")) {
        EXPECT_EQ(FileBytes(path), old_rcs_[host.rcs]);
        EXPECT_TRUE(MoveFileExW(path.c_str(), host.rcs.c_str(), 0));
        ++inside_replacement_;
        return;
      }
    }
    ADD_FAILURE() << "DXP.RCS is missing and nothing holds its bytes";
  }

  void CheckRemains() {
    for (const MadeInstance& host : hosts_) {
      CheckCustomizationFile(host);
      const std::vector<std::wstring> projects = ReadAsHost(host).projects;
      EXPECT_TRUE(std::ranges::count(projects, L"C:\\Scripts\\It's.PrjScr") == 1);
      EXPECT_LE(projects.size(), 2U);
    }
    // A file of the runtime is complete or absent.
    for (const std::wstring& name : RuntimeFiles()) {
      if (Exists(Runtime(name))) {
        EXPECT_EQ(FileBytes(Runtime(name)), runtime_[name]) << Utf8FromWide(name);
      }
    }
  }

  void CheckNextInstallation() {
    ProgramRun run(KestrunePath(), L"--install --quiet --package " + Quoted(package_));
    EXPECT_EQ(run.WaitForExit(kLimit).value_or(-1), 0);
    for (const std::wstring& name : RuntimeFiles()) {
      EXPECT_EQ(FileBytes(Runtime(name)), runtime_[name]) << Utf8FromWide(name);
    }
    for (const MadeInstance& host : hosts_) {
      EXPECT_EQ(FileBytes(host.rcs), new_rcs_[host.rcs]);
      EXPECT_TRUE(HasWorkingButton(host));
    }
  }

  std::vector<MadeInstance> hosts_;
  std::map<std::wstring, std::string> old_rcs_;
  std::map<std::wstring, std::string> new_rcs_;
  std::map<std::wstring, std::string> runtime_;
  int inside_replacement_ = 0;
};

TEST_F(KilledInstallation, LeavesWholeFilesAndTheNextSucceeds) {
  KESTRUNE_NEEDS_TIME();
  auto duration = static_cast<std::int64_t>(ShortestRun()) * 1000;
  for (int killed = 0; killed < kKills && !HasFailure();) {
    SCOPED_TRACE("kill " + std::to_string(killed));
    Begin();
    if (KillAfter(duration * killed / kKills)) {
      ++killed;
    } else {
      duration = duration * 9 / 10;
    }
    CheckRemains();
    CheckNextInstallation();
  }
  std::cout << "[ MEASURED ] " << kKills << " installations ended in the first " << duration / 1000
            << " ms, " << inside_replacement_ << " inside the replacement of a DXP.RCS\n";
}

/// Kills the update of a complete, older runtime at any time, and checks what is left.
class KilledUpdate : public KilledInstallation {
 protected:
  struct Dated {
    std::string bytes;
    std::uint64_t time = 0;
    bool operator==(const Dated&) const = default;
  };
  using Files = std::map<std::wstring, Dated>;

  void SetUp() override {
    KilledInstallation::SetUp();
    if (HasFatalFailure() || IsSkipped()) {
      return;
    }
    old_files_ = ReadRuntime();
    // The program has changed too, and its old file is longer.
    old_files_[L"Kestrune.exe"] = {FileBytes(KestrunePath()) + std::string(100'000, 'o'),
                                   kPackageTime};
    MakePackage(package_, kLaterTime, "two" + std::string(100'000, 'n'));
    PutOldFiles();
    ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--update")));
    new_files_ = ReadRuntime();
  }

  Files ReadRuntime() const {
    Files files;
    for (const std::wstring& name : RuntimeFiles()) {
      files[name] = {FileBytes(Runtime(name)), TimeOf(Runtime(name))};
    }
    return files;
  }

  void PutOldFiles() const {
    for (const auto& [name, file] : old_files_) {
      PutFile(Runtime(name), file.bytes);
      SetTimeOf(Runtime(name), file.time);
    }
  }

  ULONGLONG ShortestUpdate() const {
    ULONGLONG shortest = kLimit;
    for (int i = 0; i < 3; ++i) {
      PutOldFiles();
      shortest = std::min<ULONGLONG>(shortest, RunQuietly(L"--update").milliseconds);
    }
    return shortest;
  }

  /// Counts files that are neither the old nor the new one in content and time. Under Wine each
  /// write changes a file's time although it was set; a file that looks new for this reason is
  /// counted separately and removed.
  void CountRemains() {
    for (const auto& [name, file] : new_files_) {
      const Dated found = {FileBytes(Runtime(name)), TimeOf(Runtime(name))};
      if (found == file || found == old_files_[name]) {
        continue;
      }
      ++unfinished_;
      if (RunsUnderWine() && found.time > file.time) {
        ++looking_new_;
        EXPECT_TRUE(DeleteFileW(Runtime(name).c_str()));
      }
    }
  }

  void CheckNextUpdate() {
    EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--update")));
    for (const auto& [name, file] : new_files_) {
      EXPECT_TRUE(FileBytes(Runtime(name)) == file.bytes) << Utf8FromWide(name);
      EXPECT_EQ(TimeOf(Runtime(name)), file.time) << Utf8FromWide(name);
    }
  }

  Files old_files_;
  Files new_files_;
  int unfinished_ = 0;
  int looking_new_ = 0;
};

TEST_F(KilledUpdate, IsRepairedByTheNextUpdate) {
  KESTRUNE_NEEDS_TIME();
  auto duration = static_cast<std::int64_t>(ShortestUpdate()) * 1000;
  for (int killed = 0; killed < kKills && !HasFailure();) {
    SCOPED_TRACE("kill " + std::to_string(killed));
    PutOldFiles();
    if (KillAfter(duration * killed / kKills)) {
      ++killed;
    } else {
      duration = duration * 9 / 10;
    }
    CountRemains();
    CheckNextUpdate();
  }
  std::cout << "[ MEASURED ] " << kKills << " updates ended in the first " << duration / 1000
            << " ms, " << unfinished_ << " inside a file, " << looking_new_
            << " of them where Wine makes an unfinished file look new\n";
}

}  // namespace
}  // namespace kestrune
