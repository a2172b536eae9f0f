#include "export/inspect/zip/zip_directory.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "common/text/text.h"
#include "export/inspect/zip/little_endian.h"

namespace kestrune {
namespace {

constexpr std::string_view kEndSignature("PK\x05\x06", 4);
constexpr std::string_view kLocatorSignature("PK\x06\x07", 4);
constexpr std::string_view kLargeEndSignature("PK\x06\x06", 4);
constexpr std::string_view kEntrySignature("PK\x01\x02", 4);
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kLocatorSize = 20;
constexpr std::size_t kLargeEndSize = 56;
constexpr std::size_t kEntrySize = 46;
constexpr std::size_t kLocalHeaderSize = 30;
constexpr std::size_t kMostComment = 0xFFFF;
constexpr std::uint64_t kSaturated16 = 0xFFFF;
constexpr std::uint64_t kSaturated32 = 0xFFFFFFFF;

[[noreturn]] void Refuse(const wchar_t* reason) {
  throw Failure{reason};
}

/// Holds the end record of the archive: its bytes, and where it begins.
struct EndRecord {
  std::string bytes;
  std::uint64_t offset = 0;
};

/// Returns whether the record at `at` is the archive's end record: its comment must end exactly at
/// the last byte.
bool EndsArchive(std::string_view tail, std::size_t at) {
  return tail.substr(at).starts_with(kEndSignature) &&
         LittleEndian(tail, at + 20, 2) == tail.size() - at - kEndSize;
}

EndRecord FindEndRecord(const ByteSource& archive) {
  const auto reach =
      static_cast<std::size_t>(std::min<std::uint64_t>(archive.size, kEndSize + kMostComment));
  const std::string tail = ReadAt(archive, archive.size - reach, reach);
  std::vector<std::size_t> found;
  for (std::size_t at = 0; at + kEndSize <= tail.size(); ++at) {
    if (EndsArchive(tail, at)) {
      found.push_back(at);
    }
  }
  if (found.empty()) {
    Refuse(L"The file is not a ZIP archive or is truncated.");
  }
  if (found.size() > 1) {
    Refuse(L"The archive has two end records.");
  }
  return {tail.substr(found.front(), kEndSize), archive.size - reach + found.front()};
}

/// Holds the fields of an end record that say where the directory lies.
struct EndFields {
  std::uint64_t disk = 0;
  std::uint64_t directory_disk = 0;
  std::uint64_t entries_here = 0;
  ZipDirectory directory;
};

EndFields ReadEndFields(std::string_view record) {
  return {LittleEndian(record, 4, 2),
          LittleEndian(record, 6, 2),
          LittleEndian(record, 8, 2),
          {LittleEndian(record, 16, 4), LittleEndian(record, 12, 4), LittleEndian(record, 10, 2)}};
}

bool IsSaturated(const EndFields& fields) {
  return fields.entries_here == kSaturated16 || fields.directory.entries == kSaturated16 ||
         fields.directory.size == kSaturated32 || fields.directory.offset == kSaturated32;
}

/// Replaces the fields by those of the 64-bit end record, and sets `end` to its offset. Keeps the
/// fields when there is no such record, since a field may have its largest value without one.
void ReadLargeEndFields(const ByteSource& archive, EndFields& fields, std::uint64_t& end) {
  if (end < kLocatorSize + kLargeEndSize) {
    return;
  }
  const std::string locator = ReadAt(archive, end - kLocatorSize, kLocatorSize);
  if (!locator.starts_with(kLocatorSignature)) {
    return;
  }
  const std::uint64_t offset = LittleEndian(locator, 8, 8);
  const std::string record = ReadAt(archive, offset, kLargeEndSize);
  if (!record.starts_with(kLargeEndSignature) || offset > end - kLocatorSize - kLargeEndSize) {
    Refuse(L"The 64-bit end record of the archive is damaged.");
  }
  fields = {
      LittleEndian(record, 16, 4),
      LittleEndian(record, 20, 4),
      LittleEndian(record, 24, 8),
      {LittleEndian(record, 48, 8), LittleEndian(record, 40, 8), LittleEndian(record, 32, 8)}};
  end = offset;
}

/// Reads the directory in pieces of about 64 KiB, one at a time.
class DirectoryReader {
 public:
  DirectoryReader(const ByteSource& archive, const ZipDirectory& directory)
      : archive_(archive), offset_(directory.offset), left_(directory.size) {}

  /// Returns the next `count` bytes without consuming them; the view is valid until the next call.
  /// Throws Failure when the directory has fewer.
  std::string_view View(std::size_t count) {
    if (count > bytes_.size() - used_) {
      Refill(count);
    }
    return std::string_view(bytes_).substr(used_, count);
  }

  /// Consumes bytes that View returned.
  void Advance(std::size_t count) {
    used_ += count;
    offset_ += count;
    left_ -= count;
  }

  bool AtEnd() const { return left_ == 0; }

 private:
  void Refill(std::size_t count) {
    constexpr std::size_t kPiece = std::size_t{64} * 1024;
    if (count > left_) {
      Refuse(L"The central directory is damaged.");
    }
    const auto size = static_cast<std::size_t>(
        std::min<std::uint64_t>(left_, std::max<std::size_t>(count, kPiece)));
    bytes_ = ReadAt(archive_, offset_, size);
    used_ = 0;
  }

