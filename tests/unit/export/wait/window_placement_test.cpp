#include "export/wait/window_placement.h"

#include <gtest/gtest.h>

#include <limits>

namespace kestrune {
namespace {

TEST(WindowPlacement, CentresInTheWorkArea) {
  EXPECT_EQ(CentredIn({0, 0, 1000, 800}, {5, 6, 205, 106}), (ScreenPoint{400, 350}));
}

TEST(WindowPlacement, WorkAreaNeedNotStartAtZero) {
  EXPECT_EQ(CentredIn({-1920, 40, 0, 1080}, {0, 0, 320, 240}), (ScreenPoint{-1120, 440}));
}

TEST(WindowPlacement, AnOddDifferenceIsHalvedDownwards) {
  EXPECT_EQ(CentredIn({0, 0, 1001, 1001}, {0, 0, 100, 100}), (ScreenPoint{450, 450}));
}

TEST(WindowPlacement, WiderWindowGoesToTheLeftEdge) {
  EXPECT_EQ(CentredIn({30, 20, 30 + 999, 820}, {0, 0, 1000, 100}), (ScreenPoint{30, 370}));
}

TEST(WindowPlacement, TallerWindowGoesToTheTopEdge) {
  EXPECT_EQ(CentredIn({0, 25, 1000, 825}, {0, 0, 100, 801}), (ScreenPoint{450, 25}));
}

TEST(WindowPlacement, WindowOfAreasSizeFillsIt) {
  EXPECT_EQ(CentredIn({7, 8, 107, 208}, {900, 900, 1000, 1100}), (ScreenPoint{7, 8}));
}

TEST(WindowPlacement, WhereWindowIsNowDoesNotMatter) {
  for (const std::int32_t shift : {-5000, -1, 0, 1, 5000}) {
    EXPECT_EQ(CentredIn({0, 0, 640, 480}, {shift, -shift, shift + 64, 48 - shift}),
              (ScreenPoint{288, 216}));
  }
}

TEST(WindowPlacement, ExtremeRectanglesDoNotOverflow) {
  constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(CentredIn({least, least, most, most}, {0, 0, 1, 1}), (ScreenPoint{-1, -1}));
  EXPECT_EQ(CentredIn({0, 0, 10, 10}, {least, least, most, most}), (ScreenPoint{0, 0}));
}

}  // namespace
}  // namespace kestrune
