#include "install/discovery/host_product.h"

#include <gtest/gtest.h>

#include <limits>

namespace kestrune {
namespace {

constexpr wchar_t kGuid[] = L"{01234567-89ab-cdef-0123-456789abcdef}";
constexpr wchar_t kUpperGuid[] = L"{01234567-89AB-CDEF-0123-456789ABCDEF}";

TEST(HostProductName, AcceptsEditionsWithOrWithoutVersion) {
  for (const wchar_t* name :
       {L"Altium Designer", L"ALTIUM DESIGNER", L"altium designer develop",
        L"Altium Designer Agile", L"Altium Designer 24.1", L"Altium Designer 24",
        L"Altium Designer Develop 26.9.1.9", L"altium designer agile 1.2.3.4.5"}) {
    EXPECT_TRUE(IsHostProductName(name)) << testing::PrintToString(std::wstring(name));
  }
}

TEST(HostProductName, RefusesEverythingElse) {
  for (const wchar_t* name :
       {L"", L"altium", L"Altium Designer Viewer", L"altium designer 24..1", L"Altium Designer ",
        L"Altium Designer  24", L"Altium Designer 24 ", L" Altium Designer", L"Altium Designer .24",
        L"Altium Designer 24.", L"Altium Designer .", L"Altium Designer 24a", L"Altium Designer24",
        L"Altium Designer Develop Beta", L"Altium Designer Developer", L"Altium Designer 24-1",
        L"My Altium Designer", L"Altium Designer\t24", L"Altium Designer \x0662\x0664"}) {
    EXPECT_FALSE(IsHostProductName(name)) << testing::PrintToString(std::wstring(name));
  }
}

TEST(HostVersion, ReadsAsFarAsItParses) {
  const struct {
    const wchar_t* text;
    HostVersion version;
  } rows[] = {
      {L"", {0, 0, 0}},
      {L"24", {24, 0, 0}},
      {L"24.", {24, 0, 0}},
      {L"24.1", {24, 1, 0}},
      {L"24.1.2", {24, 1, 2}},
      {L"24.1.2.44", {24, 1, 2}},
      {L"24..2", {24, 0, 0}},
      {L"24.x.2", {24, 0, 0}},
      {L"24 .1", {24, 0, 0}},
      {L"24 1", {24, 0, 0}},
      {L"24-1", {24, 0, 0}},
      {L"24.1-2", {24, 1, 0}},
      {L"24. 1.\t2", {24, 1, 2}},
      {L"  24.1", {24, 1, 0}},
      {L"v24.1", {0, 0, 0}},
      {L"+17.0.5", {17, 0, 5}},
      {L"-3.4", {-3, 4, 0}},
      {L"-", {0, 0, 0}},
      {L"+-1", {0, 0, 0}},
      {L"007.08", {7, 8, 0}},
      {L"2147483647.2147483648.1", {2147483647, 2147483647, 1}},
      {L"-2147483648.-2147483649",
       {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::min(), 0}},
      {L"99999999999999999999999999.1", {2147483647, 1, 0}}};
  for (const auto& row : rows) {
    const HostVersion version = ParseHostVersion(row.text);
    const auto text = testing::PrintToString(std::wstring(row.text));
    EXPECT_EQ(version.major, row.version.major) << text;
    EXPECT_EQ(version.minor, row.version.minor) << text;
    EXPECT_EQ(version.build, row.version.build) << text;
  }
}

TEST(InstanceGuid, Has38CharactersWithHyphensInPlace) {
  EXPECT_TRUE(IsInstanceGuid(kGuid));
  EXPECT_TRUE(IsInstanceGuid(kUpperGuid));
  const std::wstring valid = kGuid;
  EXPECT_FALSE(IsInstanceGuid(L""));
  EXPECT_FALSE(IsInstanceGuid(valid.substr(0, 37)));
  EXPECT_FALSE(IsInstanceGuid(valid + L"}"));
}

TEST(InstanceGuid, EveryCharacterOutOfPlaceIsRefused) {
  const std::wstring valid = kGuid;
  for (std::size_t i = 0; i < valid.size(); ++i) {
    for (const wchar_t wrong : {L'-', L'g', L' ', L'{', L'}', L'\x0660'}) {
      std::wstring changed = valid;
      changed[i] = wrong;
      EXPECT_EQ(IsInstanceGuid(changed), changed == valid) << i;
    }
  }
}

TEST(UninstallString, GivesTheGuidLowerCased) {
  const std::wstring upper = kUpperGuid;
  EXPECT_EQ(GuidFromUninstallString(L"\"C:\\AD\\Install.exe\" -Uninstall -B-UniqueID:\"" + upper +
                                    L"\" -Quiet"),
            kGuid);
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:\"" + upper + L"\""), kGuid);
}

TEST(UninstallString, OnlyTheFirstMatchCounts) {
  const std::wstring good = L"B-UniqueID:\"" + std::wstring(kGuid) + L"\"";
  // A match of the pattern that is not a GUID makes a valid one after it be ignored.
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:\"{12-34}\" " + good), L"");
  // A text that does not match the pattern does not.
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:\"{}\" " + good), kGuid);
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:\"{xyz}\" " + good), kGuid);
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:\"{12-34 " + good), kGuid);
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:\"{12-34} " + good), kGuid);
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:\"{B-UniqueID:\"" + std::wstring(kGuid) + L"\""),
            kGuid);
}

TEST(UninstallString, NeedsMarkAndQuotesExactly) {
  const std::wstring guid = kGuid;
  EXPECT_EQ(GuidFromUninstallString(L""), L"");
  EXPECT_EQ(GuidFromUninstallString(L"b-uniqueid:\"" + guid + L"\""), L"");
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:" + guid), L"");
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:\"" + guid), L"");
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID: \"" + guid + L"\""), L"");
  EXPECT_EQ(GuidFromUninstallString(L"B-UniqueID:\"{"), L"");
}

