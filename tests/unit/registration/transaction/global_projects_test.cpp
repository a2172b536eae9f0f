#include "registration/transaction/global_projects.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/registration/plan_laws.h"

namespace altium_registration {
namespace {

constexpr std::uint32_t kExpandText = 2;
constexpr std::uint32_t kBinary = 3;
constexpr std::uint32_t kNumber = 4;
constexpr std::uint32_t kTextList = 7;

constexpr std::wstring_view kProject = L"C:\\Kestrune\\Runtime\\Kestrune.PrjScr";

RegistryValue Text(std::wstring_view name, std::wstring_view text) {
  return {std::wstring(name), kRegistryText, TextData(text)};
}

RegistryValue Raw(std::wstring_view name, std::uint32_t type, std::vector<int> bytes) {
  RegistryValue value{std::wstring(name), type, {}};
  for (const int byte : bytes) {
    value.data.push_back(static_cast<std::byte>(byte));
  }
  return value;
}

Values Planned(const Values& values, bool install, std::wstring_view project = kProject) {
  EXPECT_EQ(BrokenPlanLaw(values, project, install), "");
  Values plan;
  std::wstring error;
  EXPECT_TRUE(PlanGlobalProjects(values, project, install, plan, error));
  EXPECT_EQ(error, L"");
  return plan;
}

std::wstring Refused(const Values& values, bool install = true) {
  Values plan = {Text(L"untouched", L"")};
  std::wstring error;
  if (PlanGlobalProjects(values, kProject, install, plan, error)) {
    return L"";
  }
  EXPECT_EQ(plan.size(), 1U);
  return error;
}

TEST(ParseItemName, TakesItemInAnyCaseAndDigits) {
  const std::vector<std::pair<std::wstring, std::uint32_t>> names = {{L"Item0", 0},
                                                                     {L"iTEM3", 3},
                                                                     {L"ITEM12", 12},
                                                                     {L"Item007", 7},
                                                                     {L"Item0000000000001", 1},
                                                                     {L"Item100000", 100000},
                                                                     {L"Item100001", 100001},
                                                                     {L"Item1000009", 1000009}};
  for (const auto& [name, number] : names) {
    std::optional<std::uint32_t> index;
    std::wstring error;
    EXPECT_TRUE(ParseItemName(name, index, error));
    EXPECT_EQ(index, number);
  }
}

TEST(ParseItemName, OtherNamesAreNoItems) {
  for (const std::wstring name : {L"", L"Item", L"Items", L"Item12a", L"Item 1", L"Item-1", L"Ite1",
                                  L"xItem1", L"Item1 ", L"\x0131tem1", L"\x0130tem1", L"Item\x0661",
                                  L"Item\xFF11", L"1Item", L"ItemsCount", L"Item1000010x"}) {
    std::optional<std::uint32_t> index = 5;
    std::wstring error;
    EXPECT_TRUE(ParseItemName(name, index, error));
    EXPECT_EQ(index, std::nullopt);
  }
}

TEST(ParseItemName, DigitAfter100000IsTooMuch) {
  for (const std::wstring name : {L"Item1000010", L"Item1000011", L"Item9999999",
                                  L"Item00001000010", L"Item99999999999999"}) {
    std::optional<std::uint32_t> index;
    std::wstring error;
    EXPECT_FALSE(ParseItemName(name, index, error));
    EXPECT_EQ(error, L"ItemN index too large.");
  }
}

TEST(PlanGlobalProjects, KeepsEveryUnitOfAText) {
  for (const RegistryValue& value :
       {Text(L"Item0", L"C:\\\x0416\xD83D\xDE00"), Raw(L"Item0", kRegistryText, {0, 0}),
        Raw(L"Item0", kRegistryText, {0x34, 0x12, 0, 0})}) {
    const Values plan = Planned({value}, false);
    ASSERT_EQ(plan.size(), 1U);
    EXPECT_EQ(plan[0].data, value.data);
  }
}

TEST(PlanGlobalProjects, WantsATerminatedTextOfWholeUnits) {
  constexpr std::wstring_view kMessage = L"ItemN must be terminated REG_SZ.";
  for (const std::uint32_t type :
       {0U, kExpandText, kBinary, kNumber, kTextList, 11U, 0xFFFFFFFFU}) {
    RegistryValue value = Text(L"Item0", L"x");
    value.type = type;
    EXPECT_EQ(Refused({value}), kMessage);
  }
  EXPECT_EQ(Refused({Raw(L"Item0", kRegistryText, {})}), kMessage);
  EXPECT_EQ(Refused({Raw(L"Item0", kRegistryText, {0})}), kMessage);
  EXPECT_EQ(Refused({Raw(L"Item0", kRegistryText, {65, 0, 0})}), kMessage);
  EXPECT_EQ(Refused({Raw(L"Item0", kRegistryText, {65, 0, 0, 0, 0})}), kMessage);
  EXPECT_EQ(Refused({Raw(L"Item0", kRegistryText, {65, 0})}), kMessage);
  EXPECT_EQ(Refused({Raw(L"Item0", kRegistryText, {65, 0, 0, 1})}), kMessage);
  EXPECT_EQ(Refused({Raw(L"Item0", kRegistryText, {65, 0, 1, 0})}), kMessage);
}

TEST(PlanGlobalProjects, RefusesANulInside) {
  EXPECT_EQ(Refused({Raw(L"Item0", kRegistryText, {65, 0, 0, 0, 0, 0})}),
            L"Embedded NUL in ItemN.");
  EXPECT_EQ(Refused({Raw(L"Item0", kRegistryText, {0, 0, 0, 0})}), L"Embedded NUL in ItemN.");
}

TEST(TextData, IsLittleEndianWithOneNul) {
  EXPECT_EQ(TextData(L"A\x1234"), Raw(L"", 0, {65, 0, 0x34, 0x12, 0, 0}).data);
  EXPECT_EQ(TextData(L""), Raw(L"", 0, {0, 0}).data);
  EXPECT_EQ(TextData(L"\xFFFE"), Raw(L"", 0, {0xFE, 0xFF, 0, 0}).data);
}

TEST(PlanGlobalProjects, AnAbsentKeyPlansOneEntry) {
  EXPECT_TRUE(Identical(Planned({}, true), {Text(L"Item0", kProject)}));
  EXPECT_TRUE(Planned({}, false).empty());
}

TEST(PlanGlobalProjects, EntriesAreAlwaysNumberedDensely) {
  const Values values = {Text(L"Item9", L"nine"), Text(L"Item2", L"two"), Text(L"Item5", kProject)};
  EXPECT_TRUE(Identical(Planned(values, true), {Text(L"Item0", L"two"), Text(L"Item1", kProject),
                                                Text(L"Item2", L"nine")}));
  EXPECT_TRUE(Identical(Planned(values, false), {Text(L"Item0", L"two"), Text(L"Item1", L"nine")}));
}

TEST(PlanGlobalProjects, OrderIsNumeric) {
  const Values values = {Text(L"Item10", L"ten"), Text(L"ITEM009", L"nine"),
                         Text(L"Item100", L"hundred")};
  EXPECT_TRUE(
      Identical(Planned(values, true), {Text(L"Item0", L"nine"), Text(L"Item1", L"ten"),
                                        Text(L"Item2", L"hundred"), Text(L"Item3", kProject)}));
}

TEST(PlanGlobalProjects, MatchIsKeptAsItIsWritten) {
  const Values values = {Text(L"Item0", L"c:/kestrune/RUNTIME\\kestrune.prjscr")};
  EXPECT_TRUE(Identical(Planned(values, true), values));
  EXPECT_TRUE(Planned(values, false).empty());
}

TEST(PlanGlobalProjects, PathGivenIsNormalisedForComparisonOnly) {
  const std::wstring slashes = L"C:/Kestrune/Runtime/Kestrune.PrjScr";
  EXPECT_TRUE(Identical(Planned({}, true, slashes), {Text(L"Item0", slashes)}));
  EXPECT_TRUE(
      Identical(Planned({Text(L"Item0", kProject)}, true, slashes), {Text(L"Item0", kProject)}));
}

TEST(PlanGlobalProjects, NonAsciiLettersMatchIgnoringCase) {
  const Values values = {Text(L"Item0", L"C:\\\x0436\x00E4\\k.PrjScr")};
  EXPECT_TRUE(Identical(Planned(values, true, L"c:\\\x0416\x00C4\\K.prjscr"), values));
}

TEST(PlanGlobalProjects, InstallKeepsFirstMatchRemoveDropsAll) {
  const Values values = {Text(L"Item7", L"C:/KESTRUNE/Runtime/Kestrune.PrjScr"),
                         Text(L"Item3", kProject), Text(L"Item5", L"other")};
  EXPECT_TRUE(
      Identical(Planned(values, true), {Text(L"Item0", kProject), Text(L"Item1", L"other")}));
  EXPECT_TRUE(Identical(Planned(values, false), {Text(L"Item0", L"other")}));
}

TEST(PlanGlobalProjects, OtherValuesComeFirstUnchanged) {
  const Values values = {Raw(L"Zeta", kBinary, {1, 2, 3}), Text(L"Item1", L"one"),
                         Raw(L"", kNumber, {1}),           Raw(L"Items", kExpandText, {65}),
                         Raw(L"Item", kRegistryText, {}),  Text(L"Item12a", L"x")};
  const Values plan = Planned(values, true);
  EXPECT_TRUE(Identical(plan, {values[0], values[2], values[3], values[4], values[5],
                               Text(L"Item0", L"one"), Text(L"Item1", kProject)}));
}

TEST(PlanGlobalProjects, AnEmptyEntryIsKept) {
  EXPECT_TRUE(Identical(Planned({Text(L"Item0", L"")}, false), {Text(L"Item0", L"")}));
}

TEST(PlanGlobalProjects, NamesEqualIgnoringCaseAreRefused) {
  constexpr std::wstring_view kMessage = L"Duplicate registry value name.";
  EXPECT_EQ(Refused({Text(L"Item1", L""), Text(L"item1", L"")}), kMessage);
  EXPECT_EQ(Refused({Text(L"a", L""), Text(L"b", L""), Text(L"A", L"")}), kMessage);
  EXPECT_EQ(Refused({Text(L"\x0416", L""), Text(L"\x0436", L"")}), kMessage);
  EXPECT_EQ(Refused({Text(L"", L""), Text(L"", L"")}), kMessage);
  EXPECT_EQ(Refused({Text(L"a", L""), Text(L"aa", L"")}), L"");
}

TEST(PlanGlobalProjects, TwoSpellingsOfOneNumberAreRefused) {
  EXPECT_EQ(Refused({Text(L"Item1", L""), Text(L"Item01", L"")}), L"Ambiguous numeric ItemN.");
  EXPECT_EQ(Refused({Text(L"Item0", L""), Text(L"Item00", L"")}, false),
            L"Ambiguous numeric ItemN.");
}

TEST(PlanGlobalProjects, ErrorsHaveAFixedOrder) {
  const RegistryValue bad_type = Raw(L"Item2", kNumber, {1, 0, 0, 0});
  const RegistryValue embedded = Raw(L"Item1", kRegistryText, {0, 0, 0, 0});
  const RegistryValue large = Text(L"Item1000010", L"");
  EXPECT_EQ(Refused({large, Text(L"a", L""), Text(L"A", L"")}), L"Duplicate registry value name.");
  EXPECT_EQ(Refused({bad_type, large}), L"ItemN index too large.");
  EXPECT_EQ(Refused({Text(L"Item5", L""), Text(L"Item05", L""), large}),
            L"Ambiguous numeric ItemN.");
  EXPECT_EQ(Refused({Text(L"Item5", L""), large, Text(L"Item05", L"")}), L"ItemN index too large.");
  EXPECT_EQ(Refused({bad_type, embedded}), L"Embedded NUL in ItemN.");
  EXPECT_EQ(Refused({embedded, bad_type, Text(L"Item0", kProject)}), L"Embedded NUL in ItemN.");
  EXPECT_EQ(Refused({bad_type}), L"ItemN must be terminated REG_SZ.");
}

TEST(PlanGlobalProjects, TheLargestNumberIsAccepted) {
  EXPECT_TRUE(Identical(Planned({Text(L"Item1000009", L"x")}, false), {Text(L"Item0", L"x")}));
}

TEST(PlanGlobalProjects, TenThousandValuesArePlanned) {
  constexpr std::uint32_t kCount = 10'000;
  Values values;
  for (std::uint32_t i = 0; i < kCount; ++i) {
    const std::uint32_t number = i * 7919U % kCount;
    values.push_back(Text(L"Item" + std::to_wstring(number), std::to_wstring(number)));
  }
  const Values plan = PlanOf(values, kProject, true);
  ASSERT_EQ(plan.size(), kCount + 1);
  EXPECT_EQ(plan[kCount - 1].data, TextData(L"9999"));
  EXPECT_EQ(plan[kCount].data, TextData(kProject));
}

TEST(SameValues, IgnoresOrderAndCaseOfNames) {
  const Values values = {Text(L"Item0", L"a"), Text(L"Other", L"b"), Text(L"", L"c")};
  Values other = {Text(L"", L"c"), Text(L"item0", L"a"), Text(L"OTHER", L"b")};
  EXPECT_TRUE(SameValues(values, other));
  EXPECT_TRUE(SameValues({}, {}));
  other[1].data = TextData(L"A");
  EXPECT_FALSE(SameValues(values, other));
}

TEST(SameValues, ComparesTypesDataAndNumberOfValues) {
  const Values values = {Text(L"Item0", L"a")};
  EXPECT_FALSE(SameValues(values, {}));
  EXPECT_FALSE(SameValues({}, values));
  EXPECT_FALSE(SameValues(values, {Text(L"Item1", L"a")}));
  EXPECT_FALSE(SameValues(values, {Text(L"Item0", L"a"), Text(L"Item1", L"a")}));
  RegistryValue expand = values[0];
  expand.type = kExpandText;
  EXPECT_FALSE(SameValues(values, {expand}));
  RegistryValue longer = values[0];
  longer.data.push_back(std::byte{0});
  EXPECT_FALSE(SameValues(values, {longer}));
}

}  // namespace
}  // namespace altium_registration
