#include "install/button.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

constexpr std::string_view kLegacy =
    "Tree TLPCBToolbar Caption='Bar'\r\n  Link TBPCB_StandardToolbar760 PLID='a' End\r\nEnd\r\n";
constexpr std::string_view kActive =
    "Tree TopBarPCB Caption='Bar'\r\n  Link TopBarPCB010 PLID='a' End\r\nEnd\r\n";

/// Returns the kind of the chosen place; 0 for none.
int KindFor(const std::string& resource, std::int32_t major) {
  const auto anchor = ChooseAnchor(resource, major, {});
  return anchor ? static_cast<int>(anchor->kind) : 0;
}

TEST(AnchorChoice, OnlyPlaceIsTakenForEveryVersion) {
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

TEST(AnchorChoice, OfSeveralOfOneKindLastCounts) {
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

TEST(AnchorChoice, AcceptedRecordsMayBeInTheToolbar) {
  const std::string resource =
      "Tree TopBarPCB A='1'\n Change c B='2' End\n Link TopBarPCB010 End\nEnd\n";
  const std::vector<std::string> kKinds = {"Change"};
  EXPECT_FALSE(ChooseAnchor(resource, 24, {}));
  EXPECT_TRUE(ChooseAnchor(resource, 24, kKinds));
}

TEST(ToolbarImage, FollowsToolbarThenTheOneSpecialBuild) {
  EXPECT_EQ(ChooseToolbarImage(L"26.9.1.9", false, L"Altium Designer Develop"),
            L"odbpp-toolbar-legacy.bmp");
  EXPECT_EQ(ChooseToolbarImage(L"26.9.1.9", true, L"Altium Designer DEVELOP"),
            L"odbpp-toolbar-ad26-16.png");
  EXPECT_EQ(ChooseToolbarImage(L"26.9.1.9", true, L"Altium Designer Develop 26.9.1.9"),
            L"odbpp-toolbar-ad26-16.png");
  for (const wchar_t* other : {L"Altium Designer", L"Altium Designer Agile",
                               L"Altium Designer Develop Beta", L"Altium Designer 26.9.1.9"}) {
    EXPECT_EQ(ChooseToolbarImage(L"26.9.1.9", true, other), L"odbpp-toolbar-activebar.png");
  }
  for (const wchar_t* version : {L"26.9.1.90", L"26.9.1", L"", L" 26.9.1.9"}) {
    EXPECT_EQ(ChooseToolbarImage(version, true, L"Altium Designer Develop"),
              L"odbpp-toolbar-activebar.png");
  }
}

}  // namespace
}  // namespace kestrune