  const ByteSource& archive_;
  std::uint64_t offset_;
  std::uint64_t left_;
  std::string bytes_;
  std::size_t used_ = 0;
};

/// Returns the extra field with an entry's 64-bit numbers; empty when there is none.
std::string_view LargeField(std::string_view extra) {
  while (extra.size() >= 4) {
    const std::uint64_t id = LittleEndian(extra, 0, 2);
    const auto size = static_cast<std::size_t>(LittleEndian(extra, 2, 2));
    if (size > extra.size() - 4) {
      break;
    }
    if (id == 1) {
      return extra.substr(4, size);
    }
    extra.remove_prefix(4 + size);
  }
  return {};
}

/// Replaces a number that did not fit into 32 bits by the next number of the extra field.
void ReadLargeNumber(std::uint64_t& number, std::string_view& field) {
  if (number != kSaturated32) {
    return;
  }
  if (field.size() < 8) {
    Refuse(L"The central directory is damaged.");
  }
  number = LittleEndian(field, 0, 8);
  field.remove_prefix(8);
}

/// Consumes and returns the next entry of the directory.
ZipEntry ReadEntry(DirectoryReader& reader) {
  const std::string_view header = reader.View(kEntrySize);
  if (!header.starts_with(kEntrySignature)) {
    Refuse(L"The central directory is damaged.");
  }
  const auto name_size = static_cast<std::size_t>(LittleEndian(header, 28, 2));
  const auto extra_size = static_cast<std::size_t>(LittleEndian(header, 30, 2));
  const auto comment_size = static_cast<std::size_t>(LittleEndian(header, 32, 2));
  const std::size_t whole_size = kEntrySize + name_size + extra_size + comment_size;
  const std::string_view record = reader.View(whole_size);
  ZipEntry entry{std::string(record.substr(kEntrySize, name_size)),
                 static_cast<std::uint16_t>(LittleEndian(record, 8, 2)),
                 static_cast<std::uint16_t>(LittleEndian(record, 10, 2)),
                 static_cast<std::uint32_t>(LittleEndian(record, 16, 4)),
                 LittleEndian(record, 20, 4),
                 LittleEndian(record, 24, 4),
                 LittleEndian(record, 42, 4)};
  std::string_view field = LargeField(record.substr(kEntrySize + name_size, extra_size));
  ReadLargeNumber(entry.size, field);
  ReadLargeNumber(entry.packed_size, field);
  ReadLargeNumber(entry.offset, field);
  reader.Advance(whole_size);
  return entry;
}

/// Holds what the check for overlapping and repeated entries needs of each entry.
struct EntryTrace {
  std::uint64_t begin;
  std::uint64_t end;
  std::uint64_t name_hash;
};

/// Returns the 64-bit FNV-1a hash of a path, ignoring case and the kind of separator ("\" or "/").
std::uint64_t HashName(std::string_view name) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char c : name) {
    hash ^= static_cast<unsigned char>(c == '\\' ? '/' : LowerAscii(c));
    hash *= 0x100000001B3;
  }
  return hash;
}

EntryTrace TraceOf(const ZipEntry& entry, const ZipDirectory& directory) {
  const std::uint64_t header = kLocalHeaderSize + entry.name.size();
  if (entry.offset > directory.offset || header > directory.offset - entry.offset ||
      entry.packed_size > directory.offset - entry.offset - header) {
    Refuse(L"The data of an entry is outside of the archive.");
  }
  return {entry.offset, entry.offset + header + entry.packed_size, HashName(entry.name)};
}

void RefuseClashes(std::vector<EntryTrace>& traces) {
  std::sort(traces.begin(), traces.end(),
            [](const EntryTrace& a, const EntryTrace& b) { return a.begin < b.begin; });
  if (std::adjacent_find(traces.begin(), traces.end(),
                         [](const EntryTrace& a, const EntryTrace& b) {
                           return b.begin < a.end;
                         }) != traces.end()) {
    Refuse(L"Entries of the archive overlap.");
  }
  std::sort(traces.begin(), traces.end(),
            [](const EntryTrace& a, const EntryTrace& b) { return a.name_hash < b.name_hash; });
  if (std::adjacent_find(traces.begin(), traces.end(),
                         [](const EntryTrace& a, const EntryTrace& b) {
                           return a.name_hash == b.name_hash;
                         }) != traces.end()) {
    Refuse(L"Two entries of the archive have the same name.");
  }
}

}  // namespace

ZipDirectory FindZipDirectory(const ByteSource& archive) {
  const EndRecord record = FindEndRecord(archive);
  EndFields fields = ReadEndFields(record.bytes);
  std::uint64_t end = record.offset;
  if (IsSaturated(fields)) {
    ReadLargeEndFields(archive, fields, end);
  }
  const ZipDirectory& directory = fields.directory;
  if (fields.disk != 0 || fields.directory_disk != 0 || fields.entries_here != directory.entries) {
    Refuse(L"The archive is split into several files.");
  }
  if (directory.entries > kMostZipEntries) {
    Refuse(L"The archive has more than 100000 entries.");
  }
  if (directory.offset > end || directory.size > end - directory.offset) {
    Refuse(L"The central directory is outside of the file.");
  }
  return directory;
}

void ForEachZipEntry(const ByteSource& archive, const ZipDirectory& directory,
                     const std::function<void(const ZipEntry&)>& visit) {
  DirectoryReader reader(archive, directory);
  std::vector<EntryTrace> traces;
  for (std::uint64_t i = 0; i < directory.entries; ++i) {
    const ZipEntry entry = ReadEntry(reader);
    traces.push_back(TraceOf(entry, directory));
    visit(entry);
  }
  if (!reader.AtEnd()) {
    Refuse(L"The central directory is damaged.");
  }
  RefuseClashes(traces);
}

}  // namespace kestrune
