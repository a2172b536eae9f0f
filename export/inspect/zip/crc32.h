#pragma once

#include <cstdint>
#include <string_view>

namespace kestrune {

/// Returns the checksum that a ZIP archive records for a file: CRC-32 with the reversed polynomial
/// 0xEDB88320, all bits set at the start and inverted at the end.
std::uint32_t Crc32(std::string_view bytes);

}  // namespace kestrune
