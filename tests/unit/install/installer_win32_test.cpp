#include "install/installer_win32.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "common/text/text.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/scarce_memory.h"
#include "tests/support/scripted_calls_win32.h"

namespace kestrune {
namespace {

using Refused = ScarceMemory::Refused;

class InstallerFromNowhere : public InstallTest {};

TEST_F(InstallerFromNowhere, DeploysNothingAndChangesNoProfile) {
  const MadeInstance host = MakeHost(UsedHost(1, 24));
  const std::string rcs = FileBytes(host.rcs);
  InstallerOptions with_package;
  with_package.package = package_;
  for (const InstallerOptions& options : {InstallerOptions{}, with_package}) {
    SystemCalls calls;
    const InstallerResult result = RunInstallerCommand(calls, options, L"");
    EXPECT_EQ(result.code, 40);
    EXPECT_EQ(result.message, Failed(host, L"Runtime deployment failed; profile unchanged."));
    ExpectLogged(1, {L"Installer failed | Error=The program's own path is too long. GetLastError=0 "
                     L"Package=" +
                         options.package,
                     L"Installer failed | Error=Runtime deployment failed; profile unchanged. "
                     L"GetLastError=0 GUID=" +
                         host.guid});
  }
  EXPECT_EQ(FileBytes(host.rcs), rcs);
  EXPECT_TRUE(HasNothingOfOurs(host));
  EXPECT_EQ(NamesIn(folders_.runtime), std::vector<std::wstring>{});
}

class InstallerWithStrangeCalls : public InstallTest {
 protected:
  /// Installs while the first host's file throws when it is opened.
  template <class Thrown>
  InstallerResult Install(const MadeInstance& first, const Thrown& thrown) {
    ScriptedCalls calls;
    calls.before = [&](const SystemCall& call) -> std::optional<DWORD> {
      if (call.name == "Create" && call.path == ExtendedPath(first.rcs).Text()) {
        throw thrown;
      }
      return std::nullopt;
    };
    InstallerOptions options;
    options.package = package_;
    return RunInstallerCommand(calls, options, KestrunePath());
  }
};

TEST_F(InstallerWithStrangeCalls, AnyExceptionIsItsInstancesLine) {
  const MadeInstance first = MakeHost(UsedHost(1, 17));
  const MadeInstance second = MakeHost(UsedHost(2, 24));
  const InstallerResult strange = Install(first, std::runtime_error("strange"));
  EXPECT_EQ(strange.code, 40);
  EXPECT_EQ(strange.message, Failed(first, L"Unexpected failure: strange") + Registered(second));
  ExpectLogged(1, {L"Installer failed | Error=Unexpected failure: strange GetLastError=0 GUID=" +
                   first.guid});
  const InstallerResult stranger = Install(first, 7);
  EXPECT_EQ(stranger.code, 40);
  EXPECT_EQ(stranger.message, Failed(first, L"Unexpected failure.") + Registered(second));
  const InstallerResult without_memory = Install(first, std::bad_alloc());
  EXPECT_EQ(without_memory.message, Failed(first, L"Not enough memory.") + Registered(second));
  EXPECT_TRUE(HasNothingOfOurs(first));
  EXPECT_TRUE(HasWorkingButton(second));
}

/// Installations in this process, over two instances of one user.
class InstallerInScarcity : public InstallTest {
 protected:
  void Begin() {
    ClearBox();
    hosts_ = {MakeHost(UsedHost(1, 24)), MakeHost(UsedHost(2, 17))};
  }

  /// Returns the number of attempted allocations.
  long Install(long allowed, Refused refused) {
    InstallerOptions options;
    options.package = package_;
    const std::wstring program = KestrunePath();
    SystemCalls calls;
    const ScarceMemory memory(allowed, refused);
    result_ = RunInstallerCommand(calls, options, program);
    return ScarceMemory::Asked();
  }

  std::vector<MadeInstance> hosts_;
  InstallerResult result_;
};

TEST_F(InstallerInScarcity, ChangesAreReportedAndSuccessIsComplete) {
  constexpr long kPoints = 12;
  Begin();
  const long all = Install(std::numeric_limits<long>::max(), Refused::One);
  ASSERT_EQ(result_.code, 0) << Utf8FromWide(result_.message);
  ASSERT_GT(all, kPoints);
  int partly = 0;
  for (const Refused refused : {Refused::One, Refused::AllFromThenOn}) {
    for (long point = 0; point <= kPoints; ++point) {
      SCOPED_TRACE(testing::Message() << "allocation " << (all - 1) * point / kPoints << " of "
                                      << all << (refused == Refused::One ? "" : " and all later"));
      Begin();
      const std::string before[] = {FileBytes(hosts_[0].rcs), FileBytes(hosts_[1].rcs)};
      Install((all - 1) * point / kPoints, refused);
      EXPECT_TRUE(result_.code == 40 || result_.code == 0) << result_.code;
      for (std::size_t i = 0; i < 2; ++i) {
        const bool changed = FileBytes(hosts_[i].rcs) != before[i];
        partly += changed && result_.code == 40 ? 1 : 0;
        EXPECT_TRUE(!changed || result_.message.find(hosts_[i].guid) != std::wstring::npos)
            << Utf8FromWide(result_.message);
        // Some memory can be done without, but success is no less for it.
        EXPECT_TRUE(result_.code == 40 || HasWorkingButton(hosts_[i]));
      }
    }
  }
  EXPECT_GT(partly, 0);
}

}  // namespace
}  // namespace kestrune
