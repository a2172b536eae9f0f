#pragma once

#include <algorithm>
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

/// Returns a seeded hash of the bytes, computed from two words at a time. Both factors of the
/// product depend on the seed, so texts that collide for one seed collide for another one only by
/// chance: an author who does not know the seed cannot craft a file with collisions.
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
  // The size is added last: a change of a word could cancel a change of the size among the words.
  constexpr std::uint32_t kSizeFactor = 0x9E3779B1;
  return static_cast<std::uint32_t>(hash ^ (hash >> 32)) +
         static_cast<std::uint32_t>(size) * kSizeFactor;
}

/// Holds an identifier, attribute name or value: bytes of the file without outer quotes. Valid as
/// long as the file's text.
class RcsText {
 public:
  RcsText() = default;
  /// `written` is the text as in the file; `doubled` says that it contains doubled quotes, each of
  /// which means one quote.
  RcsText(std::string_view written, bool doubled) : written_(written), doubled_(doubled) {}

  bool empty() const { return written_.empty(); }
  /// Returns the text with doubled quotes collapsed.
  std::string ToString() const;
  /// Returns the hash of the text with doubled quotes collapsed; see HashOfBytes.
  std::uint32_t Hash(std::uint64_t seed) const {
    return doubled_ ? HashOfCollapsed(seed) : HashOfBytes(written_, seed);
  }

  /// Returns whether the text with doubled quotes collapsed becomes `wanted` when `change` is
  /// applied to each byte. Copies nothing.
  template <typename Change>
  bool Becomes(std::string_view wanted, const Change& change) const {
    if (!doubled_) {
      return std::ranges::equal(written_, wanted, {}, change);
    }
    std::size_t at = 0;
    for (const char byte : wanted) {
      if (at == written_.size() || change(written_[at]) != byte) {
        return false;
      }
      at += written_[at] == kRcsQuote ? 2U : 1U;
    }
    return at == written_.size();
  }

  /// Compares the texts with doubled quotes collapsed, without copying.
  friend bool operator==(const RcsText& left, const RcsText& right) {
    // Texts written in the same way are equal exactly when their bytes are.
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

/// Holds the position of a token in 8 bytes, since a file can have a million tokens.
class RcsSpan {
 public:
  RcsSpan() = default;
  /// `begin` and `size` are those of the text without outer quotes; `doubled` says that it contains
  /// doubled quotes.
  RcsSpan(std::uint32_t begin, std::uint32_t size, bool quoted, bool doubled)
      : begin_(begin), size_and_flags_(size << 2U | (quoted ? 2U : 0U) | (doubled ? 1U : 0U)) {}

  bool quoted() const { return (size_and_flags_ & 2U) != 0; }
  /// Returns the offset of the first byte, which is the opening quote if there is one.
  std::uint32_t Start() const { return begin_ - (quoted() ? 1U : 0U); }
  /// Returns the offset one past the last byte, including the closing quote if there is one.
  std::uint32_t End() const { return begin_ + size() + (quoted() ? 1U : 0U); }
  /// Returns the text as in the file, with doubled quotes.
  std::string_view Written(std::string_view raw) const { return {raw.data() + begin_, size()}; }
  /// Returns whether the token is this word, without quotes.
  bool IsBare(std::string_view word, std::string_view raw) const {
    return size_and_flags_ == word.size() << 2U && Written(raw) == word;
  }
  RcsText In(std::string_view raw) const { return {Written(raw), (size_and_flags_ & 1U) != 0}; }

 private:
  std::uint32_t size() const { return size_and_flags_ >> 2U; }

  std::uint32_t begin_ = 0;
  std::uint32_t size_and_flags_ = 0;
};

/// Returns an attribute value for the file: in quotes, with inner quotes doubled.
std::string Quote(std::string_view value);

}  // namespace altium_registration
