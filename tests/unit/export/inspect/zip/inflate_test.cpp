#include "export/inspect/zip/inflate.h"

#include <gtest/gtest.h>

#include "tests/support/refusal.h"
#include "tests/support/export/zip_builder.h"

namespace kestrune {
namespace {

constexpr wchar_t kDamaged[] = L"The compressed data is damaged.";
constexpr wchar_t kTooShort[] = L"The compressed data is truncated.";
constexpr wchar_t kTooLarge[] = L"The uncompressed data is larger than its recorded size.";

template <std::size_t N>
std::string Bytes(const char (&literal)[N]) {
  return std::string(literal, N - 1);
}

std::wstring InflateRefusal(const std::string& deflated, std::size_t limit = 1000) {
  return RefusalOf([&] { static_cast<void>(Inflate(deflated, limit)); });
}

/// Returns "LAYER LAYER LAYER {\n" in a block with the fixed codes.
std::string FixedBlock() {
  return Bytes("\xf3\x71\x8c\x74\x0d\x52\xf0\x41\x22\xab\xb9\x00");
}

/// Returns forty lines "P 0 0\n" to "P 39 0\n" in a block with codes of its own.
std::string DynamicBlock() {
  return Bytes(
      "\x2d\xcf\xbb\x11\x80\x30\x10\x03\xd1\x9c\x2a\x5c\x02\x92\xf8\x76\xe1\xfe\xab\x61\xd0\x3a\xd9"
      "\x4c\x6f\xee\xe6\xd8\xc7\xbe\xcd\xa1\xd6\x6d\xda\xa3\x3d\xdb\xab\xbd\xdb\xa7\x7d\x59\xad\x31"
      "\x6b\x31\x17\x7b\x01\x08\x41\x10\xc2\x10\x88\x50\x8c\xe2\x75\x03\x8a\x51\x8c\x62\x14\xa3\x18"
      "\xc5\x28\x46\x09\x4a\x50\xb2\x5e\x41\x09\x4a\x50\x82\x12\x94\xa0\xe4\x57\x3e");
}

std::string FortyLines() {
  std::string text;
  for (int i = 0; i < 40; ++i) {
    text += "P " + std::to_string(i) + " 0\n";
  }
  return text;
}

TEST(Inflate, AStoredBlockIsCopied) {
  EXPECT_EQ(Inflate(DeflateWithoutPacking("abc"), 3), "abc");
  EXPECT_EQ(Inflate(DeflateWithoutPacking(""), 0), "");
  const std::string large(70000, 'x');
  EXPECT_EQ(Inflate(DeflateWithoutPacking(large), large.size()), large);
}

TEST(Inflate, AFixedBlockIsUnpacked) {
  EXPECT_EQ(Inflate(FixedBlock(), 20), "LAYER LAYER LAYER {\n");
}

TEST(Inflate, ADynamicBlockIsUnpacked) {
  EXPECT_EQ(Inflate(DynamicBlock(), 1000), FortyLines());
}

TEST(Inflate, ACopyMayOverlapItself) {
  EXPECT_EQ(Inflate(Bytes("\x4b\x4c\x4a\x4e\x49\x4d\x4b\x44\x26\x47\x01\xd1\x00\x00"), 318),
            "abcdefabcdefabcdef" + std::string(300, 'a'));
}

TEST(Inflate, NothingMoreThanTheLimitComesOut) {
  EXPECT_EQ(Inflate(FixedBlock(), 20).size(), 20U);
  EXPECT_EQ(InflateRefusal(FixedBlock(), 19), kTooLarge);
  EXPECT_EQ(InflateRefusal(FixedBlock(), 10), kTooLarge);
  EXPECT_EQ(InflateRefusal(DeflateWithoutPacking("abc"), 2), kTooLarge);
}

TEST(Inflate, CutStreamIsRefusedAtEveryLength) {
  for (const std::string& whole : {FixedBlock(), DynamicBlock(), DeflateWithoutPacking("abc")}) {
    for (std::size_t size = 0; size < whole.size(); ++size) {
      EXPECT_EQ(InflateRefusal(whole.substr(0, size)), kTooShort) << size;
    }
  }
}

TEST(Inflate, BytesAfterTheLastBlockAreRefused) {
  EXPECT_EQ(InflateRefusal(FixedBlock() + '\0'), kDamaged);
  EXPECT_EQ(InflateRefusal(DeflateWithoutPacking("abc") + "x"), kDamaged);
}

TEST(Inflate, UnknownKindsOfBlocksAreRefused) {
  EXPECT_EQ(InflateRefusal(Bytes("\x07\x00")), kDamaged);
}

TEST(Inflate, AStoredLengthMustMatchItsComplement) {
  EXPECT_EQ(InflateRefusal(Bytes("\x01\x03\x00\xfd\xffxyz")), kDamaged);
}

TEST(Inflate, ADistanceBeforeTheBeginIsRefused) {
  // Fixed codes: a copy of three bytes from one byte back, with nothing written yet.
  EXPECT_EQ(InflateRefusal(Bytes("\x03\x02\x00")), kDamaged);
}

TEST(Inflate, UnusedFixedSymbolsAreRefused) {
  // The literal code 286 (11000110), then the distance code 30 after a literal and a length.
  EXPECT_EQ(InflateRefusal(Bytes("\x1b\x03\x00")), kDamaged);
  EXPECT_EQ(InflateRefusal(Bytes("\x4b\x04\x3e")), kDamaged);
}

TEST(Inflate, ASingleDistanceCodeIsAccepted) {
  // One distance code of one bit: a literal "a" and a copy of it.
  EXPECT_EQ(Inflate(Bytes("\x0d\xc0\x81\x00\x00\x00\x00\x80\x20\xd6\xfc\x25\x3e\x0b"), 4), "aaaa");
}

TEST(Inflate, CodesThatAreNoneAreRefused) {
  // Nineteen code lengths of 1: more codes than bits. Then none at all.
  EXPECT_EQ(InflateRefusal(Bytes("\x05\xe0\x24\x49\x92\x24\x49\x92\x24\x00\x00")), kDamaged);
  EXPECT_EQ(InflateRefusal(Bytes("\x05\xe0\x00\x00\x00\x00\x00\x00\x00\x00\x00")), kDamaged);
}

TEST(Inflate, TooManySymbolsAreRefused) {
  EXPECT_EQ(InflateRefusal(Bytes("\xfd\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00")), kDamaged);
  EXPECT_EQ(InflateRefusal(Bytes("\x05\x1f\x00\x00\x00\x00\x00\x00\x00\x00\x00")), kDamaged);
}

}  // namespace
}  // namespace kestrune
