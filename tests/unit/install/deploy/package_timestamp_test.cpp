#include "install/deploy/package_timestamp.h"

#include <gtest/gtest.h>

#include <string>

namespace kestrune {
namespace {

const std::wstring kDigest = L"0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF";

TEST(ManifestValue, GivesTimeAndDigest) {
  const std::wstring value = L"01DB7A0F:89ABCDE0|" + kDigest;
  ManifestEntry entry;
  ASSERT_TRUE(ParseManifestValue(value, entry));
  EXPECT_EQ(entry.time, 0x01DB7A0F89ABCDE0ULL);
  EXPECT_EQ(entry.digest, kDigest);
}

TEST(ManifestValue, OneHalfOfTimeMayBeZero) {
  ManifestEntry entry;
  EXPECT_TRUE(ParseManifestValue(L"00000000:00000001|" + kDigest, entry));
  EXPECT_EQ(entry.time, 1U);
  EXPECT_TRUE(ParseManifestValue(L"00000001:00000000|" + kDigest, entry));
  EXPECT_EQ(entry.time, 0x100000000ULL);
  EXPECT_FALSE(ParseManifestValue(L"00000000:00000000|" + kDigest, entry));
}

TEST(ManifestValue, EveryOtherLengthIsRefused) {
  const std::wstring value = L"01DB7A0F:89ABCDE0|" + kDigest + L"00";
  ManifestEntry entry;
  for (std::size_t length = 0; length <= value.size(); ++length) {
    EXPECT_EQ(ParseManifestValue(std::wstring_view(value).substr(0, length), entry), length == 82)
        << length;
  }
}

TEST(ManifestValue, TimeAndSeparatorsHaveFixedCharacters) {
  const std::wstring good = L"01DB7A0F:89ABCDE0|" + kDigest;
  for (std::size_t i = 0; i < 18; ++i) {
    for (const wchar_t wrong : {L'a', L'f', L'G', L' ', L'-', L'/', L'@', L'\xFF10'}) {
      std::wstring value = good;
      value[i] = wrong;
      ManifestEntry entry;
      EXPECT_FALSE(ParseManifestValue(value, entry)) << i;
    }
  }
}

TEST(ManifestValue, DigestIsHandedOutAsWritten) {
  ManifestEntry entry;
  ASSERT_TRUE(ParseManifestValue(L"01DB7A0F:89ABCDE0|" + std::wstring(64, L'z'), entry));
  EXPECT_EQ(entry.digest, std::wstring(64, L'z'));
}

TEST(ManifestName, IsJudgedByTheLongName) {
  EXPECT_TRUE(IsManifestName(L"BFM_.ini"));
  EXPECT_TRUE(IsManifestName(L"bfm_Script.INI"));
  EXPECT_FALSE(IsManifestName(L"BFM_x.ini_old"));
  EXPECT_FALSE(IsManifestName(L"BFM.ini"));
  EXPECT_FALSE(IsManifestName(L"xBFM_.ini"));
  EXPECT_FALSE(IsManifestName(L""));
}

TEST(TrustWithoutManifest, EndsInsideTheFamilyFolder) {
  EXPECT_TRUE(IsTrustedWithoutManifest(L"C:\\Users\\x\\AppData\\Local\\Kestrune\\Runtime\\a"));
  EXPECT_TRUE(IsTrustedWithoutManifest(L"kestrune.exe"));
  EXPECT_FALSE(IsTrustedWithoutManifest(L"C:\\Kestrunes\\a"));
  EXPECT_FALSE(IsTrustedWithoutManifest(L"C:\\my KESTRUNESx\\a"));
}

}  // namespace
}  // namespace kestrune
