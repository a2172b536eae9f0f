#include "export/inspect/zip/crc32.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

TEST(Crc32, KnownSumsAreReached) {
  EXPECT_EQ(Crc32(""), 0U);
  EXPECT_EQ(Crc32("123456789"), 0xCBF43926U);
  EXPECT_EQ(Crc32(std::string_view("\0\xFF", 2)), 0x6CDBFD72U);
}

}  // namespace
}  // namespace kestrune
