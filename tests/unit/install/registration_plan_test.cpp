#include "install/registration_plan.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

constexpr std::string_view kLegacy =
    "Tree TLPCBToolbar Caption='Bar'\r\n  Link TBPCB_StandardToolbar760 PLID='a' End\r\nEnd\r\n";
constexpr std::string_view kActive =
    "Tree TopBarPCB Caption='Bar'\r\n  Link TopBarPCB010 PLID='a' End\r\nEnd\r\n";

/// 0 for no place, else its kind.
int KindFor(const std::string& resource, std::int32_t major) {
  const auto anchor = ChooseAnchor(resource, major, {});
  return anchor ? static_cast<int>(anchor->kind) : 0;
}

TEST(AnchorChoice, TheOnlyPlaceIsTakenWhateverTheVersion) {
  for (const std::int32_t major : {-1, 0, 1, 17, 18, 26}) {
    EXPECT_EQ(KindFor(std::string(kLegacy), major), 1) << major;
    EXPECT_EQ(KindFor(std::string(kActive), major), 2) << major;
    EXPECT_EQ(KindFor("", major), 0) << major;
    EXPECT_EQ(KindFor("Tree TLPCBToolbar X='1'\nEnd\n", major), 0) << major;
  }
}

TEST(AnchorChoice, OfTwoPlacesTheVersionDecides) {
  const std::string both = std::string(kLegacy) + std::string(kActive);
  EXPECT_EQ(KindFor(both, 1), 1);
  EXPECT_EQ(KindFor(both, 17), 1);
  EXPECT_EQ(KindFor(both, 18), 2);
  EXPECT_EQ(KindFor(both, 2147483647), 2);
  EXPECT_EQ(KindFor(both, 0), 0);
  EXPECT_EQ(KindFor(both, -24), 0);
}

TEST(AnchorChoice, GivesTargetAndReferenceOfThePlace) {
  const auto anchor = ChooseAnchor(kActive, 24, {});
  ASSERT_TRUE(anchor);
  EXPECT_EQ(anchor->target, "TopBarPCB");
  EXPECT_EQ(anchor->reference, "TopBarPCB010");
}

TEST(AnchorChoice, OfSeveralOfOneKindTheLastCounts) {
  using altium_registration::ToolbarAnchor;
  using altium_registration::ToolbarKind;
  constexpr ToolbarAnchor kPlaces[] = {{"TopBarPCB", "TopBarPCB010", ToolbarKind::ActiveBar},
                                       {"TopBarPCB", "TopBarPCB020", ToolbarKind::ActiveBar},
                                       {"TopBarPCB", "TopBarPCB030", ToolbarKind::Legacy}};
  const std::string all =
      "Tree TopBarPCB Caption='Bar'\n Link TopBarPCB020 End\n Link TopBarPCB030 End\n"
      " Link TopBarPCB010 End\nEnd\n";
  const auto last = ChooseAnchor(all, 24, {}, kPlaces);
  ASSERT_TRUE(last);
  EXPECT_EQ(last->reference, "TopBarPCB020");
  const auto only =
      ChooseAnchor("Tree TopBarPCB A='1'\n Link TopBarPCB010 End\nEnd\n", 24, {}, kPlaces);
  ASSERT_TRUE(only);
  EXPECT_EQ(only->reference, "TopBarPCB010");
}

TEST(AnchorChoice, RecordsThatAreLetThroughMayStandInTheToolbar) {
  const std::string resource =
      "Tree TopBarPCB A='1'\n Change c B='2' End\n Link TopBarPCB010 End\nEnd\n";
  const std::vector<std::string> kKinds = {"Change"};
  EXPECT_FALSE(ChooseAnchor(resource, 24, {}));
  EXPECT_TRUE(ChooseAnchor(resource, 24, kKinds));
}

TEST(ShownError, KeepsAnOrdinaryErrorAsItIs) {
  EXPECT_EQ(ShownError(L""), L"");
  EXPECT_EQ(ShownError(L"Unknown RCS record: \u00CF'~ \u00A0\u00FF"),
            L"Unknown RCS record: \u00CF'~ \u00A0\u00FF");
  EXPECT_EQ(ShownError(std::wstring(200, L'x')), std::wstring(200, L'x'));
}

TEST(ShownError, IsCutAfterTwoHundredCharacters) {
  EXPECT_EQ(ShownError(std::wstring(201, L'x')), std::wstring(200, L'x') + L"...");
  EXPECT_EQ(ShownError(std::wstring(8'000'000, L'x')).size(), 203U);
}

TEST(ShownError, ReplacesControlCharactersAndLineBreaks) {
  std::wstring controls;
  for (wchar_t unit = 0; unit < L' '; ++unit) {
    controls += unit;
  }
  controls += L"\x7F";
  controls += L"\x80";
  controls += L"\x85";
  controls += L"\x9F";
  EXPECT_EQ(ShownError(L"a" + controls + L"b"), L"a" + std::wstring(36, L'?') + L"b");
}

TEST(InstanceTexts, NameVersionGuidProfileAndBranch) {
  HostInstance instance;
  instance.display_name = L"Altium Designer";
  instance.version_text = L"24.1.2.44";
  instance.guid = L"{01234567-89ab-cdef-0123-456789abcdef}";
  instance.profile_directory = L"C:\\P";
  instance.registry_branch = L"Software\\Altium\\A";
  EXPECT_EQ(InstanceHeader(instance),
            L"Altium Designer 24.1.2.44\nGUID: {01234567-89ab-cdef-0123-456789abcdef}\n"
            L"Profile: C:\\P\nHKCU: Software\\Altium\\A\n");
  EXPECT_EQ(IdentityLine(instance),
            L"Product=Altium Designer Version=24.1.2.44 "
            L"GUID={01234567-89ab-cdef-0123-456789abcdef}");
}

TEST(InstanceTexts, WhatIsNotKnownStaysEmpty) {
  EXPECT_EQ(InstanceHeader({}), L" \nGUID: \nProfile: \nHKCU: \n");
}

}  // namespace
}  // namespace kestrune
