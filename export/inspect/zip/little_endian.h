#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kestrune {

/// Returns the number of `count` bytes (at most 8) at `at`, lowest byte first. The range must lie
/// within `bytes`.
constexpr std::uint64_t LittleEndian(std::string_view bytes, std::size_t at, std::size_t count) {
  std::uint64_t value = 0;
  for (std::size_t i = count; i > 0; --i) {
    value = value << 8 | static_cast<unsigned char>(bytes[at + i - 1]);
  }
  return value;
}

}  // namespace kestrune
