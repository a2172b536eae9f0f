#include "export/inspect/zip/zip_content.h"

#include <string_view>

#include "export/inspect/zip/crc32.h"
#include "export/inspect/zip/inflate.h"
#include "export/inspect/zip/little_endian.h"

namespace kestrune {
namespace {

constexpr std::string_view kLocalSignature("PK\x03\x04", 4);
constexpr std::size_t kLocalHeaderSize = 30;
constexpr std::uint16_t kEncrypted = 1;
constexpr std::uint16_t kSizesFollowData = 8;
constexpr std::uint16_t kStored = 0;
constexpr std::uint16_t kDeflated = 8;
constexpr std::uint64_t kSaturated32 = 0xFFFFFFFF;

[[noreturn]] void Refuse(const wchar_t* reason) {
  throw Failure{reason};
}

/// Returns whether a size in a local header agrees with the directory. A size above 32 bits is
/// recorded in an extra field instead.
bool IsSize(std::uint64_t written, std::uint64_t size) {
  return written == size || written == kSaturated32;
}

bool Agrees(std::string_view header, const ZipEntry& entry) {
  const bool sizes_agree = (LittleEndian(header, 6, 2) & kSizesFollowData) != 0 ||
                           (LittleEndian(header, 14, 4) == entry.checksum &&
                            IsSize(LittleEndian(header, 18, 4), entry.packed_size) &&
                            IsSize(LittleEndian(header, 22, 4), entry.size));
  return header.starts_with(kLocalSignature) && LittleEndian(header, 8, 2) == entry.method &&
         sizes_agree && LittleEndian(header, 26, 2) == entry.name.size();
}

/// Returns the offset of the entry's data. Throws Failure when the local header contradicts the
/// directory.
std::uint64_t DataOffset(const ByteSource& archive, const ZipDirectory& directory,
                         const ZipEntry& entry) {
  const std::string header = ReadAt(archive, entry.offset, kLocalHeaderSize + entry.name.size());
  if (!Agrees(header, entry) || header.substr(kLocalHeaderSize) != entry.name) {
    Refuse(L"The local header of an entry does not match the central directory.");
  }
  const std::uint64_t data = entry.offset + header.size() + LittleEndian(header, 28, 2);
  if (data > directory.offset || entry.packed_size > directory.offset - data) {
    Refuse(L"The data of an entry is outside of the archive.");
  }
  return data;
}

}  // namespace

bool IsReadable(const ZipEntry& entry) {
  return (entry.flags & kEncrypted) == 0 && (entry.method == kStored || entry.method == kDeflated);
}

std::string ReadZipContent(const ByteSource& archive, const ZipDirectory& directory,
                           const ZipEntry& entry, std::size_t limit) {
  if (!IsReadable(entry)) {
    Refuse(L"The archive is encrypted or uses an unsupported compression method.");
  }
  if (entry.size > limit || entry.packed_size > limit) {
    Refuse(L"A file of the archive is too large.");
  }
  std::string content = ReadAt(archive, DataOffset(archive, directory, entry),
                               static_cast<std::size_t>(entry.packed_size));
  if (entry.method == kDeflated) {
    content = Inflate(content, static_cast<std::size_t>(entry.size));
  }
  if (content.size() != entry.size || Crc32(content) != entry.checksum) {
    Refuse(L"A file of the archive is damaged.");
  }
  return content;
}

}  // namespace kestrune
