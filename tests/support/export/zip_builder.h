#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// Holds an entry for BuildZip. An absent value is written correctly.
struct ZipPart {
  std::string name = {};
  /// Unpacked.
  std::string content = {};
  /// 0 stored, 8 deflated; any other method's data is given in `packed`.
  std::uint16_t method = 0;
  std::uint16_t flags = 0;
  /// The packed data; for method 8 by default one stored block.
  std::optional<std::string> packed = {};
  std::optional<std::uint32_t> checksum = {};
  std::optional<std::uint32_t> size = {};
  std::optional<std::uint32_t> packed_size = {};
  std::optional<std::uint32_t> offset = {};
  /// The directory's extra field.
  std::string extra = {};
  /// The comment in the directory.
  std::string comment = {};
  /// The name in the local header.
  std::optional<std::string> local_name = {};
};

/// Holds what an archive has besides its entries.
struct ZipEnd {
  std::string comment = {};
  std::optional<std::uint16_t> entries = {};
  std::optional<std::uint32_t> directory_size = {};
  std::optional<std::uint32_t> directory_offset = {};
  std::uint16_t disk = 0;
  /// Writes the 64-bit records, and saturated numbers in the old one.
  bool large = false;
  /// The number of bytes before the archive; used only in the 64-bit records.
  std::uint64_t before = 0;
};

/// Returns a ZIP archive of these entries, with the wrong values that the parts specify.
std::string BuildZip(const std::vector<ZipPart>& parts, const ZipEnd& end = {});

/// Returns the content as a deflate stream without compression.
std::string DeflateWithoutPacking(std::string_view content);

/// Returns the `count` (at most 8) bytes of a number, lowest first.
std::string LittleEndianBytes(std::uint64_t value, std::size_t count);

}  // namespace kestrune
