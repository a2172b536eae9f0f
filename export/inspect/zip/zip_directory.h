#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "export/inspect/zip/byte_source.h"

namespace kestrune {

/// An archive with more entries than this is refused.
inline constexpr std::uint64_t kMostZipEntries = 100000;

/// Holds the position of the central directory in a ZIP archive.
struct ZipDirectory {
  std::uint64_t offset = 0;
  /// In bytes.
  std::uint64_t size = 0;
  std::uint64_t entries = 0;
};

/// Holds one entry as the directory describes it. It is not checked, except that its data ends
/// before the directory.
struct ZipEntry {
  /// The path as recorded, in an unknown encoding.
  std::string name;
  std::uint16_t flags = 0;
  std::uint16_t method = 0;
  /// The CRC-32 of the unpacked content.
  std::uint32_t checksum = 0;
  /// In bytes, packed and unpacked.
  std::uint64_t packed_size = 0;
  std::uint64_t size = 0;
  /// Of the local header, from the beginning of the archive.
  std::uint64_t offset = 0;
};

/// Finds the directory through the record at the archive's end, with its 64-bit extension. Throws
/// Failure when there is no such record or more than one, when the archive is split into several
/// files, has too many entries, or its directory does not lie before the record.
ZipDirectory FindZipDirectory(const ByteSource& archive);

/// Calls `visit` with each entry in the directory's order. Reads the directory in pieces and keeps
/// 24 bytes per entry. Throws Failure (for some faults only after the last call) when the directory
/// is damaged, when an entry's data overlaps the directory or another entry, or when two entries
/// have the same path, ignoring case.
void ForEachZipEntry(const ByteSource& archive, const ZipDirectory& directory,
                     const std::function<void(const ZipEntry&)>& visit);

}  // namespace kestrune
