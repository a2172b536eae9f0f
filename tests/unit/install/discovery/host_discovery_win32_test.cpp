#include "install/discovery/host_discovery_win32.h"

#include <gtest/gtest.h>

#include <aclapi.h>
#include <sddl.h>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "install/deploy/package_locator_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/install_fixture_win32.h"
#include "tests/support/machine/moved_profile_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/remove_tree_win32.h"
#include "tests/support/machine/unix_link_win32.h"

namespace kestrune {
namespace {

std::vector<HostInstance> Discover(const HostFilter& filter) {
  SystemCalls calls;
  return DiscoverHostInstances(calls, filter);
}

class HostDiscovery : public InstallTest {
 protected:
  /// Returns the only instance; an empty record with a failed expectation when there are others.
  static HostInstance Only(const HostFilter& options = {}) {
    const std::vector<HostInstance> found = Discover(options);
    EXPECT_EQ(found.size(), 1U);
    return found.size() == 1 ? found[0] : HostInstance();
  }
};

TEST_F(HostDiscovery, FillsTheWholeRecord) {
  const MadeInstance made = MakeHost(UsedHost(1, 24));
  const HostInstance host = Only();
  EXPECT_EQ(host.display_name, L"Altium Designer");
  EXPECT_EQ(host.version_text, L"24.1.2.44");
  EXPECT_EQ(host.version.major, 24);
  EXPECT_EQ(host.version.minor, 1);
  EXPECT_EQ(host.version.build, 2);
  EXPECT_EQ(host.guid, made.guid);
  EXPECT_EQ(host.install_location, made.directory);
  EXPECT_EQ(host.display_icon, L"\"" + made.program + L"\",0");
  EXPECT_NE(host.uninstall_string.find(L"B-UniqueID:"), std::wstring::npos);
  EXPECT_EQ(host.executable, made.program);
  EXPECT_EQ(host.resource_path, made.resource);
  EXPECT_EQ(host.profile_directory, made.profile);
  EXPECT_EQ(host.registry_branch, made.branch);
  EXPECT_EQ(host.rcs_path, made.rcs);
  EXPECT_FALSE(host.needs_verification);
  EXPECT_EQ(host.reason, L"");
  EXPECT_TRUE(host.in_64_bit_view);
}

TEST_F(HostDiscovery, ThirtyTwoBitViewComesFirst) {
  BoxInstance twin = UsedHost(1, 24);
  MakeHost(twin);
  twin.in_64_bit_view = false;
  twin.version = L"23.0.1";
  MakeHost(twin);
  MakeHost(UsedHost(2, 24));
  MakeHost(UsedHost(3, 17));
  const std::vector<HostInstance> found = Discover({});
  ASSERT_EQ(found.size(), 3U);
  EXPECT_FALSE(found[0].in_64_bit_view);
  EXPECT_FALSE(found[1].in_64_bit_view);
  EXPECT_TRUE(found[2].in_64_bit_view);
  EXPECT_EQ(found[0].version_text, L"23.0.1");
  EXPECT_EQ(found[1].version_text, L"17.1.2.44");
  // The second entry of a GUID is ignored even if the filter excludes the first one.
  HostFilter filter;
  filter.major = 24;
  filter.profile = found[0].guid;
  EXPECT_TRUE(Discover(filter).empty());
}

TEST_F(HostDiscovery, ForeignAndDamagedEntriesAreIgnored) {
  const MadeInstance made = MakeHost(UsedHost(1, 24));
  for (const wchar_t* name : {L"Altium Designer Viewer", L"altium designer 24..1", L"", L"Other"}) {
    SetEntryText(made, L"DisplayName", name);
    EXPECT_TRUE(Discover({}).empty());
  }
  SetEntryText(made, L"DisplayName", nullptr);
  EXPECT_TRUE(Discover({}).empty());
  SetEntryText(made, L"DisplayName", L"ALTIUM DESIGNER 24.1");
  EXPECT_EQ(Only().guid, made.guid);
  for (const wchar_t* text : {L"setup.exe", L"B-UniqueID:\"{1234}\"", L""}) {
    SetEntryText(made, L"UninstallString", text);
    EXPECT_TRUE(Discover({}).empty());
  }
}

TEST_F(HostDiscovery, ProgramComesFromIconOrNames) {
  const MadeInstance made = MakeHost(UsedHost(1, 24));
  const std::wstring dxp = JoinPath(made.directory, L"dxp.exe");
  PutFile(dxp, "x");
  const std::pair<std::wstring, std::wstring> rows[] = {
      {L"\"" + dxp + L"\",0", dxp},
      {dxp + L",0", dxp},
      {dxp, dxp},
      {L"\"" + made.directory + L"\\other.ico\"", made.program},
      {L"\"C:\\missing\\dxp.exe\"", made.program},
      {L"\"" + made.directory + L"\\System\"", made.program},
      {L"", made.program}};
  for (const auto& [icon, program] : rows) {
    SetEntryText(made, L"DisplayIcon", icon.c_str());
    EXPECT_EQ(Only().executable, program);
  }
  ASSERT_TRUE(DeleteFileW(made.program.c_str()));
  EXPECT_EQ(Only().executable, dxp);
  // A folder of that name is no program.
  ASSERT_TRUE(DeleteFileW(dxp.c_str()));
  ASSERT_TRUE(TryCreateDirectories(dxp));
  EXPECT_EQ(Only().executable, L"");
  EXPECT_EQ(Only().resource_path, L"");
  EXPECT_FALSE(Only().needs_verification);
}

TEST_F(HostDiscovery, AnEmptyInstallLocationNamesNoProgram) {
  const MadeInstance made = MakeHost(UsedHost(1, 24));
  SetEntryText(made, L"DisplayIcon", nullptr);
  SetEntryText(made, L"InstallLocation", nullptr);
  // Neither in the root of the drive nor in the current directory.
  const std::wstring folders[] = {L"C:", Scratch(L"current")};
  for (const std::wstring& folder : folders) {
    PutFile(JoinPath(folder, L"X2.exe"), "x");
    PutFile(JoinPath(folder, L"dxp.exe"), "x");
  }
  wchar_t before[MAX_PATH] = {};
  GetCurrentDirectoryW(MAX_PATH, before);
  ASSERT_TRUE(SetCurrentDirectoryW(folders[1].c_str()));
  EXPECT_TRUE(Exists(L"X2.exe"));
  EXPECT_EQ(Only().executable, L"");
  SetEntryText(made, L"InstallLocation", L"");
  EXPECT_EQ(Only().executable, L"");
  SetCurrentDirectoryW(before);
  DeleteFileW(L"C:\\X2.exe");
  DeleteFileW(L"C:\\dxp.exe");
}

TEST_F(HostDiscovery, FileOrLinkIsNoProfile) {
  const MadeInstance made = MakeHost(UsedHost(1, 24));
  const std::wstring root(ParentPath(made.profile));
  PutFile(JoinPath(root, L"A file " + made.guid), "x");
  EXPECT_EQ(Only().profile_directory, made.profile);
  const std::wstring elsewhere = Scratch(L"elsewhere");
  PutFile(JoinPath(elsewhere, L"DXP.RCS"), "x");
  const std::wstring link = JoinPath(root, L"A link " + made.guid);
  if (!MakeDirectoryLink(link, elsewhere)) {
    GTEST_SKIP() << "no link could be made here";
  }
  const DWORD attributes = GetFileAttributesW(link.c_str());
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    EXPECT_EQ(Only().profile_directory, made.profile);
  }
  RemoveLink(link);
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
    GTEST_SKIP() << "the link was seen as a folder: Wine shows links of the host system so";
  }
}

