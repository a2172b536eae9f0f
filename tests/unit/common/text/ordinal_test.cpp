#include "common/text/ordinal.h"

#include <gtest/gtest.h>

#include <string>

namespace kestrune {
namespace {

TEST(Ordinal, IgnoresCaseAndNothingElse) {
  EXPECT_EQ(CompareOrdinalIgnoringCase(L"Board.PcbDoc", L"bOARD.pCBdOC"), 0);
  EXPECT_EQ(CompareOrdinalIgnoringCase(L"\u00C4", L"\u00E4"), 0);
  EXPECT_LT(CompareOrdinalIgnoringCase(L"a", L"B"), 0);
  EXPECT_GT(CompareOrdinalIgnoringCase(L"ab", L"A"), 0);
  EXPECT_NE(CompareOrdinalIgnoringCase(L"a", L"\u00E4"), 0);
}

TEST(Ordinal, EmptyNameComesFirst) {
  const std::wstring_view null;
  const std::wstring empty;
  EXPECT_EQ(CompareOrdinalIgnoringCase(null, null), 0);
  EXPECT_EQ(CompareOrdinalIgnoringCase(null, empty), 0);
  EXPECT_EQ(CompareOrdinalIgnoringCase(empty, null), 0);
  EXPECT_LT(CompareOrdinalIgnoringCase(null, L"a"), 0);
  EXPECT_GT(CompareOrdinalIgnoringCase(L"a", null), 0);
  EXPECT_TRUE(EqualIgnoringCase(null, empty));
}

}  // namespace
}  // namespace kestrune
