#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace altium_registration {

inline constexpr char kRcsQuote = '\'';

inline std::uint32_t LoadWord(const char* bytes) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

/// Returns the hash of some bytes, made from two words at a time. The words go into the product of
/// two numbers that depend on the seed: without it nobody knows what a change of a word does to the
/// result. So bytes that collide for one seed do not collide for another one, but for chance, and
/// no file can be made to collide by an author who does not know the seed.
inline std::uint32_t HashOfBytes(std::string_view bytes, std::uint64_t seed) {
  const std::size_t size = bytes.size();
  const char* const data = bytes.data();
  std::uint64_t hash = seed;
  const auto add = [&](std::uint32_t first, std::uint32_t second) {
    hash = seed ^ (((hash & 0xFFFFFFFF) ^ first) * ((hash >> 32) ^ second));
  };
  if (size >= 8) {
    for (std::size_t at = 0; at + 8 < size; at += 8) {
      add(LoadWord(data + at), LoadWord(data + at + 4));
    }
    add(LoadWord(data + size - 8), LoadWord(data + size - 4));
  } else if (size >= 4) {
    add(LoadWord(data), LoadWord(data + size - 4));
  } else {
    std::uint32_t word = 0;
    for (const char byte : bytes) {
      word = word << 8 | static_cast<unsigned char>(byte);
    }
    add(word, 0);
  }
  // Among the words the size could be offset by a change of one of them.
  constexpr std::uint32_t kSizeFactor = 0x9E3779B1;
  return static_cast<std::uint32_t>(hash ^ (hash >> 32)) +
         static_cast<std::uint32_t>(size) * kSizeFactor;
}

/// An identifier, attribute name or value: bytes of the file without their outer quotes. Lives as
/// long as the file's text.
class RcsText {
 public:
  RcsText() = default;
  /// `written` is what the file holds; `doubled` says that it holds doubled quotes, each of which
  /// means one.
  RcsText(std::string_view written, bool doubled) : written_(written), doubled_(doubled) {}

  bool empty() const { return written_.empty(); }
  /// The size of the text, or more when it is written with doubled quotes.
  std::size_t LongestSize() const { return written_.size(); }
  /// The text that is meant, doubled quotes collapsed.
  std::string ToString() const;
  /// The hash of the text that is meant; see HashOfBytes.
  std::uint32_t Hash(std::uint64_t seed) const {
    return doubled_ ? HashOfCollapsed(seed) : HashOfBytes(written_, seed);
  }

  /// Compares what is meant, byte by byte, and copies nothing.
  friend bool operator==(const RcsText& left, const RcsText& right) {
    // A text has only one way to be written with its quotes doubled, and only one without.
    return left.doubled_ == right.doubled_ ? left.written_ == right.written_
                                           : MeansSame(left, right);
  }
  friend bool operator==(const RcsText& left, std::string_view right) {
    return left == RcsText(right, false);
  }

 private:
  static bool MeansSame(const RcsText& left, const RcsText& right);
  std::uint32_t HashOfCollapsed(std::uint64_t seed) const;

  std::string_view written_;
  bool doubled_ = false;
};

/// Where a token is in the file: 8 bytes, as a file can hold a million of them.
class RcsSpan {
 public:
  RcsSpan() = default;
  /// `begin` and `size` are those of the text without outer quotes; `doubled` says that quotes in
  /// it are doubled.
  RcsSpan(std::uint32_t begin, std::uint32_t size, bool quoted, bool doubled)
      : begin_(begin), size_and_flags_(size << 2U | (quoted ? 2U : 0U) | (doubled ? 1U : 0U)) {}

  bool quoted() const { return (size_and_flags_ & 2U) != 0; }
  /// Offset of the first byte, the opening quote when there is one.
  std::uint32_t Start() const { return begin_ - (quoted() ? 1U : 0U); }
  /// Offset one past the last byte, the closing quote included when there is one.
  std::uint32_t End() const { return begin_ + size() + (quoted() ? 1U : 0U); }
  /// The text as the file has it, doubled quotes included.
  std::string_view Written(std::string_view raw) const { return {raw.data() + begin_, size()}; }
  RcsText In(std::string_view raw) const { return {Written(raw), (size_and_flags_ & 1U) != 0}; }

 private:
  std::uint32_t size() const { return size_and_flags_ >> 2U; }

  std::uint32_t begin_ = 0;
  std::uint32_t size_and_flags_ = 0;
};

/// Writes an attribute value: in quotes, every quote inside doubled.
std::string Quote(std::string_view value);

}  // namespace altium_registration
