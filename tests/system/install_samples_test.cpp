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
    HostView before;
    /// Whether it is refused without extra record kinds.
    bool refused = false;
  };

  void SetUp() override {
    KESTRUNE_NEEDS_SAMPLES();
    InstallTest::SetUp();
  }

  std::vector<Profile> MakeAll() {
    std::vector<Profile> profiles;
    for (const std::wstring& path : SampleFiles(L"rcs")) {
      if (!LowerAscii(path).ends_with(L".rcs")) {
        continue;
      }
      Profile profile;
      profile.name = Utf8FromWide(FileName(path));
      profile.rcs = FileBytes(path);
      profile.refused = IsRefused(profile.rcs);
      BoxInstance instance =
          UsedHost(static_cast<unsigned>(profiles.size() + 1), MajorOf(profile.name));
      instance.rcs = profile.rcs;
      profile.host = MakeHost(instance);
      profile.before = ReadAsHost(profile.host);
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

  /// Returns the host's version from the file's name: "AD17-...".
  static int MajorOf(const std::string& name) {
    return name.starts_with("AD") ? std::stoi(name.substr(2, 2)) : 24;
  }

  static void ExpectAsBefore(const Profile& profile) {
    const HostView view = ReadAsHost(profile.host);
    EXPECT_EQ(view.error, profile.before.error);
    EXPECT_EQ(view.projects, profile.before.projects);
    ASSERT_EQ(view.buttons.size(), profile.before.buttons.size());
    for (std::size_t i = 0; i < view.buttons.size(); ++i) {
      EXPECT_EQ(view.buttons[i].toolbar, profile.before.buttons[i].toolbar);
      EXPECT_EQ(view.buttons[i].procedure, profile.before.buttons[i].procedure);
      EXPECT_EQ(view.buttons[i].visible, profile.before.buttons[i].visible);
    }
  }
};

TEST_F(RealProfiles, AreRegisteredOrUnchanged) {
  const std::vector<Profile> profiles = MakeAll();
  ASSERT_FALSE(profiles.empty());
  const auto refused = std::ranges::count_if(profiles, &Profile::refused);
  EXPECT_TRUE(EndsSilentlyWith(refused == 0 ? 0 : 40, RunQuietly(L"--install")));
  for (const Profile& profile : profiles) {
    SCOPED_TRACE(profile.name);
    if (profile.refused) {
      EXPECT_EQ(FileBytes(profile.host.rcs), profile.rcs);
      EXPECT_TRUE(HasNothingOfOurs(profile.host));
    } else {
      EXPECT_TRUE(HasWorkingButton(profile.host));
    }
  }
  std::cout << "[ MEASURED ] " << profiles.size() << " real profiles, " << refused
            << " refused without ExtraRecords\n";
}

TEST_F(RealProfiles, WithExtraRecordsAreRegisteredAndRestored) {
  const std::vector<Profile> profiles = MakeAll();
  ASSERT_FALSE(profiles.empty());
  ExtraRecords(L"Change");
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--install")));
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--status")));
  for (const Profile& profile : profiles) {
    SCOPED_TRACE(profile.name);
    EXPECT_TRUE(HasWorkingButton(profile.host));
    EXPECT_EQ(FileBytes(LatestBackup(profile.host) + L"\\DXP.RCS.before"), profile.rcs);
  }
  EXPECT_TRUE(EndsSilentlyWith(0, RunQuietly(L"--uninstall")));
  for (const Profile& profile : profiles) {
    SCOPED_TRACE(profile.name);
    EXPECT_TRUE(HasNothingOfOurs(profile.host));
    ExpectAsBefore(profile);
  }
}

}  // namespace
}  // namespace kestrune
