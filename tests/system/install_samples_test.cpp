// The installer over the customization files of real users.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/registration/rcs_model.h"
#include "tests/support/samples.h"

namespace kestrune {
namespace {

class RealProfiles : public InstallTest {
 protected:
  struct Profile {
    std::string name;
    std::string rcs;
    MadeInstance host;
    /// Whether it is refused without extra record kinds.
    bool refused = false;
  };

  void SetUp() override {
    if (samples_.empty()) {
      GTEST_SKIP() << "needs the real files";
    }
    InstallTest::SetUp();
  }

  std::vector<Profile> MakeAll() {
    std::vector<Profile> profiles;
    for (const auto& [name, rcs] : samples_) {
      // The file's name begins with the host's version: "AD17-...".
      const int major = name.starts_with("AD") ? std::stoi(name.substr(2, 2)) : 24;
      BoxInstance instance = UsedHost(static_cast<unsigned>(profiles.size() + 1), major);
      instance.rcs = rcs;
      profiles.push_back({name, rcs, MakeHost(instance), IsRefused(rcs)});
    }
    return profiles;
  }

  static bool IsRefused(const std::string& rcs) {
    try {
      rcs_model::Parse(rcs, true, {});
      return false;
    } catch (const rcs_model::Refusal&) {
      return true;
    }
  }

  std::vector<kestrune_tests::Sample> samples_ = kestrune_tests::ReadSamples("rcs", ".RCS");
};

TEST_F(RealProfiles, AreRegisteredOrUnchangedAndRestored) {
  const std::vector<Profile> profiles = MakeAll();
  const auto refused = std::ranges::count_if(profiles, &Profile::refused);
  EXPECT_TRUE(EndsSilentlyWith(refused == 0 ? 0 : 40, RunQuietly(L"--install")));
  for (const Profile& profile : profiles) {
    EXPECT_EQ(FileBytes(profile.host.rcs) == profile.rcs, profile.refused) << profile.name;
    EXPECT_EQ(HasWorkingButton(profile.host), !profile.refused) << profile.name;
  }
  ExtraRecords(L"Change");
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--status")));
  for (const Profile& profile : profiles) {
    EXPECT_TRUE(HasWorkingButton(profile.host)) << profile.name;
  }
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--uninstall")));
  for (const Profile& profile : profiles) {
    EXPECT_TRUE(HasNothingOfOurs(profile.host)) << profile.name;
  }
  std::cout << "[ MEASURED ] " << profiles.size() << " real profiles, " << refused
            << " refused without ExtraRecords\n";
}

}  // namespace
}  // namespace kestrune
