#include "export/inspect/zip/huffman_code.h"

#include <cstddef>

#include "common/failure/failure.h"

namespace kestrune {
namespace {

[[noreturn]] void ThrowDamaged() {
  throw Failure{L"The compressed data is damaged."};
}

/// Returns the lowest `count` bits of `code` in reverse order, since codes are written highest bit
/// first.
unsigned Reversed(unsigned code, unsigned count) {
  unsigned reversed = 0;
  for (unsigned i = 0; i < count; ++i) {
    reversed = reversed << 1 | (code >> i & 1);
  }
  return reversed;
}

}  // namespace

HuffmanCode::HuffmanCode(std::span<const std::uint8_t> lengths, UnusedCodes unused) {
  for (const std::uint8_t length : lengths) {
    ++counts_[length];
  }
  counts_[0] = 0;
  CheckCounts(unused);
  SortSymbols(lengths);
  FillTable();
}

void HuffmanCode::CheckCounts(UnusedCodes unused) const {
  int free_codes = 1;
  unsigned longest = 0;
  for (unsigned length = 1; length <= kLongest; ++length) {
    free_codes = free_codes * 2 - counts_[length];
    if (free_codes < 0) {
      ThrowDamaged();
    }
    longest = counts_[length] != 0 ? length : longest;
  }
  const bool sparse = longest <= 1 && unused == UnusedCodes::SparseAccepted;
  if (free_codes > 0 && !sparse) {
    ThrowDamaged();
  }
}

void HuffmanCode::SortSymbols(std::span<const std::uint8_t> lengths) {
  decltype(counts_) next{};
  std::uint16_t shorter = 0;
  for (unsigned length = 1; length <= kLongest; ++length) {
    next[length] = shorter;
    shorter += counts_[length];
  }
  for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
    if (lengths[symbol] != 0) {
      symbols_[next[lengths[symbol]]++] = static_cast<std::uint16_t>(symbol);
    }
  }
}

void HuffmanCode::FillTable() {
  unsigned code = 0;
  std::size_t index = 0;
  for (unsigned length = 1; length <= kTableBits; ++length, code <<= 1) {
    for (unsigned i = 0; i < counts_[length]; ++i, ++code, ++index) {
      const unsigned step = 1U << length;
      for (unsigned at = Reversed(code, length); at < table_.size(); at += step) {
        table_[at] = {symbols_[index], static_cast<std::uint16_t>(length)};
      }
    }
  }
}

unsigned HuffmanCode::Decode(BitReader& bits) const {
  const Entry entry = table_[bits.Peek(kTableBits)];
  if (entry.length == 0) {
    return DecodeLong(bits);
  }
  bits.Drop(entry.length);
  return entry.symbol;
}

unsigned HuffmanCode::DecodeLong(BitReader& bits) const {
  unsigned code = 0;
  unsigned first_code = 0;
  std::size_t first_index = 0;
  for (unsigned length = 1; length <= kLongest; ++length) {
    code |= bits.Read(1);
    const unsigned count = counts_[length];
    if (code < first_code + count) {
      return symbols_[first_index + code - first_code];
    }
    first_index += count;
    first_code = (first_code + count) << 1;
    code <<= 1;
  }
  ThrowDamaged();
}

}  // namespace kestrune
