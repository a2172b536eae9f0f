#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kestrune {

/// Reads bits from a byte string, the lowest bit of each byte first.
class BitReader {
 public:
  explicit BitReader(std::string_view bytes) : bytes_(bytes) {}

  /// Returns the next `count` bits (at most 16) without consuming them. Bits past the end are 0.
  std::uint32_t Peek(unsigned count) const;

  /// Consumes `count` bits. Throws Failure when there are fewer.
  void Drop(unsigned count);

  /// Consumes and returns `count` bits (at most 16). Throws Failure when there are fewer.
  std::uint32_t Read(unsigned count);

  /// Skips to the next byte boundary, then consumes and returns `count` bytes. Throws Failure when
  /// there are fewer.
  std::string_view ReadBytes(std::size_t count);

  /// Returns whether no whole byte is left.
  bool AtEnd() const { return (position_ + 7) / 8 >= bytes_.size(); }

 private:
  std::string_view bytes_;
  /// In bits, from the beginning.
  std::uint64_t position_ = 0;
};

}  // namespace kestrune
