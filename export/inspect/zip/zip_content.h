#pragma once

#include <cstddef>
#include <string>

#include "export/inspect/zip/byte_source.h"
#include "export/inspect/zip/zip_directory.h"

namespace kestrune {

/// Returns whether ReadZipContent supports the entry: stored or deflated, and not encrypted.
bool IsReadable(const ZipEntry& entry);

/// Returns the unpacked content of an entry of at most `limit` bytes, packed and unpacked. Throws
/// Failure when the entry is larger, is not readable, contradicts its local header, or when size or
/// checksum of its content differ from those recorded.
std::string ReadZipContent(const ByteSource& archive, const ZipDirectory& directory,
                           const ZipEntry& entry, std::size_t limit);

}  // namespace kestrune