TEST_F(HostDiscovery, UserWithoutProfilesHasNone) {
  const MadeInstance made = MakeHost(UsedHost(1, 24));
  const std::wstring missing = L"Missing or ambiguous profile/registry instance for " + made.guid;
  ASSERT_TRUE(RemoveTree(std::wstring(ParentPath(made.profile))));
  EXPECT_EQ(Only().reason, missing);
  EXPECT_TRUE(Only().needs_verification);
  PutFile(std::wstring(ParentPath(made.profile)), "a file instead of the profiles");
  EXPECT_EQ(Only().reason, L"Cannot read Altium profiles.");
  ClearBox();
  MakeHost(UsedHost(1, 24));
  EXPECT_EQ(Only().reason, L"");
  ASSERT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Altium"), ERROR_SUCCESS);
  EXPECT_EQ(Only().reason, missing);
  EXPECT_EQ(Only().profile_directory, L"");
  EXPECT_EQ(Only().rcs_path, L"");
}

TEST_F(HostDiscovery, UnreachableProfilesAreTheReason) {
  const MadeInstance made = MakeHost(UsedHost(1, 24));
  // On a server that is not connected: through a drive letter, and by its name.
  for (const wchar_t* profile : {L"Q:\\users\\user", L"\\\\server.invalid\\profiles\\user"}) {
    const MovedProfile moved(profile);
    const std::wstring reason = Only().reason;
    // Some systems distinguish a missing server from a missing folder.
    EXPECT_TRUE(reason == L"Cannot read Altium profiles." ||
                reason == L"Missing or ambiguous profile/registry instance for " + made.guid);
    EXPECT_EQ(Only().rcs_path, L"");
  }
}

