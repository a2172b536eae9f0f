#include "common/places/known_folders_win32.h"

#include <windows.h>
#include <knownfolders.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "tests/support/machine/disposable_profile_win32.h"
#include "tests/support/machine/moved_profile_win32.h"
#include "tests/support/machine/unknown_folders_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

/// Changes the user's entry in the system's profile list and puts it back at the end.
class ProfileListTest : public testing::Test {
 protected:
  void SetUp() override {
    KESTRUNE_NEEDS_DISPOSABLE_PROFILE();
    if (!entry_.Writable()) {
      GTEST_SKIP() << "only an administrator may change the profile list";
    }
  }

  ProfileListEntry entry_;
};

constexpr wchar_t kNoProfile[] = L"Cannot determine the current Windows user profile directory.";
constexpr DWORD kWithNul = sizeof(wchar_t);

std::wstring Local() {
  std::wstring path;
  std::wstring error_text = L"old";
  EXPECT_TRUE(LocalAppDataDirectory(RealCalls(), path, error_text));
  EXPECT_EQ(error_text, L"");
  return path;
}

std::wstring Roaming() {
  std::wstring path;
  std::wstring error_text = L"old";
  EXPECT_TRUE(RoamingAppDataDirectory(RealCalls(), path, error_text));
  EXPECT_EQ(error_text, L"");
  return path;
}

/// Returns the profile from the environment, which the lookups do not use.
std::wstring UserProfile() {
  std::wstring profile;
  EXPECT_TRUE(ExpandEnvironment(RealCalls(), L"%USERPROFILE%", profile));
  return profile;
}

TEST(KnownFolders, AreInTheUsersProfile) {
  EXPECT_EQ(Local(), JoinPath(UserProfile(), L"AppData\\Local"));
  EXPECT_EQ(Roaming(), JoinPath(UserProfile(), L"AppData\\Roaming"));
}

TEST(KnownFolders, ShellsProfileServesWhereListHasNone) {
  UnknownFolders folders;
  folders.known = &FOLDERID_Profile;
  folders.shell_path = L"C:\\shell";
  std::wstring path;
  std::wstring error_text = L"old";
  EXPECT_TRUE(LocalAppDataDirectory(folders, path, error_text));
  EXPECT_EQ(path, L"C:\\shell\\AppData\\Local");
  EXPECT_EQ(error_text, L"");
}

TEST(KnownFolders, WithoutProfileTheShellsFolderIsUsed) {
  UnknownFolders folders;
  folders.known = &FOLDERID_LocalAppData;
  folders.shell_path = L"D:\\redirected";
  std::wstring path;
  std::wstring error_text;
  EXPECT_TRUE(LocalAppDataDirectory(folders, path, error_text));
  EXPECT_EQ(path, L"D:\\redirected");
  EXPECT_EQ(error_text, kNoProfile);
  folders.known = &FOLDERID_RoamingAppData;
  EXPECT_TRUE(RoamingAppDataDirectory(folders, path, error_text));
  EXPECT_EQ(path, L"D:\\redirected");
  EXPECT_EQ(error_text, kNoProfile);
}

TEST(KnownFolders, WithoutAnyFolderOnlyTextIsLeft) {
  UnknownFolders folders;
  std::wstring path;
  std::wstring error_text;
  EXPECT_FALSE(LocalAppDataDirectory(folders, path, error_text));
  EXPECT_EQ(error_text, kNoProfile);
  EXPECT_FALSE(TemporaryRoot(folders, path, error_text));
  EXPECT_EQ(error_text, L"Cannot locate the Public Documents directory.");
}

TEST(KnownFolders, TemporaryRootIsInPublicDocuments) {
  std::wstring root;
  std::wstring error_text;
  ASSERT_TRUE(TemporaryRoot(RealCalls(), root, error_text));
  EXPECT_TRUE(root.ends_with(L"\\Kestrune\\Temp")) << root.size();
  const std::wstring documents(ParentPath(ParentPath(root)));
  EXPECT_EQ(QueryFileKind(RealCalls(), documents), FileKind::Directory);
}

TEST(KnownFolders, OnlyPublicDocumentsAreCreated) {
  UnknownFolders folders;
  std::wstring path;
  std::wstring error_text;
  folders.known = &FOLDERID_PublicDocuments;
  folders.shell_path = L"D:\\public";
  EXPECT_TRUE(TemporaryRoot(folders, path, error_text));
  EXPECT_EQ(path, L"D:\\public\\Kestrune\\Temp");
  EXPECT_EQ(folders.asked_flags, DWORD{KF_FLAG_CREATE});
  folders.known = &FOLDERID_LocalAppData;
  EXPECT_TRUE(LocalAppDataDirectory(folders, path, error_text));
  EXPECT_EQ(folders.asked_flags, 0U);
}

TEST(KnownFolders, RuntimeRootIsInLocalApplicationData) {
  EXPECT_EQ(RuntimeRoot(L"C:\\Users\\x\\AppData\\Local"),
            L"C:\\Users\\x\\AppData\\Local\\Kestrune\\Runtime");
}

TEST_F(ProfileListTest, ItsEntryDecidesAndNeedNotExist) {
  entry_.Set(REG_SZ, L"Q:\\no such profile", kWithNul);
  EXPECT_EQ(Local(), L"Q:\\no such profile\\AppData\\Local");
  EXPECT_EQ(Roaming(), L"Q:\\no such profile\\AppData\\Roaming");
}

TEST_F(ProfileListTest, EntryIsReadInEveryForm) {
  const struct {
    const char* form;
    DWORD type;
    std::wstring_view text;
    DWORD extra_bytes;
    const wchar_t* local;
  } rows[] = {
      {"expandable", REG_EXPAND_SZ, L"%SystemDrive%\\x", kWithNul, L"C:\\x\\AppData\\Local"},
      {"plain", REG_SZ, L"%SystemDrive%\\x", kWithNul, L"%SystemDrive%\\x\\AppData\\Local"},
      {"no terminator", REG_SZ, L"C:\\profile", 0, L"C:\\profile\\AppData\\Local"},
      {"odd byte", REG_SZ, L"C:\\profile", 1, L"C:\\profile\\AppData\\Local"},
      {"NUL inside", REG_SZ, {L"C:\\x\0junk", 9}, kWithNul, L"C:\\x\\AppData\\Local"}};
  for (const auto& row : rows) {
    entry_.Set(row.type, row.text, row.extra_bytes);
    EXPECT_EQ(Local(), row.local) << row.form;
  }
}

TEST_F(ProfileListTest, WithoutUsableEntryTheShellsProfileCounts) {
  const std::wstring expected = JoinPath(UserProfile(), L"AppData\\Local");
  entry_.Set(REG_SZ, L"", kWithNul);
  EXPECT_EQ(Local(), expected) << "empty";
  entry_.Set(REG_BINARY, L"C:\\profile", kWithNul);
  EXPECT_EQ(Local(), expected) << "no text";
  entry_.Remove();
  EXPECT_EQ(Local(), expected) << "missing";
}

}  // namespace
}  // namespace kestrune
