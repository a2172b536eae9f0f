#include "export/wait/native_wait.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace kestrune {
namespace {

using Sizes = std::vector<std::optional<std::uint64_t>>;

/// Returns the number of sizes until the watch reports completion; 0 when it never does.
std::size_t LooksUntilStable(const Sizes& sizes) {
  SizeWatch watch;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    if (watch.Record(sizes[i])) {
      return i + 1;
    }
  }
  return 0;
}

TEST(SizeWatch, SameSizeMustBeSeenFourTimes) {
  EXPECT_EQ(LooksUntilStable({7, 7, 7}), 0U);
  EXPECT_EQ(LooksUntilStable({7, 7, 7, 7}), 4U);
  EXPECT_EQ(LooksUntilStable({1, 1, 1, 1}), 4U);
}

TEST(SizeWatch, AnyChangeStartsAnew) {
  EXPECT_EQ(LooksUntilStable({7, 7, 7, 8, 8, 8}), 0U);
  EXPECT_EQ(LooksUntilStable({7, 7, 7, 8, 8, 8, 8}), 7U);
  EXPECT_EQ(LooksUntilStable({9, 9, 9, 7, 9, 9, 9}), 0U);
}

TEST(SizeWatch, AnEmptyFileIsNeverComplete) {
  EXPECT_EQ(LooksUntilStable(Sizes(300, 0U)), 0U);
  EXPECT_EQ(LooksUntilStable({5, 5, 5, 0, 5, 5, 5}), 0U);
}

TEST(SizeWatch, AnAbsentFileStartsAnew) {
  EXPECT_EQ(LooksUntilStable(Sizes(300, std::nullopt)), 0U);
  EXPECT_EQ(LooksUntilStable({5, 5, 5, std::nullopt, 5, 5, 5}), 0U);
  EXPECT_EQ(LooksUntilStable({5, 5, 5, std::nullopt, 5, 5, 5, 5}), 8U);
}

TEST(SizeWatch, SizesAboveFourGibibytesAreWhole) {
  constexpr std::uint64_t large = (std::uint64_t{1} << 32) + 10;
  EXPECT_EQ(LooksUntilStable({large, large, large, large}), 4U);
  EXPECT_EQ(LooksUntilStable({large, 10, large, 10, large, 10}), 0U);
}

/// Simulates a wait over sizes, the last of which repeats.
struct Wait {
  Sizes sizes;
  int looks = 0;
  int sleeps = 0;

  std::optional<std::uint64_t> Run() {
    return WaitForStableSize(
        [this] {
          const auto at = static_cast<std::size_t>(looks++);
          return sizes[std::min(at, sizes.size() - 1)];
        },
        [this] { ++sleeps; });
  }
};

TEST(NativeWait, FinalSizeTakesFourChecksThreeSleeps) {
  Wait wait{{42}};
  EXPECT_EQ(wait.Run(), 42U);
  EXPECT_EQ(wait.looks, 4);
  EXPECT_EQ(wait.sleeps, 3);
}

TEST(NativeWait, AbsentFileIsPolledInEveryRound) {
  Wait wait{{std::nullopt}};
  EXPECT_EQ(wait.Run(), std::nullopt);
  EXPECT_EQ(wait.looks, kWaitRounds);
  EXPECT_EQ(wait.sleeps, kWaitRounds);
}

TEST(NativeWait, GrowingFileIsNeverComplete) {
  Wait wait;
  for (std::uint64_t size = 1; size <= 240; ++size) {
    wait.sizes.emplace_back(size);
  }
  EXPECT_EQ(wait.Run(), std::nullopt);
  EXPECT_EQ(wait.looks, kWaitRounds);
}

TEST(NativeWait, TheLastRoundStillCounts) {
  Wait wait{Sizes(236, 0U)};
  wait.sizes.emplace_back(5U);
  EXPECT_EQ(wait.Run(), 5U);
  EXPECT_EQ(wait.looks, kWaitRounds);

  Wait late{Sizes(237, 0U)};
  late.sizes.emplace_back(5U);
  EXPECT_EQ(late.Run(), std::nullopt);
}

TEST(NativeWait, GrownFileIsReportedWithFinalSize) {
  Wait wait{{std::nullopt, 0, 100, 200, 200, 300}};
  EXPECT_EQ(wait.Run(), 300U);
  EXPECT_EQ(wait.looks, 9);
}

TEST(NativeWait, LastsTwoMinutesAtMost) {
  EXPECT_EQ(kWaitRounds * static_cast<int>(kWaitSleepMilliseconds), 120'000);
}

}  // namespace
}  // namespace kestrune
