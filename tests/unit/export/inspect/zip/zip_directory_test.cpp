#include "export/inspect/zip/zip_directory.h"

#include <gtest/gtest.h>

#include "tests/support/byte_source_of.h"
#include "tests/support/refusal.h"
#include "tests/support/export/zip_builder.h"

namespace kestrune {
namespace {

constexpr wchar_t kNoEnd[] = L"The file is not a ZIP archive or is truncated.";
constexpr wchar_t kTwoEnds[] = L"The archive has two end records.";
constexpr wchar_t kSplit[] = L"The archive is split into several files.";
constexpr wchar_t kTooMany[] = L"The archive has more than 100000 entries.";
constexpr wchar_t kOutside[] = L"The central directory is outside of the file.";
constexpr wchar_t kDamaged[] = L"The central directory is damaged.";
constexpr wchar_t kEntryOutside[] = L"The data of an entry is outside of the archive.";
constexpr wchar_t kOverlap[] = L"Entries of the archive overlap.";
constexpr wchar_t kSameName[] = L"Two entries of the archive have the same name.";
constexpr wchar_t kLargeDamaged[] = L"The 64-bit end record of the archive is damaged.";

std::vector<ZipEntry> EntriesOf(const std::string& bytes) {
  const ByteSource archive = ByteSourceOf(bytes);
  std::vector<ZipEntry> entries;
  ForEachZipEntry(archive, FindZipDirectory(archive),
                  [&](const ZipEntry& entry) { entries.push_back(entry); });
  return entries;
}

std::wstring ZipRefusal(const std::string& bytes) {
  return RefusalOf([&] { EntriesOf(bytes); });
}

const std::vector<ZipPart> kTwoParts = {{"a/b", "hello"}, {"c", "world!", 8}};

TEST(ZipDirectory, EntriesAreFoundInOrder) {
  const std::vector<ZipEntry> entries = EntriesOf(BuildZip(kTwoParts));
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].name, "a/b");
  EXPECT_EQ(entries[0].method, 0);
  EXPECT_EQ(entries[0].size, 5U);
  EXPECT_EQ(entries[0].packed_size, 5U);
  EXPECT_EQ(entries[0].checksum, 0x3610A686U);
  EXPECT_EQ(entries[0].offset, 0U);
  EXPECT_EQ(entries[1].name, "c");
  EXPECT_EQ(entries[1].method, 8);
  EXPECT_EQ(entries[1].size, 6U);
  EXPECT_EQ(entries[1].packed_size, 11U);
  EXPECT_EQ(entries[1].offset, 38U);
}

TEST(ZipDirectory, AnEmptyArchiveHasNoEntries) {
  EXPECT_TRUE(EntriesOf(BuildZip({})).empty());
}

TEST(ZipDirectory, ACommentMayFollow) {
  EXPECT_EQ(EntriesOf(BuildZip(kTwoParts, {std::string(0xFFFF, 'x')})).size(), 2U);
}

TEST(ZipDirectory, EntriesMayHaveComments) {
  EXPECT_EQ(EntriesOf(BuildZip({{.name = "a", .comment = std::string(300, 'x')}, {"b"}})).size(),
            2U);
}

TEST(ZipDirectory, EachEntryNeedsItsSignature) {
  std::string bytes = BuildZip(kTwoParts);
  bytes[bytes.rfind("PK\x01\x02")] = 'X';
  EXPECT_EQ(ZipRefusal(bytes), kDamaged);
}

TEST(ZipDirectory, CutArchiveIsRefusedAtEveryLength) {
  const std::string whole = BuildZip(kTwoParts, {"comment"});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(ZipRefusal(whole.substr(0, size)), kNoEnd) << size;
  }
  EXPECT_EQ(ZipRefusal(whole + "x"), kNoEnd);
}

TEST(ZipDirectory, TwoEndRecordsAreRefused) {
  const std::string inner = BuildZip({});
  EXPECT_EQ(ZipRefusal(BuildZip(kTwoParts, {inner})), kTwoEnds);
  // A record whose comment does not end at the archive's end is not an end record.
  EXPECT_EQ(EntriesOf(BuildZip(kTwoParts, {inner + "x"})).size(), 2U);
}

TEST(ZipDirectory, TheLargeRecordsAreRead) {
  ZipEnd end;
  end.large = true;
  EXPECT_EQ(EntriesOf(BuildZip(kTwoParts, end)).size(), 2U);
}

TEST(ZipDirectory, LargeRecordsThatLieAreRefused) {
  ZipEnd end;
  end.large = true;
  const std::string whole = BuildZip(kTwoParts, end);
  const std::size_t record = whole.find("PK\x06\x06");
  const std::size_t locator = whole.find("PK\x06\x07");
  std::string bytes = whole;
  bytes[record] = 'X';
  EXPECT_EQ(ZipRefusal(bytes), kLargeDamaged);
  // The locator points to itself, then beyond the file.
  bytes = whole;
  bytes.replace(locator + 8, 8, LittleEndianBytes(locator, 8));
  EXPECT_EQ(ZipRefusal(bytes), L"The archive is truncated.");
  bytes.replace(locator + 8, 8, LittleEndianBytes(0xFFFFFFFFFFFFFFF0, 8));
  EXPECT_EQ(ZipRefusal(bytes), L"The archive is truncated.");
  // Without a locator the largest numbers of the old record are literal.
  bytes = whole;
  bytes[locator] = 'X';
  EXPECT_EQ(ZipRefusal(bytes), kOutside);
  bytes = whole;
  bytes.replace(record + 32, 8, LittleEndianBytes(100001, 8));
  bytes.replace(record + 24, 8, LittleEndianBytes(100001, 8));
  EXPECT_EQ(ZipRefusal(bytes), kTooMany);
  bytes = whole;
  bytes.replace(record + 40, 8, LittleEndianBytes(0xFFFFFFFFFFFFFFFF, 8));
  EXPECT_EQ(ZipRefusal(bytes), kOutside);
}

