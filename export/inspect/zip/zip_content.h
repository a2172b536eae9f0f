#pragma once

#include <cstddef>
#include <string>

#include "export/inspect/zip/byte_source.h"
#include "export/inspect/zip/zip_directory.h"

namespace kestrune {

/// Returns whether ReadZipContent knows how the entry is packed: stored or deflated, not encrypted.
bool IsReadable(const ZipEntry& entry);

/// Returns the unpacked content of an entry of at most `limit` bytes, packed and unpacked. Throws
/// Failure when the entry is larger, is not readable, contradicts its local header, or when its
/// content has another size or checksum than recorded.
std::string ReadZipContent(const ByteSource& archive, const ZipDirectory& directory,
                           const ZipEntry& entry, std::size_t limit);

}  // namespace kestrune
