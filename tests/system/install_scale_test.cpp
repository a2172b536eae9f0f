// Installations into many instances and large files, and killed installations.
#include <gtest/gtest.h>

#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <iostream>
#include <map>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/remove_tree_win32.h"

namespace kestrune {
namespace {

TEST_F(InstallTest, RegistersHundredInstances) {
  std::vector<MadeInstance> hosts;
  for (unsigned number = 1; number <= 100; ++number) {
    hosts.push_back(MakeHost(UsedHost(number, number % 2 == 0 ? 17 : 24)));
  }
  ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  for (const MadeInstance& host : hosts) {
    EXPECT_TRUE(HasWorkingButton(host));
  }
}

/// Installations into customization files of almost the largest size that is accepted.
class LargestFile : public InstallTest {
 protected:
  /// Installs over a file that ends with `beginning`, the records of `next`, and `end`. Returns the
  /// program's peak working set, as a multiple of the file's size.
  template <class Next>
  double PeakOfInstallation(const std::string& shape, std::string_view beginning, const Next& next,
                            std::string_view end = "") {
    ClearBox();
    BoxInstance large = UsedHost(1, 24);
    large.rcs += beginning;
    for (unsigned i = 0; large.rcs.size() < 8'380'000; ++i) {
      large.rcs += next(i);
    }
    large.rcs += end;
    const MadeInstance host = MakeHost(large);
    ProgramRun run(KestrunePath(), L"--install --quiet --package " + Quoted(package_));
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
    const double times = static_cast<double>(peak) / static_cast<double>(large.rcs.size());
    EXPECT_GT(times, 1);
    std::cout << "[ MEASURED ] peak working set over a DXP.RCS with " << shape << ", "
              << large.rcs.size() << " bytes: " << peak << ", " << times << " times the file\n";
    return times;
  }

  /// Returns a short name that is different for each number.
  static std::string Short(unsigned number) {
    constexpr std::string_view kDigits =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::string text = "_";
    do {
      text.push_back(kDigits[number % kDigits.size()]);
      number /= kDigits.size();
    } while (number != 0);
    return text;
  }
};

TEST_F(LargestFile, OfUsualShapeTakesEightfoldMemory) {
  const auto record = [](unsigned i) {
    const std::string n = std::to_string(i);
    return "PL Own" + n + " Command='Own:Command" + n + "' Caption='Command " + n +
           "' Image='C:\\Icons\\" + n + ".bmp' Shortcut1='Ctrl+Shift+" + n + "' End\r\n";
  };
  EXPECT_LE(PeakOfInstallation("usual records", "", record), 8);
}

/// Every accepted file must be handled within two gigabytes of address space, regardless of its
/// shape.
TEST_F(LargestFile, OfWorstShapesFitsTheAddressSpace) {
  constexpr double kHalfAGigabyte = 64;
  EXPECT_LE(PeakOfInstallation("nothing but small records", "",
                               [](unsigned i) { return "PL " + Short(i) + " End "; }),
            kHalfAGigabyte);
  EXPECT_LE(PeakOfInstallation(
                "one record of small attributes", "PL _Own",
                [](unsigned i) { return " " + Short(i) + "=1"; }, " End\r\n"),
            kHalfAGigabyte);
}

/// Kills an installation into three instances at any time, also inside calls, and checks the files.
/// KilledRegistration and DyingInstallation end the process before and after each call.
class KilledInstallation : public InstallTest {
 protected:
  /// Sets up three instances without the button, and no runtime.
  void Begin() {
    ASSERT_TRUE(RemoveTree(folders_.local + L"\\Kestrune")) << GetLastError();
    hosts_.clear();
    for (unsigned number = 1; number <= 3; ++number) {
      const BoxInstance instance = UsedHost(number, number == 2 ? 17 : 24);
      static_cast<void>(RemoveTree(PlaceOf(instance).profile));
      hosts_.push_back(MakeHost(instance));
      old_files_[hosts_.back().rcs] = instance.rcs;
    }
  }

  /// Returns the bytes of the customization files and of the complete files of the runtime.
  std::map<std::wstring, std::string> Files() const {
    std::map<std::wstring, std::string> files;
    for (const MadeInstance& host : hosts_) {
      files[host.rcs] = FileBytes(host.rcs);
    }
    for (const std::wstring& name : NamesIn(folders_.runtime)) {
      if (!name.ends_with(L".incoming")) {
        files[Runtime(name)] = FileBytes(Runtime(name));
      }
    }
    return files;
  }

  /// Starts an installation and kills it after a time. Returns whether it was still running.
  bool KillAfter(std::int64_t microseconds) {
    LARGE_INTEGER frequency{};
    LARGE_INTEGER now{};
    QueryPerformanceFrequency(&frequency);
    ProgramRun run(KestrunePath(), L"--install --quiet --package " + Quoted(package_));
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
    return alive;
  }

  /// Moves the displaced file back as a user would. Wine replaces a file with two renames.
  void PutDisplacedFileBack(const MadeInstance& host) {
    for (const std::wstring& name : NamesIn(host.profile)) {
      if (name.ends_with(L".old.tmp")) {
        EXPECT_TRUE(MoveFileExW(JoinPath(host.profile, name).c_str(), host.rcs.c_str(), 0));
      }
    }
  }

  /// Expects that each file is whole: the old one, the new one or, of the runtime, none.
  void CheckRemains() {
    for (const MadeInstance& host : hosts_) {
      if (!Exists(host.rcs)) {
        PutDisplacedFileBack(host);
      }
      const std::vector<std::wstring> projects = ReadAsHost(host).projects;
      EXPECT_EQ(std::ranges::count(projects, L"C:\\Scripts\\It's.PrjScr"), 1);
      EXPECT_LE(projects.size(), 2U);
    }
    for (const auto& [path, bytes] : Files()) {
      EXPECT_TRUE(bytes == new_files_[path] ||
                  (old_files_.contains(path) && bytes == old_files_[path]))
          << Utf8FromWide(path) << ", " << bytes.size() << " bytes";
    }
  }

  std::vector<MadeInstance> hosts_;
  std::map<std::wstring, std::string> old_files_;
  std::map<std::wstring, std::string> new_files_;
};

TEST_F(KilledInstallation, LeavesWholeFilesAndTheNextSucceeds) {
  KESTRUNE_NEEDS_TIME();
  constexpr int kKills = 40;
  Begin();
  const RunOutcome whole = RunQuietly(L"--install");
  ASSERT_TRUE(EndsSilentlyWith(0, whole));
  new_files_ = Files();
  std::int64_t duration = std::int64_t{whole.milliseconds} * 1000;
  for (int killed = 0; killed < kKills && !HasFailure();) {
    SCOPED_TRACE("kill " + std::to_string(killed));
    Begin();
    if (KillAfter(duration * killed / kKills)) {
      ++killed;
    } else {
      duration = duration * 9 / 10;
    }
    CheckRemains();
    ASSERT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
    for (const auto& [path, bytes] : new_files_) {
      EXPECT_EQ(FileBytes(path), bytes) << Utf8FromWide(path);
    }
  }
  std::cout << "[ MEASURED ] " << kKills << " installations ended in the first " << duration / 1000
            << " ms\n";
}

}  // namespace
}  // namespace kestrune