TEST(ZipDirectory, LargeNumbersOfAnEntryAreRead) {
  ZipPart part{"a", "hello"};
  part.size = 0xFFFFFFFF;
  part.offset = 0xFFFFFFFF;
  part.extra = LittleEndianBytes(0x5455, 2) + LittleEndianBytes(1, 2) + "x" +
               LittleEndianBytes(1, 2) + LittleEndianBytes(16, 2) +
               LittleEndianBytes(std::uint64_t{5} << 32, 8) + LittleEndianBytes(0, 8);
  const std::vector<ZipEntry> entries = EntriesOf(BuildZip({part}));
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].size, std::uint64_t{5} << 32);
  EXPECT_EQ(entries[0].packed_size, 5U);
  EXPECT_EQ(entries[0].offset, 0U);
}

TEST(ZipDirectory, MissingLargeNumbersAreRefused) {
  ZipPart part{"a", "hello"};
  part.size = 0xFFFFFFFF;
  EXPECT_EQ(ZipRefusal(BuildZip({part})), kDamaged);
  part.extra = LittleEndianBytes(1, 2) + LittleEndianBytes(7, 2) + std::string(7, '\0');
  EXPECT_EQ(ZipRefusal(BuildZip({part})), kDamaged);
  part.extra = LittleEndianBytes(1, 2) + LittleEndianBytes(9, 2) + std::string(8, '\0');
  EXPECT_EQ(ZipRefusal(BuildZip({part})), kDamaged);
}

TEST(ZipDirectory, ASplitArchiveIsRefused) {
  ZipEnd end;
  end.disk = 1;
  EXPECT_EQ(ZipRefusal(BuildZip(kTwoParts, end)), kSplit);
}

TEST(ZipDirectory, LyingCountsAndPlacesAreRefused) {
  const auto refusal = [](const ZipEnd& end) { return ZipRefusal(BuildZip(kTwoParts, end)); };
  EXPECT_EQ(refusal({"", 1}), kDamaged);
  EXPECT_EQ(refusal({"", 3}), kDamaged);
  EXPECT_EQ(refusal({"", {}, 10}), kDamaged);
  EXPECT_EQ(refusal({"", {}, 10000}), kOutside);
  EXPECT_EQ(refusal({"", {}, {}, 0}), kDamaged);
  EXPECT_EQ(refusal({"", {}, {}, 0xFFFFFFF0}), kOutside);
}

TEST(ZipDirectory, AnEntryMustLieBeforeTheDirectory) {
  ZipPart part{"a", "hello"};
  part.offset = 100;
  EXPECT_EQ(ZipRefusal(BuildZip({part})), kEntryOutside);
  // Into the directory itself, at its begin.
  part.offset = 36;
  EXPECT_EQ(ZipRefusal(BuildZip({part})), kEntryOutside);
  part.offset.reset();
  part.packed_size = 6;
  EXPECT_EQ(ZipRefusal(BuildZip({part})), kEntryOutside);
  part.packed_size = 0xFFFFFFFE;
  EXPECT_EQ(ZipRefusal(BuildZip({part})), kEntryOutside);
}

TEST(ZipDirectory, EntriesThatOverlapAreRefused) {
  std::vector<ZipPart> parts = {{"a", "hello"}, {"b", "world"}, {"c", "x"}};
  parts[1].offset = 0;
  EXPECT_EQ(ZipRefusal(BuildZip(parts)), kOverlap);
  parts[1].offset = 35;
  EXPECT_EQ(ZipRefusal(BuildZip(parts)), kOverlap);
}

TEST(ZipDirectory, TwoEntriesOfOneNameAreRefused) {
  EXPECT_EQ(ZipRefusal(BuildZip({{"a/b", "1"}, {"c", "2"}, {"A\\B", "3"}})), kSameName);
}

TEST(ZipDirectory, DirectoryOfManyPiecesIsReadWhole) {
  std::vector<ZipPart> parts;
  for (int i = 0; i < 5000; ++i) {
    parts.push_back({std::to_string(i) + std::string(static_cast<std::size_t>(i) % 97, 'x'), ""});
  }
  const std::vector<ZipEntry> entries = EntriesOf(BuildZip(parts));
  ASSERT_EQ(entries.size(), parts.size());
  for (std::size_t i = 0; i < parts.size(); ++i) {
    EXPECT_EQ(entries[i].name, parts[i].name);
  }
}

}  // namespace
}  // namespace kestrune
