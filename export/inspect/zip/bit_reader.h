#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kestrune {

/// Reads a text of bytes bit by bit, the lowest bit of each byte first.
class BitReader {
 public:
  explicit BitReader(std::string_view bytes) : bytes_(bytes) {}

  /// Returns the next `count` bits (at most 16) without taking them. Bits past the end are 0.
  std::uint32_t Peek(unsigned count) const;

  /// Takes `count` bits that were looked at. Throws Failure when there are fewer.
  void Drop(unsigned count);

  /// Takes and returns `count` bits (at most 16). Throws Failure when there are fewer.
  std::uint32_t Read(unsigned count);

  /// Skips to the next whole byte, then takes `count` bytes. Throws Failure when there are fewer.
  std::string_view ReadBytes(std::size_t count);

  /// Returns whether no whole byte is left.
  bool AtEnd() const { return (position_ + 7) / 8 >= bytes_.size(); }

 private:
  std::string_view bytes_;
  /// In bits, from the begin.
  std::uint64_t position_ = 0;
};

}  // namespace kestrune