TEST(DisplayIcon, IsCleanedOfQuotesOrIconNumber) {
  EXPECT_EQ(PathFromDisplayIcon(L"\"C:\\A, B\\X2.exe\",0"), L"C:\\A, B\\X2.exe");
  EXPECT_EQ(PathFromDisplayIcon(L"\"C:\\AD\\X2.exe"), L"C:\\AD\\X2.exe");
  EXPECT_EQ(PathFromDisplayIcon(L"C:\\AD\\X2.exe"), L"C:\\AD\\X2.exe");
  EXPECT_EQ(PathFromDisplayIcon(L"C:\\AD\\X2.exe,0"), L"C:\\AD\\X2.exe");
  EXPECT_EQ(PathFromDisplayIcon(L"C:\\AD\\X2.exe,-12"), L"C:\\AD\\X2.exe");
  EXPECT_EQ(PathFromDisplayIcon(L"C:\\AD\\X2.exe,"), L"C:\\AD\\X2.exe,");
  EXPECT_EQ(PathFromDisplayIcon(L"C:\\A,B\\X2.exe"), L"C:\\A,B\\X2.exe");
  EXPECT_EQ(PathFromDisplayIcon(L""), L"");
  EXPECT_EQ(PathFromDisplayIcon(L"\""), L"");
}

TEST(HostProgramName, IsOneOfTwoInAnyCase) {
  EXPECT_TRUE(NamesHostProgram(L"C:\\AD\\DXP.EXE"));
  EXPECT_TRUE(NamesHostProgram(L"x2.exe"));
  EXPECT_FALSE(NamesHostProgram(L"C:\\AD\\X2.exe\\"));
  EXPECT_FALSE(NamesHostProgram(L"C:\\AD\\AX2.exe"));
  EXPECT_FALSE(NamesHostProgram(L"C:\\X2.exe\\icon.ico"));
  EXPECT_FALSE(NamesHostProgram(L""));
}

NameListing Listing(std::vector<std::wstring> names) {
  return {std::move(names), NameListing::Outcome::Complete};
}

struct Match {
  bool found = false;
  std::wstring name;
  std::wstring reason;
};

Match MatchOf(const NameListing& profiles, const NameListing& branches,
              std::wstring_view guid = kGuid) {
  Match match;
  match.found = MatchInstanceName(guid, profiles, branches, match.name, match.reason);
  return match;
}

TEST(InstanceMatch, NameEndsInGuidInAnyCase) {
  const std::wstring name = L"Altium Designer " + std::wstring(kUpperGuid);
  const Match match = MatchOf(Listing({L"Other", name}), Listing({name, L"x"}));
  EXPECT_TRUE(match.found);
  EXPECT_EQ(match.name, name);
  EXPECT_EQ(match.reason, L"");
  EXPECT_EQ(MatchOf(Listing({kGuid}), Listing({kGuid})).name, kGuid);
}

TEST(InstanceMatch, NeedsExactlyOneOfEach) {
  const std::wstring guid = kGuid;
  const std::wstring a = L"Altium Designer " + guid;
  const std::wstring b = L"Altium Designer Old " + guid;
  const std::wstring text = L"Missing or ambiguous profile/registry instance for " + guid;
  const std::vector<std::vector<std::wstring>> wrong = {
      {}, {L"Altium Designer"}, {guid + L"x"}, {a, b}};
  for (const auto& names : wrong) {
    EXPECT_EQ(MatchOf(Listing(names), Listing({a})).reason, text);
    EXPECT_EQ(MatchOf(Listing({a}), Listing(names)).reason, text);
    EXPECT_FALSE(MatchOf(Listing({a}), Listing(names)).found);
  }
  EXPECT_EQ(MatchOf(Listing({a, b}), Listing({b, a})).reason, text);
}

TEST(InstanceMatch, NamesMustBeEqualToTheLetter) {
  const std::wstring guid = kGuid;
  const std::wstring text = L"Profile and HKCU branch disagree for " + guid;
  EXPECT_EQ(MatchOf(Listing({L"A " + guid}), Listing({L"B " + guid})).reason, text);
  EXPECT_EQ(MatchOf(Listing({L"A " + guid}), Listing({L"a " + guid})).reason, text);
  EXPECT_EQ(MatchOf(Listing({L"A " + guid}), Listing({L"A " + std::wstring(kUpperGuid)})).reason,
            text);
}

TEST(InstanceMatch, ListingsThatFailedGiveTheirReason) {
  using Outcome = NameListing::Outcome;
  const NameListing good = Listing({kGuid});
  EXPECT_EQ(MatchOf({{}, Outcome::CannotRead}, good).reason, L"Cannot read Altium profiles.");
  EXPECT_EQ(MatchOf({{kGuid}, Outcome::CannotEnumerate}, good).reason,
            L"Cannot enumerate Altium profiles.");
  EXPECT_EQ(MatchOf(good, {{}, Outcome::CannotRead}).reason, L"Cannot read HKCU Altium instances.");
  EXPECT_EQ(MatchOf(good, {{kGuid}, Outcome::CannotEnumerate}).reason,
            L"Cannot enumerate HKCU Altium instances.");
}

TEST(InstanceMatch, MalformedGuidMatchesNothing) {
  EXPECT_EQ(MatchOf(Listing({L"x"}), Listing({L"x"}), L"x").reason,
            L"Malformed Altium instance GUID.");
}

}  // namespace
}  // namespace kestrune
