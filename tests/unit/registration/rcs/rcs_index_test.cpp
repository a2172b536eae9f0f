#include "registration/rcs/rcs_index.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/support/registration/rcs_shapes.h"

namespace altium_registration {
namespace {

constexpr std::uint64_t kKnownSeed = 0x0123456789ABCDEF;

std::set<std::uint32_t> HashesOf(const std::vector<std::string>& texts, std::uint64_t seed) {
  std::set<std::uint32_t> hashes;
  for (const std::string& text : texts) {
    hashes.insert(RcsText(text, false).Hash(seed));
  }
  return hashes;
}

TEST(RcsHash, CraftedTextsCollideForOneSeedOnly) {
  const std::vector<std::string> texts = kestrune_tests::CollidingIdentifiers(kKnownSeed, 3000);
  EXPECT_EQ(HashesOf(texts, kKnownSeed).size(), 1U);
  for (const std::uint64_t seed : {std::uint64_t{0}, kKnownSeed + 1, UnforeseeableSeed()}) {
    EXPECT_GT(HashesOf(texts, seed).size(), 2990U) << seed;
  }
}

TEST(RcsHash, SeedsDifferFromCallToCall) {
  std::set<std::uint64_t> seeds;
  for (int call = 0; call < 10'000; ++call) {
    seeds.insert(UnforeseeableSeed());
  }
  EXPECT_GT(seeds.size(), 10U);
  for (const std::uint64_t seed : seeds) {
    EXPECT_NE(seed >> 32, 0U);
    EXPECT_NE(seed & 0xFFFFFFFF, 0U);
  }
}

/// Compares pairs of texts that differ only in one byte, in one position or in size.
TEST(RcsHash, TextsThatDifferALittleHashDifferently) {
  std::vector<std::string> texts;
  for (std::size_t size = 0; size < 40; ++size) {
    texts.emplace_back(size, 'x');
    for (std::size_t place = 0; place < size; ++place) {
      std::string text(size, 'x');
      text[place] = 'y';
      texts.push_back(text);
    }
  }
  EXPECT_EQ(HashesOf(texts, kKnownSeed).size(), texts.size());
}

TEST(RcsHash, EqualTextsHashEqually) {
  for (const std::string text : {"'", "a'b", "''", "long enough for'several words'"}) {
    const std::string quoted = Quote(text);
    const RcsText written(std::string_view(quoted).substr(1, quoted.size() - 2), true);
    EXPECT_TRUE(written == RcsText(text, false));
    EXPECT_EQ(written.Hash(kKnownSeed), RcsText(text, false).Hash(kKnownSeed));
  }
}

TEST(RcsIndex, FindsAddedTextsDespiteCollisions) {
  const std::vector<std::string> texts = kestrune_tests::CollidingIdentifiers(kKnownSeed, 500);
  const auto text_of = [&](std::uint32_t number) { return RcsText(texts[number], false); };
  RcsIndex added(kKnownSeed);
  RcsIndex built(kKnownSeed);
  for (std::uint32_t number = 0; number < texts.size(); ++number) {
    EXPECT_EQ(added.Find(text_of(number), text_of), kNoItem);
    EXPECT_TRUE(added.Add(text_of(number), text_of));
    EXPECT_FALSE(added.Add(text_of(number), text_of));
    built.Append(text_of(number));
  }
  EXPECT_EQ(built.Build(text_of), kNoItem);
  for (std::uint32_t number = 0; number < texts.size(); ++number) {
    EXPECT_EQ(added.Find(text_of(number), text_of), number);
    EXPECT_EQ(built.Find(text_of(number), text_of), number);
  }
}

TEST(RcsIndex, BuildFindsATextThatOccursTwice) {
  const std::vector<std::string> texts = {"a", "b", "c", "b"};
  const auto text_of = [&](std::uint32_t number) { return RcsText(texts[number], false); };
  RcsIndex index(kKnownSeed);
  for (std::uint32_t number = 0; number < 3; ++number) {
    index.Append(text_of(number));
  }
  EXPECT_EQ(index.Build(text_of), kNoItem);
  index.Append(text_of(3));
  EXPECT_EQ(index.Build(text_of), 3U);
}

}  // namespace
}  // namespace altium_registration
