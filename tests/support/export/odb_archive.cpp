#include "tests/support/export/odb_archive.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "common/text/text.h"

namespace kestrune {
namespace {

void Put(std::string& bytes, std::uint32_t value, int count) {
  for (int i = 0; i < count; ++i) {
    bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
  }
}

std::uint32_t Get(std::string_view bytes, std::size_t at, int count) {
  std::uint32_t value = 0;
  for (int i = 0; i < count && at + static_cast<std::size_t>(i) < bytes.size(); ++i) {
    value |= static_cast<std::uint32_t>(
                 static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]))
             << (8 * i);
  }
  return value;
}

std::uint32_t Checksum(std::string_view bytes) {
  std::uint32_t sum = 0xFFFFFFFF;
  for (const char c : bytes) {
    sum ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) {
      sum = (sum >> 1) ^ ((sum & 1) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return ~sum;
}

constexpr std::uint32_t kLocalHeader = 0x04034B50;
constexpr std::uint32_t kCentralHeader = 0x02014B50;
constexpr std::uint32_t kEndOfDirectory = 0x06054B50;
constexpr std::uint32_t kDosTime = 12U << 11;                                // noon
constexpr std::uint32_t kDosDate = ((2026U - 1980U) << 9) | (3U << 5) | 7U;  // 7 March 2026

/// Appends the fields that the local and the central header of an entry share.
void PutCommonHeader(std::string& bytes, const std::pair<std::string, std::string>& entry) {
  const auto size = static_cast<std::uint32_t>(entry.second.size());
  Put(bytes, 20, 2);  // version needed
  Put(bytes, 0, 2);   // flags
  Put(bytes, 0, 2);   // stored
  Put(bytes, kDosTime, 2);
  Put(bytes, kDosDate, 2);
  Put(bytes, Checksum(entry.second), 4);
  Put(bytes, size, 4);
  Put(bytes, size, 4);
  Put(bytes, static_cast<std::uint32_t>(entry.first.size()), 2);
  Put(bytes, 0, 2);  // extra field
}

/// Returns a layer's name as ODB++ writes names: lower case, digits, "_" for all else.
std::string OdbName(const std::string& layer) {
  std::string name;
  for (const char c : layer) {
    name.push_back(IsAsciiAlphanumeric(c) ? LowerAscii(c) : '_');
  }
  return name;
}

std::string LayerType(const std::string& name) {
  struct Kind {
    std::string_view part;
    const char* type;
  };
  constexpr std::array<Kind, 6> kKinds = {{{"solder", "SOLDER_MASK"},
                                           {"paste", "SOLDER_PASTE"},
                                           {"overlay", "SILK_SCREEN"},
                                           {"plane", "POWER_GROUND"},
                                           {"mechanical", "DOCUMENT"},
                                           {"keepout", "DOCUMENT"}}};
  for (const Kind& kind : kKinds) {
    if (name.find(kind.part) != std::string::npos) {
      return kind.type;
    }
  }
  return "SIGNAL";
}

std::string Matrix(const std::vector<std::string>& names) {
  std::string text = "STEP {\n    COL=1\n    NAME=pcb\n}\n\n";
  int row = 0;
  for (const std::string& name : names) {
    text += "LAYER {\n    ROW=" + std::to_string(++row) +
            "\n    CONTEXT=" + (LayerType(name) == "DOCUMENT" ? "MISC" : "BOARD") +
            "\n    TYPE=" + LayerType(name) + "\n    NAME=" + name +
            "\n    POLARITY=POSITIVE\n    START_NAME=\n    END_NAME=\n" + "    OLD_NAME=\n}\n\n";
  }
  return text;
}

/// Returns one line and one pad, so that no layer is empty.
std::string Features() {
  return "UNITS=MM\n#\n#Feature symbol names\n#\n$0 r1000\n$1 r250\n#\n#Layer features\n#\n"
         "P 10 10 0 P 0 0\nL 10 10 40 30 1 P 0\n";
}

}  // namespace

std::string StoredZip(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string bytes;
  std::string directory;
  for (const auto& entry : entries) {
    const auto offset = static_cast<std::uint32_t>(bytes.size());
    Put(bytes, kLocalHeader, 4);
    PutCommonHeader(bytes, entry);
    bytes += entry.first + entry.second;

    Put(directory, kCentralHeader, 4);
    Put(directory, 20, 2);  // version made by
    PutCommonHeader(directory, entry);
    Put(directory, 0, 2);  // comment
    Put(directory, 0, 2);  // disk
    Put(directory, 0, 2);  // internal attributes
    Put(directory, 0, 4);  // external attributes
    Put(directory, offset, 4);
    directory += entry.first;
  }
  const auto begin = static_cast<std::uint32_t>(bytes.size());
  bytes += directory;
  Put(bytes, kEndOfDirectory, 4);
  Put(bytes, 0, 4);  // disks
  Put(bytes, static_cast<std::uint32_t>(entries.size()), 2);
  Put(bytes, static_cast<std::uint32_t>(entries.size()), 2);
  Put(bytes, static_cast<std::uint32_t>(directory.size()), 4);
  Put(bytes, begin, 4);
  Put(bytes, 0, 2);  // comment
  return bytes;
}

std::vector<std::pair<std::string, std::string>> ReadStoredZip(std::string_view archive) {
  constexpr std::size_t kEndSize = 22;
  std::vector<std::pair<std::string, std::string>> entries;
  if (archive.size() < kEndSize || Get(archive, archive.size() - kEndSize, 4) != kEndOfDirectory) {
    return entries;
  }
  const std::size_t end = archive.size() - kEndSize;
  std::size_t at = Get(archive, end + 16, 4);
  for (std::uint32_t i = Get(archive, end + 10, 2); i > 0; --i) {
    if (Get(archive, at, 4) != kCentralHeader) {
      return {};
    }
    const std::size_t size = Get(archive, at + 24, 4);
    const std::size_t name_size = Get(archive, at + 28, 2);
    const std::size_t local = Get(archive, at + 42, 4);
    const std::string name(archive.substr(at + 46, name_size));
    const std::string content(archive.substr(std::min(local + 30 + name_size, end), size));
    if (Get(archive, local, 4) != kLocalHeader || Checksum(content) != Get(archive, at + 16, 4)) {
      return {};
    }
    entries.emplace_back(name, content);
    at += 46 + name_size;
  }
  return entries;
}

std::string OdbArchive(const std::vector<std::string>& layers) {
  std::vector<std::string> names;
  for (const std::string& layer : layers) {
    names.push_back(OdbName(layer));
  }
  std::vector<std::pair<std::string, std::string>> entries = {
      {"odb/matrix/matrix", Matrix(names)},
      {"odb/misc/info",
       "JOB_NAME=bridge\nUNITS=MM\nODB_VERSION_MAJOR=8\nODB_VERSION_MINOR=1\n"
       "ODB_SOURCE=host stand-in\nCREATION_DATE=20260307.120000\n"},
      {"odb/steps/pcb/stephdr",
       "UNITS=MM\nX_DATUM=0\nY_DATUM=0\nX_ORIGIN=0\nY_ORIGIN=0\nTOP_ACTIVE=0\nBOTTOM_ACTIVE=0\n"},
      {"odb/steps/pcb/profile",
       "UNITS=MM\n#\n#Layer features\n#\nS P 0\nOB 0 0 I\nOS 50 0\nOS 50 40\nOS 0 40\nOS 0 0\n"
       "OE\nSE\n"}};
  for (const std::string& name : names) {
    entries.emplace_back("odb/steps/pcb/layers/" + name + "/features", Features());
  }
  return StoredZip(entries);
}

std::string SmallBoard() {
  constexpr std::uint32_t kFree = 0xFFFFFFFF;
  constexpr std::uint32_t kEndOfChain = 0xFFFFFFFE;
  constexpr std::uint32_t kTable = 0xFFFFFFFD;
  constexpr std::uint32_t kStreamSectors = 8;  // the smallest stream that needs no second table
  std::string header("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8);
  header.append(16, '\0');
  Put(header, 0x003E, 2);
  Put(header, 3, 2);
  Put(header, 0xFFFE, 2);
  Put(header, 9, 2);  // 512-byte sectors
  Put(header, 6, 2);
  header.append(10, '\0');
  Put(header, 1, 4);  // table sectors
  Put(header, 1, 4);  // the directory's sector
  Put(header, 0, 4);
  Put(header, 4096, 4);
  Put(header, kEndOfChain, 4);
  Put(header, 0, 4);
  Put(header, kEndOfChain, 4);
  Put(header, 0, 4);
  Put(header, 0, 4);  // the table's sector
  for (int i = 1; i < 109; ++i) {
    Put(header, kFree, 4);
  }

  std::string table;
  Put(table, kTable, 4);
  Put(table, kEndOfChain, 4);
  for (std::uint32_t i = 0; i < kStreamSectors; ++i) {
    Put(table, i + 1 == kStreamSectors ? kEndOfChain : i + 3, 4);
  }
  while (table.size() < 512) {
    Put(table, kFree, 4);
  }

  const auto entry = [](std::string_view name, std::uint32_t type, std::uint32_t child,
                        std::uint32_t start, std::uint32_t size) {
    std::string bytes;
    for (const char c : name) {
      Put(bytes, static_cast<std::uint32_t>(static_cast<unsigned char>(c)), 2);
    }
    bytes.resize(64, '\0');
    Put(bytes, name.empty() ? 0 : static_cast<std::uint32_t>(name.size() + 1) * 2, 2);
    Put(bytes, type | (1U << 8), 2);  // kind and colour
    Put(bytes, kFree, 4);
    Put(bytes, kFree, 4);
    Put(bytes, child, 4);
    bytes.resize(116, '\0');
    Put(bytes, start, 4);
    Put(bytes, size, 4);
    Put(bytes, 0, 4);
    return bytes;
  };
  const std::string directory = entry("Root Entry", 5, 1, kEndOfChain, 0) +
                                entry("FileHeader", 2, kFree, 2, kStreamSectors * 512) +
                                entry("", 0, kFree, 0, 0) + entry("", 0, kFree, 0, 0);
  std::string stream = "PCB 6.0 Binary File";
  stream.resize(kStreamSectors * 512, '\0');
  return header + table + directory + stream;
}

}  // namespace kestrune
