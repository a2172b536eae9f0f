#include "export/inspect/zip/inflate.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <map>
#include <random>
#include <utility>

#include "export/inspect/inspection.h"
#include "export/inspect/zip/crc32.h"
#include "export/inspect/zip/little_endian.h"
#include "export/inspect/zip/zip_content.h"
#include "export/inspect/zip/zip_directory.h"
#include "tests/support/byte_source_of.h"
#include "tests/support/samples.h"
#include "tests/support/export/zip_builder.h"

namespace kestrune {
namespace {

Bytef* Writable(const std::string& bytes) {
  return reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
}

std::string Deflated(const std::string& content, int level, int strategy) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, level, Z_DEFLATED, -15, 8, strategy), Z_OK);
  std::string packed(deflateBound(&stream, static_cast<uLong>(content.size())), '\0');
  stream.next_in = Writable(content);
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = Writable(packed);
  stream.avail_out = static_cast<uInt>(packed.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

/// Unpacks with zlib; `window_bits` as inflateInit2 takes them.
std::string UnpackedByZlib(const std::string& packed, std::size_t size, int window_bits) {
  z_stream stream{};
  EXPECT_EQ(inflateInit2(&stream, window_bits), Z_OK);
  std::string content(size + 1, '\0');
  stream.next_in = Writable(packed);
  stream.avail_in = static_cast<uInt>(packed.size());
  stream.next_out = Writable(content);
  stream.avail_out = static_cast<uInt>(content.size());
  EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
  content.resize(stream.total_out);
  inflateEnd(&stream);
  return content;
}

/// Returns the files of a tar archive by their paths.
std::map<std::string, std::string> TarFiles(const std::string& tar) {
  std::map<std::string, std::string> files;
  for (std::size_t at = 0; at + 512 <= tar.size() && tar[at] != '\0';) {
    const std::size_t size = std::stoul(tar.substr(at + 124, 11), nullptr, 8);
    if (tar[at + 156] == '0' || tar[at + 156] == '\0') {
      files[tar.substr(at, 100).c_str()] = tar.substr(at + 512, size);
    }
    at += 512 + (size + 511) / 512 * 512;
  }
  return files;
}

/// Returns the files of a tar archive in a ZIP archive.
std::string PackedAnew(const std::string& tar) {
  std::vector<ZipPart> parts;
  for (const auto& [name, content] : TarFiles(tar)) {
    parts.push_back({name, content, 8, 0, Deflated(content, 6, Z_DEFAULT_STRATEGY)});
  }
  return BuildZip(parts);
}

/// Returns all files of all sample archives.
std::vector<std::string> SampleContents() {
  std::vector<std::string> contents;
  for (const kestrune_tests::Sample& sample : kestrune_tests::ReadSamples("odb", ".tgz")) {
    for (auto& [name, content] : TarFiles(UnpackedByZlib(sample.bytes, 64 << 20, 15 + 16))) {
      contents.push_back(std::move(content));
    }
  }
  return contents;
}

TEST(InflateAgainstZlib, EveryEntryOfSamplesIsSame) {
  std::size_t entries = 0;
  for (const kestrune_tests::Sample& sample : kestrune_tests::ReadSamples("odb", ".zip")) {
    const ByteSource archive = ByteSourceOf(sample.bytes);
    const ZipDirectory directory = FindZipDirectory(archive);
    ForEachZipEntry(archive, directory, [&](const ZipEntry& entry) {
      const std::size_t size = static_cast<std::size_t>(entry.size);
      const std::string content = ReadZipContent(archive, directory, entry, 64 << 20);
      if (entry.method == 8) {
        const auto header = static_cast<std::size_t>(entry.offset);
        const auto extra = static_cast<std::size_t>(LittleEndian(sample.bytes, header + 28, 2));
        const std::string packed = sample.bytes.substr(header + 30 + entry.name.size() + extra,
                                                       static_cast<std::size_t>(entry.packed_size));
        EXPECT_EQ(content, UnpackedByZlib(packed, size, -15)) << entry.name;
      }
      EXPECT_EQ(content.size(), size);
      EXPECT_EQ(Crc32(content), crc32(0, Writable(content), static_cast<uInt>(size)));
      ++entries;
    });
  }
  if (entries == 0) {
    GTEST_SKIP() << "no samples";
  }
  EXPECT_EQ(entries, 102U);
}

TEST(InflateAgainstZlib, SamplesPackedAnewComeBack) {
  constexpr std::size_t kSmall = 20000;
  const std::vector<std::string> contents = SampleContents();
  if (contents.empty()) {
    GTEST_SKIP() << "no samples";
  }
  for (const std::string& content : contents) {
    EXPECT_EQ(Inflate(Deflated(content, 6, Z_DEFAULT_STRATEGY), content.size()), content);
    // The large ones take seconds with the sanitizers and test nothing more.
    for (const int level : {1, 9}) {
      if (content.size() < kSmall) {
        EXPECT_EQ(Inflate(Deflated(content, level, Z_DEFAULT_STRATEGY), content.size()), content);
      }
    }
    for (const int strategy : {Z_FIXED, Z_HUFFMAN_ONLY, Z_RLE}) {
      if (content.size() < kSmall) {
        EXPECT_EQ(Inflate(Deflated(content, 6, strategy), content.size()), content);
      }
    }
  }
}

TEST(InflateAgainstZlib, RandomBytesComeBack) {
  std::mt19937 random(7);
  for (std::size_t size = 0; size < 3000; size = size * 3 / 2 + 1) {
    std::string content;
    // Some bytes are far more frequent than others, which gives codes of many lengths.
    std::geometric_distribution<int> skewed(0.4);
    while (content.size() < size * 20) {
      content += static_cast<char>(skewed(random));
    }
    for (const int level : {0, 6}) {
      EXPECT_EQ(Inflate(Deflated(content, level, Z_DEFAULT_STRATEGY), content.size()), content);
    }
    EXPECT_EQ(Inflate(Deflated(content, 6, Z_HUFFMAN_ONLY), content.size()), content);
  }
}

TEST(InflateAgainstZlib, CodesOfFifteenBitsComeBack) {
  // Each byte is as frequent as the two before it together, so that the rarest has the longest
  // code.
  std::string content;
  std::size_t count = 1;
  for (std::size_t byte = 0, next = 1; byte < 18; ++byte) {
    content.append(count, static_cast<char>('a' + byte));
    count = std::exchange(next, count + next);
  }
  EXPECT_EQ(Inflate(Deflated(content, 6, Z_HUFFMAN_ONLY), content.size()), content);
}

TEST(InflateAgainstZlib, SamplesPackedAnewAreListed) {
  const std::vector<kestrune_tests::Sample> samples = kestrune_tests::ReadSamples("odb", ".tgz");
  if (samples.empty()) {
    GTEST_SKIP() << "no samples";
  }
  ASSERT_EQ(samples.size(), 2U);
  const auto listed = [](const kestrune_tests::Sample& sample) {
    return WriteLayerList(
        InspectArchive(ByteSourceOf(PackedAnew(UnpackedByZlib(sample.bytes, 64 << 20, 15 + 16)))));
  };
  const kestrune_tests::Sample same =
      kestrune_tests::ReadSamples("odb", "Offset_Attenuator.zip").at(0);
  EXPECT_EQ(listed(samples[0]), WriteLayerList(InspectArchive(ByteSourceOf(same.bytes))));
  EXPECT_EQ(
      listed(samples[1]),
      "VERSION=1\r\nSTEPS=1\r\n"
      "LAYER=COMPONENT|COMP_+_TOP|||0|none\r\n"
      "LAYER=SOLDER_PASTE|TOP_PASTE|||6353|some\r\n"
      "LAYER=SILK_SCREEN|TOP_OVERLAY|||563338|some\r\n"
      "LAYER=SOLDER_MASK|TOP_SOLDER|||7755|some\r\n"
      "LAYER=SIGNAL|TOP_LAYER|||74118|some\r\n"
      "LAYER=DIELECTRIC|DIELECTRIC_3|||106|none\r\n"
      "LAYER=SIGNAL|BOTTOM_LAYER|||40257|some\r\n"
      "LAYER=SOLDER_MASK|BOTTOM_SOLDER|||3676|some\r\n"
      "LAYER=SILK_SCREEN|BOTTOM_OVERLAY|||108804|some\r\n"
      "LAYER=SOLDER_PASTE|BOTTOM_PASTE|||181|none\r\n"
      "LAYER=DRILL|DRILL_NON-PLATED_BOTTOM_LAYER-TOP_LAYER|TOP_LAYER|BOTTOM_LAYER|517|some\r\n"
      "LAYER=DRILL|DRILL_PLATED_BOTTOM_LAYER-TOP_LAYER|TOP_LAYER|BOTTOM_LAYER|3186|some\r\n"
      "LAYER=COMPONENT|COMP_+_BOT|||0|none\r\n"
      "LAYER=DOCUMENT|KEEP-OUT_LAYER|||265|some\r\n"
      "LAYER=DOCUMENT|MECHANICAL_1|||176|some\r\n"
      "LAYER=DOCUMENT|_8__BOARD_OUTLINE|||298|some\r\n"
      "LAYER=DOCUMENT|MECHANICAL_13|||12418|some\r\n"
      "LAYER=DOCUMENT|MECHANICAL_15|||10556|some\r\n"
      "LAYER=DOCUMENT|MECHANICAL_16|||417|some\r\n"
      "END\r\n");
}

}  // namespace
}  // namespace kestrune
