#include "export/inspect/zip/crc32.h"

#include <array>
#include <cstddef>

namespace kestrune {
namespace {

constexpr std::array<std::uint32_t, 256> MakeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t value = byte;
    for (int bit = 0; bit < 8; ++bit) {
      value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320U : 0U);
    }
    table[byte] = value;
  }
  return table;
}

constexpr std::array<std::uint32_t, 256> kTable = MakeTable();

}  // namespace

std::uint32_t Crc32(std::string_view bytes) {
  std::uint32_t sum = 0xFFFFFFFF;
  for (const char byte : bytes) {
    sum = (sum >> 8) ^ kTable[(sum ^ static_cast<unsigned char>(byte)) & 0xFF];
  }
  return ~sum;
}

}  // namespace kestrune
