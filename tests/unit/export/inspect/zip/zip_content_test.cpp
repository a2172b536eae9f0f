#include "export/inspect/zip/zip_content.h"

#include <gtest/gtest.h>

#include "tests/support/byte_source_of.h"
#include "tests/support/refusal.h"
#include "tests/support/export/zip_builder.h"

namespace kestrune {
namespace {

constexpr wchar_t kUnknown[] =
    L"The archive is encrypted or uses an unsupported compression method.";
constexpr wchar_t kTooLarge[] = L"A file of the archive is too large.";
constexpr wchar_t kDamaged[] = L"A file of the archive is damaged.";
constexpr wchar_t kContradicts[] =
    L"The local header of an entry does not match the central directory.";

/// Returns the content of an archive's first entry.
std::string FirstContent(const std::string& bytes, std::size_t limit = 100) {
  const ByteSource archive = ByteSourceOf(bytes);
  const ZipDirectory directory = FindZipDirectory(archive);
  std::optional<ZipEntry> first;
  ForEachZipEntry(archive, directory, [&](const ZipEntry& entry) {
    if (!first) {
      first = entry;
    }
  });
  return ReadZipContent(archive, directory, first.value(), limit);
}

std::wstring ContentRefusal(const ZipPart& part, std::size_t limit = 100) {
  return RefusalOf([&] { FirstContent(BuildZip({part, {"other", "x"}}), limit); });
}

TEST(ZipContent, StoredAndDeflatedFilesAreRead) {
  EXPECT_EQ(FirstContent(BuildZip({{"a", "hello", 0}})), "hello");
  EXPECT_EQ(FirstContent(BuildZip({{"a", "hello", 8}})), "hello");
  EXPECT_EQ(FirstContent(BuildZip({{"a", "", 0}})), "");
}

TEST(ZipContent, LocalHeaderMayHaveExtraField) {
  std::string bytes = BuildZip({{"a", "12345hello", 0}});
  // The content's first five bytes become the extra field of a file of five bytes less.
  bytes[28] = 5;
  const std::string sum = LittleEndianBytes(0x3610A686, 4);
  const std::string sizes = LittleEndianBytes(5, 4) + LittleEndianBytes(5, 4);
  bytes.replace(14, 12, sum + sizes);
  bytes.replace(bytes.find("PK\x01\x02") + 16, 12, sum + sizes);
  EXPECT_EQ(FirstContent(bytes), "hello");
}

TEST(ZipContent, OtherMethodsAndEncryptionAreRefused) {
  EXPECT_EQ(ContentRefusal({"a", "hello", 14, 0, "hello"}), kUnknown);
  EXPECT_EQ(ContentRefusal({"a", "hello", 0, 1}), kUnknown);
}

TEST(ZipContent, NothingLargerThanTheLimitIsRead) {
  EXPECT_EQ(ContentRefusal({"a", "hello"}, 5), L"");
  EXPECT_EQ(ContentRefusal({"a", "hello"}, 4), kTooLarge);
  EXPECT_EQ(ContentRefusal({"a", "hello", 8}, 9), kTooLarge);
}

TEST(ZipContent, AWrongSumIsRefused) {
  ZipPart part{"a", "hello"};
  part.checksum = 1;
  EXPECT_EQ(ContentRefusal(part), kDamaged);
}

TEST(ZipContent, ALyingSizeIsRefused) {
  ZipPart part{"a", "hello", 8};
  part.size = 6;
  EXPECT_EQ(ContentRefusal(part), kDamaged);
  part.size = 4;
  EXPECT_EQ(ContentRefusal(part), L"The uncompressed data is larger than its recorded size.");
  part = {"a", "hello", 0};
  part.size = 6;
  EXPECT_EQ(ContentRefusal(part), kDamaged);
}

TEST(ZipContent, ALocalHeaderThatContradictsIsRefused) {
  ZipPart part{"a", "hello"};
  part.local_name = "b";
  EXPECT_EQ(ContentRefusal(part), kContradicts);
  for (const std::size_t at : {0U, 8U, 14U, 18U, 22U, 26U}) {
    std::string bytes = BuildZip({{"a", "hello"}});
    bytes[at] = static_cast<char>(bytes[at] + 1);
    EXPECT_EQ(RefusalOf([&] { FirstContent(bytes); }), kContradicts) << at;
  }
}

TEST(ZipContent, SizesMayFollowTheData) {
  std::string bytes = BuildZip({{"a", "hello", 0, 8}});
  bytes.replace(14, 12, 12, '\0');
  EXPECT_EQ(FirstContent(bytes), "hello");
}

TEST(ZipContent, LocalExtraFieldCannotReachDirectory) {
  std::string bytes = BuildZip({{"a", "hello"}});
  bytes[28] = 1;
  EXPECT_EQ(RefusalOf([&] { FirstContent(bytes); }),
            L"The data of an entry is outside of the archive.");
}

}  // namespace
}  // namespace kestrune
