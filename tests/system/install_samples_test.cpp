// The installer over the customization files of real users.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/registration/rcs_model.h"
#include "tests/support/samples_win32.h"

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
    KESTRUNE_NEEDS_SAMPLES();
    InstallTest::SetUp();
  }

  static std::vector<Profile> MakeAll() {
    std::vector<Profile> profiles;
    for (const std::wstring& path : SampleFiles(L"rcs")) {
      if (!LowerAscii(path).ends_with(L".rcs")) {
        continue;
      }
      Profile profile{Utf8FromWide(FileName(path)), FileBytes(path), {}};
      profile.refused = IsRefused(profile.rcs);
      // The file's name begins with the host's version: "AD17-...".
      const int major = profile.name.starts_with("AD") ? std::stoi(profile.name.substr(2, 2)) : 24;
      BoxInstance instance = UsedHost(static_cast<unsigned>(profiles.size() + 1), major);
      instance.rcs = profile.rcs;
      profile.host = MakeHost(instance);
      profiles.push_back(profile);
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
};

TEST_F(RealProfiles, AreRegisteredOrUnchangedAndRestored) {
  const std::vector<Profile> profiles = MakeAll();
  ASSERT_FALSE(profiles.empty());
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
