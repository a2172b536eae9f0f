#include "export/inspect/zip/bit_reader.h"

#include "common/failure/failure.h"

namespace kestrune {
namespace {

[[noreturn]] void ThrowTooShort() {
  throw Failure{L"The compressed data is truncated."};
}

}  // namespace

std::uint32_t BitReader::Peek(unsigned count) const {
  const auto first = static_cast<std::size_t>(position_ / 8);
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 3 && first + i < bytes_.size(); ++i) {
    bits |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes_[first + i])) << (8 * i);
  }
  return (bits >> (position_ % 8)) & ((1U << count) - 1);
}

void BitReader::Drop(unsigned count) {
  if (count > bytes_.size() * std::uint64_t{8} - position_) {
    ThrowTooShort();
  }
  position_ += count;
}

std::uint32_t BitReader::Read(unsigned count) {
  const std::uint32_t bits = Peek(count);
  Drop(count);
  return bits;
}

std::string_view BitReader::ReadBytes(std::size_t count) {
  const auto first = static_cast<std::size_t>((position_ + 7) / 8);
  if (count > bytes_.size() - first) {
    ThrowTooShort();
  }
  position_ = (std::uint64_t{first} + count) * 8;
  return bytes_.substr(first, count);
}

}  // namespace kestrune
