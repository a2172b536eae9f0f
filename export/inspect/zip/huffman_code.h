#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "export/inspect/zip/bit_reader.h"

namespace kestrune {

/// Lists which incomplete codes are accepted.
enum class UnusedCodes {
  Refused,
  /// No code at all, or one code of one bit.
  SparseAccepted,
};

/// Decodes a canonical Huffman code of deflate: shorter codes first, equal lengths in the order of
/// symbols.
class HuffmanCode {
 public:
  static constexpr unsigned kLongest = 15;
  static constexpr std::size_t kMostSymbols = 288;

  /// Builds the code from the length of each symbol's code in bits (0 to 15; 0: the symbol is
  /// unused). Takes at most 288 symbols. Throws Failure when the lengths do not form a code.
  HuffmanCode(std::span<const std::uint8_t> lengths, UnusedCodes unused);

  /// Consumes one code and returns its symbol. Throws Failure for an unused code or at the end of
  /// the input.
  unsigned Decode(BitReader& bits) const;

 private:
  /// The length in bits of the longest code that is decoded with one table lookup.
  static constexpr unsigned kTableBits = 9;

  struct Entry {
    std::uint16_t symbol = 0;
    /// In bits; 0: the code is longer than the table's bits, or unused.
    std::uint16_t length = 0;
  };

  void CheckCounts(UnusedCodes unused) const;
  void SortSymbols(std::span<const std::uint8_t> lengths);
  void FillTable();
  unsigned DecodeLong(BitReader& bits) const;

  /// The number of codes by length.
  std::array<std::uint16_t, kLongest + 1> counts_{};
  /// The used symbols in the order of their codes.
  std::array<std::uint16_t, kMostSymbols> symbols_{};
  /// Indexed by the next bits of the input, lowest bit first.
  std::array<Entry, 1U << kTableBits> table_{};
};

}  // namespace kestrune
