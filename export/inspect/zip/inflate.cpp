#include "export/inspect/zip/inflate.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "common/failure/failure.h"
#include "export/inspect/zip/bit_reader.h"
#include "export/inspect/zip/huffman_code.h"
#include "export/inspect/zip/little_endian.h"

namespace kestrune {
namespace {

constexpr unsigned kEndOfBlock = 256;
constexpr std::size_t kMostLiterals = 286;
constexpr std::size_t kMostDistances = 30;
constexpr std::size_t kLengthSymbols = 19;

/// Holds the meaning of a length or distance symbol: the smallest value, and the number of extra
/// bits to add to it.
struct Range {
  std::uint16_t least;
  std::uint8_t extra_bits;
};

constexpr std::array<Range, 29> kLengths = {
    {{3, 0},  {4, 0},  {5, 0},  {6, 0},   {7, 0},   {8, 0},   {9, 0},   {10, 0},  {11, 1}, {13, 1},
     {15, 1}, {17, 1}, {19, 2}, {23, 2},  {27, 2},  {31, 2},  {35, 3},  {43, 3},  {51, 3}, {59, 3},
     {67, 4}, {83, 4}, {99, 4}, {115, 4}, {131, 5}, {163, 5}, {195, 5}, {227, 5}, {258, 0}}};

constexpr std::array<Range, kMostDistances> kDistances = {
    {{1, 0},     {2, 0},     {3, 0},     {4, 0},      {5, 1},      {7, 1},
     {9, 2},     {13, 2},    {17, 3},    {25, 3},     {33, 4},     {49, 4},
     {65, 5},    {97, 5},    {129, 6},   {193, 6},    {257, 7},    {385, 7},
     {513, 8},   {769, 8},   {1025, 9},  {1537, 9},   {2049, 10},  {3073, 10},
     {4097, 11}, {6145, 11}, {8193, 12}, {12289, 12}, {16385, 13}, {24577, 13}}};

/// Holds the two codes of a compressed block.
struct BlockCodes {
  HuffmanCode literals;
  HuffmanCode distances;
};

[[noreturn]] void ThrowDamaged() {
  throw Failure{L"The compressed data is damaged."};
}

void RequireRoom(const std::string& output, std::size_t count, std::size_t limit) {
  if (count > limit - output.size()) {
    throw Failure{L"The uncompressed data is larger than its recorded size."};
  }
}

BlockCodes MakeFixedCodes() {
  std::array<std::uint8_t, HuffmanCode::kMostSymbols> literals{};
  std::fill_n(literals.begin(), 144, std::uint8_t{8});
  std::fill(literals.begin() + 144, literals.begin() + 256, std::uint8_t{9});
  std::fill(literals.begin() + 256, literals.begin() + 280, std::uint8_t{7});
  std::fill(literals.begin() + 280, literals.end(), std::uint8_t{8});
  std::array<std::uint8_t, 32> distances{};
  distances.fill(5);
  return {HuffmanCode(literals, UnusedCodes::Refused),
          HuffmanCode(distances, UnusedCodes::Refused)};
}

/// Returns the fixed codes of deflate. They are built once, since data can consist of millions of
/// blocks that use them.
const BlockCodes& FixedCodes() {
  static const BlockCodes codes = MakeFixedCodes();
  return codes;
}

/// Reads the code that encodes the code lengths of the two other codes.
HuffmanCode ReadLengthCode(BitReader& bits, std::size_t count) {
  constexpr std::array<std::uint8_t, kLengthSymbols> kOrder = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                               11, 4,  12, 3, 13, 2, 14, 1, 15};
  std::array<std::uint8_t, kLengthSymbols> lengths{};
  for (std::size_t i = 0; i < count; ++i) {
    lengths[kOrder[i]] = static_cast<std::uint8_t>(bits.Read(3));
  }
  return HuffmanCode(lengths, UnusedCodes::Refused);
}

/// Fills `lengths` with code lengths, expanding the run-length encoding.
void ReadLengths(BitReader& bits, const HuffmanCode& code, std::span<std::uint8_t> lengths) {
  std::size_t at = 0;
  while (at < lengths.size()) {
    const unsigned symbol = code.Decode(bits);
    if (symbol < 16) {
      lengths[at++] = static_cast<std::uint8_t>(symbol);
      continue;
    }
    if (symbol == 16 && at == 0) {
      ThrowDamaged();
    }
    const std::uint8_t value = symbol == 16 ? lengths[at - 1] : std::uint8_t{0};
    const std::size_t run = symbol == 16   ? 3 + bits.Read(2)
                            : symbol == 17 ? 3 + bits.Read(3)
                                           : 11 + bits.Read(7);
    if (run > lengths.size() - at) {
      ThrowDamaged();
    }
    std::fill_n(lengths.begin() + static_cast<std::ptrdiff_t>(at), run, value);
    at += run;
  }
}

BlockCodes ReadCodes(BitReader& bits) {
  const std::size_t literals = 257 + bits.Read(5);
  const std::size_t distances = 1 + bits.Read(5);
  const std::size_t length_symbols = 4 + bits.Read(4);
  if (literals > kMostLiterals || distances > kMostDistances) {
    ThrowDamaged();
  }
  std::array<std::uint8_t, kMostLiterals + kMostDistances> lengths{};
  const std::span<std::uint8_t> used = std::span(lengths).first(literals + distances);
  ReadLengths(bits, ReadLengthCode(bits, length_symbols), used);
  if (lengths[kEndOfBlock] == 0) {
    ThrowDamaged();
  }
  return {HuffmanCode(used.first(literals), UnusedCodes::SparseAccepted),
          HuffmanCode(used.subspan(literals), UnusedCodes::SparseAccepted)};
}

std::size_t ReadInRange(BitReader& bits, std::span<const Range> ranges, std::size_t symbol) {
  if (symbol >= ranges.size()) {
    ThrowDamaged();
  }
  return ranges[symbol].least + bits.Read(ranges[symbol].extra_bits);
}

/// Appends `length` bytes from `distance` bytes back; source and destination may overlap.
void CopyBack(std::string& output, std::size_t distance, std::size_t length) {
  if (distance > output.size()) {
    ThrowDamaged();
  }
  for (std::size_t i = 0; i < length; ++i) {
    output.push_back(output[output.size() - distance]);
  }
}

void InflateBlock(BitReader& bits, const BlockCodes& codes, std::string& output,
                  std::size_t limit) {
  for (;;) {
    const unsigned symbol = codes.literals.Decode(bits);
    if (symbol == kEndOfBlock) {
      return;
    }
    if (symbol < kEndOfBlock) {
      RequireRoom(output, 1, limit);
      output.push_back(static_cast<char>(symbol));
      continue;
    }
    const std::size_t length = ReadInRange(bits, kLengths, symbol - kEndOfBlock - 1);
    const std::size_t distance = ReadInRange(bits, kDistances, codes.distances.Decode(bits));
    RequireRoom(output, length, limit);
    CopyBack(output, distance, length);
  }
}

void CopyStoredBlock(BitReader& bits, std::string& output, std::size_t limit) {
  const std::string_view lengths = bits.ReadBytes(4);
  const std::uint64_t length = LittleEndian(lengths, 0, 2);
  if ((length ^ LittleEndian(lengths, 2, 2)) != 0xFFFF) {
    ThrowDamaged();
  }
  const std::string_view bytes = bits.ReadBytes(static_cast<std::size_t>(length));
  RequireRoom(output, bytes.size(), limit);
  output.append(bytes);
}

}  // namespace

std::string Inflate(std::string_view deflated, std::size_t limit) {
  BitReader bits(deflated);
  std::string output;
  output.reserve(limit);
  for (bool last = false; !last;) {
    last = bits.Read(1) != 0;
    switch (bits.Read(2)) {
      case 0:
        CopyStoredBlock(bits, output, limit);
        break;
      case 1:
        InflateBlock(bits, FixedCodes(), output, limit);
        break;
      case 2:
        InflateBlock(bits, ReadCodes(bits), output, limit);
        break;
      default:
        ThrowDamaged();
    }
  }
  if (!bits.AtEnd()) {
    ThrowDamaged();
  }
  return output;
}

}  // namespace kestrune
