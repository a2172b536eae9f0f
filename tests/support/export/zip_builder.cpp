#include "tests/support/export/zip_builder.h"

#include "export/inspect/zip/crc32.h"

namespace kestrune {
namespace {

std::string PackedContent(const ZipPart& part) {
  if (part.packed) {
    return *part.packed;
  }
  return part.method == 8 ? DeflateWithoutPacking(part.content) : part.content;
}

/// Returns the fields that the local header and the directory share, from the version to the extra
/// field.
std::string CommonFields(const ZipPart& part, std::size_t name_size, std::size_t extra_size) {
  const std::size_t packed_size = PackedContent(part).size();
  return LittleEndianBytes(20, 2) + LittleEndianBytes(part.flags, 2) +
         LittleEndianBytes(part.method, 2) + LittleEndianBytes(0, 4) +
         LittleEndianBytes(part.checksum.value_or(Crc32(part.content)), 4) +
         LittleEndianBytes(part.packed_size.value_or(static_cast<std::uint32_t>(packed_size)), 4) +
         LittleEndianBytes(part.size.value_or(static_cast<std::uint32_t>(part.content.size())), 4) +
         LittleEndianBytes(name_size, 2) + LittleEndianBytes(extra_size, 2);
}

std::string LocalPart(const ZipPart& part) {
  const std::string name = part.local_name.value_or(part.name);
  return "PK\x03\x04" + CommonFields(part, name.size(), 0) + name + PackedContent(part);
}

std::string DirectoryPart(const ZipPart& part, std::size_t offset) {
  return "PK\x01\x02" + LittleEndianBytes(20, 2) +
         CommonFields(part, part.name.size(), part.extra.size()) +
         LittleEndianBytes(part.comment.size(), 2) + std::string(8, '\0') +
         LittleEndianBytes(part.offset.value_or(static_cast<std::uint32_t>(offset)), 4) +
         part.name + part.extra + part.comment;
}

/// Returns the 64-bit end record and its locator.
std::string LargeEnd(std::size_t entries, std::size_t size, std::uint64_t offset) {
  return "PK\x06\x06" + LittleEndianBytes(44, 8) + LittleEndianBytes(45, 2) +
         LittleEndianBytes(45, 2) + LittleEndianBytes(0, 8) + LittleEndianBytes(entries, 8) +
         LittleEndianBytes(entries, 8) + LittleEndianBytes(size, 8) + LittleEndianBytes(offset, 8) +
         "PK\x06\x07" + LittleEndianBytes(0, 4) + LittleEndianBytes(offset + size, 8) +
         LittleEndianBytes(1, 4);
}

}  // namespace

std::string LittleEndianBytes(std::uint64_t value, std::size_t count) {
  std::string bytes;
  for (std::size_t i = 0; i < count; ++i) {
    bytes += static_cast<char>(value >> (8 * i) & 0xFF);
  }
  return bytes;
}

std::string DeflateWithoutPacking(std::string_view content) {
  constexpr std::size_t kMost = 0xFFFF;
  std::string deflated;
  do {
    const std::string_view block = content.substr(0, kMost);
    content.remove_prefix(block.size());
    deflated += content.empty() ? '\x01' : '\0';
    deflated += LittleEndianBytes(block.size(), 2) + LittleEndianBytes(~block.size(), 2);
    deflated += block;
  } while (!content.empty());
  return deflated;
}

std::string BuildZip(const std::vector<ZipPart>& parts, const ZipEnd& end) {
  std::string bytes;
  std::string directory;
  for (const ZipPart& part : parts) {
    directory += DirectoryPart(part, bytes.size());
    bytes += LocalPart(part);
  }
  const std::size_t offset = bytes.size();
  bytes += directory;
  if (end.large) {
    bytes += LargeEnd(parts.size(), directory.size(), end.before + offset);
  }
  const std::uint64_t entries = end.large ? 0xFFFF : end.entries.value_or(parts.size());
  const std::uint64_t size = end.large ? 0xFFFFFFFF : directory.size();
  const std::uint64_t begin = end.large ? 0xFFFFFFFF : offset;
  return bytes + "PK\x05\x06" + LittleEndianBytes(end.disk, 2) + LittleEndianBytes(end.disk, 2) +
         LittleEndianBytes(entries, 2) + LittleEndianBytes(entries, 2) +
         LittleEndianBytes(end.directory_size.value_or(static_cast<std::uint32_t>(size)), 4) +
         LittleEndianBytes(end.directory_offset.value_or(static_cast<std::uint32_t>(begin)), 4) +
         LittleEndianBytes(end.comment.size(), 2) + end.comment;
}

}  // namespace kestrune