/// Denies all users read access to the user's branches until the end of the scope.
class UnreadableBranches {
 public:
  UnreadableBranches() {
    RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Altium", 0, WRITE_DAC, key_.Put());
    Protect(L"D:P(D;;KR;;;WD)(A;;WD;;;WD)");
  }
  UnreadableBranches(const UnreadableBranches&) = delete;
  UnreadableBranches& operator=(const UnreadableBranches&) = delete;
  ~UnreadableBranches() { Protect(L"D:(A;;KA;;;WD)"); }

  static bool Works() {
    RegistryKey key;
    return RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Altium", 0, KEY_READ, key.Put()) ==
           ERROR_ACCESS_DENIED;
  }

 private:
  void Protect(const wchar_t* access) const {
    LocalMemory<void> security;
    EXPECT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(access, SDDL_REVISION_1,
                                                                     security.Put(), nullptr));
    RegSetKeySecurity(key_.Get(), DACL_SECURITY_INFORMATION, security.Get());
  }

  RegistryKey key_;
};

TEST_F(HostDiscovery, UnreadableBranchesAreTheReason) {
  MakeHost(UsedHost(1, 24));
  {
    const UnreadableBranches unreadable;
    if (!UnreadableBranches::Works()) {
      GTEST_SKIP() << "the access list of a key is not enforced here";
    }
    EXPECT_EQ(Only().reason, L"Cannot read HKCU Altium instances.");
    EXPECT_TRUE(Only().needs_verification);
    EXPECT_EQ(Only().rcs_path, L"");
  }
  EXPECT_EQ(Only().reason, L"");
}

TEST_F(HostDiscovery, ValuesOfOtherTypesReadAsEmpty) {
  const MadeInstance made = MakeHost(UsedHost(1, 24));
  RegistryKey entry;
  RegOpenKeyExW(
      HKEY_LOCAL_MACHINE,
      (L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" + made.uninstall_entry).c_str(),
      0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, entry.Put());
  const DWORD number = 24;
  RegSetValueExW(entry.Get(), L"DisplayVersion", 0, REG_DWORD,
                 reinterpret_cast<const BYTE*>(&number), sizeof(number));
  const wchar_t location[] = L"%SystemDrive%\\x";
  RegSetValueExW(entry.Get(), L"InstallLocation", 0, REG_EXPAND_SZ,
                 reinterpret_cast<const BYTE*>(location), sizeof(location));
  EXPECT_EQ(Only().version_text, L"");
  EXPECT_EQ(Only().version.major, 0);
  EXPECT_EQ(Only().install_location, location);
}

TEST_F(HostDiscovery, ThePackageLocatorGivesTheNearestPackage) {
  const auto locate = [&](std::wstring_view program) {
    return FindPackageDirectory(RealCalls(), JoinPath(package_, program));
  };
  EXPECT_EQ(locate(L"Kestrune.exe"), package_);
  EXPECT_EQ(locate(L"1\\2\\3\\4\\5\\Kestrune.exe"), package_);
  EXPECT_EQ(locate(L"1\\2\\3\\4\\5\\6\\Kestrune.exe"), L"");
  MakePackage(JoinPath(package_, L"1"), kPackageTime, "inner");
  EXPECT_EQ(locate(L"1\\2\\Kestrune.exe"), JoinPath(package_, L"1"));
  ASSERT_TRUE(DeleteFileW(JoinPath(package_, L"1\\Script\\Kestrune.pas").c_str()));
  EXPECT_EQ(locate(L"1\\2\\Kestrune.exe"), package_);
  EXPECT_EQ(FindPackageDirectory(RealCalls(), L"Kestrune.exe"), L"");
  EXPECT_EQ(FindPackageDirectory(RealCalls(), L""), L"");
}

}  // namespace
}  // namespace kestrune
