#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "registration/rcs/rcs_index.h"

namespace altium_registration {

inline constexpr char kRcsQuote = '\'';

/// An identifier or attribute value: bytes of the file without their outer quotes. Lives as long as
/// the file's text.
class RcsText {
 public:
  RcsText() = default;
  /// `written` stands as in the file; `doubled` tells that it holds doubled quotes, each of which
  /// means one.
  RcsText(std::string_view written, bool doubled) : written_(written), doubled_(doubled) {}

  bool empty() const { return written_.empty(); }
  /// The size of the text, or more when doubled quotes stand in it.
  std::size_t LongestSize() const { return written_.size(); }
  /// The text meant, doubled quotes collapsed.
  std::string ToString() const;
  std::uint32_t Hash() const { return HashOf(doubled_ ? std::string_view(ToString()) : written_); }
  /// A number that equal texts share, made from as little as their ends and their length.
  std::uint32_t Sketch() const {
    return empty() ? 0
                   : static_cast<std::uint32_t>(written_.size()) * 5 +
                         static_cast<unsigned char>(written_.front()) * 3U +
                         static_cast<unsigned char>(written_.back()) * 7U;
  }

  friend bool operator==(const RcsText& left, const RcsText& right) {
    return left.doubled_ == right.doubled_ ? left.written_ == right.written_
                                           : EqualWhenCollapsed(left, right);
  }
  friend bool operator==(const RcsText& left, std::string_view right) {
    return left == RcsText(right, false);
  }

 private:
  static bool EqualWhenCollapsed(const RcsText& left, const RcsText& right);

  std::string_view written_;
  bool doubled_ = false;
};

/// Where a token or its text stands in the file: 8 bytes in one word, as a file can hold a million
/// of them and most are moved about as soon as they are made.
class RcsSpan {
 public:
  RcsSpan() = default;
  /// `begin` and `size` are those of the text without outer quotes; `doubled` tells that quotes in
  /// it stand doubled.
  RcsSpan(std::uint32_t begin, std::uint32_t size, bool quoted, bool doubled)
      : bits_(std::uint64_t{size} << 34 | std::uint64_t{quoted} << 33 |
              std::uint64_t{doubled} << 32 | begin) {}

  bool quoted() const { return (bits_ >> 33 & 1) != 0; }
  std::uint32_t size() const { return static_cast<std::uint32_t>(bits_ >> 34); }
  /// Offset of the first byte, the opening quote when there is one.
  std::uint32_t Start() const { return begin() - (quoted() ? 1U : 0U); }
  /// Offset one past the last byte, behind the closing quote when there is one.
  std::uint32_t End() const { return begin() + size() + (quoted() ? 1U : 0U); }
  /// The text as it stands in the file, doubled quotes included.
  std::string_view Written(std::string_view raw) const { return {raw.data() + begin(), size()}; }
  RcsText In(std::string_view raw) const { return {Written(raw), (bits_ >> 32 & 1) != 0}; }

 private:
  std::uint32_t begin() const { return static_cast<std::uint32_t>(bits_); }

  /// From the highest bit down: the size, whether quoted, whether doubled, and the beginning.
  std::uint64_t bits_ = 0;
};

/// Writes an attribute value: in quotes, every quote inside doubled.
std::string Quote(std::string_view value);

}  // namespace altium_registration
