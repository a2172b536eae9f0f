#include "registration/rcs/rcs_text.h"

namespace altium_registration {
namespace {

std::string Collapsed(std::string_view written) {
  std::string text;
  text.reserve(written.size());
  for (std::size_t i = 0; i < written.size(); ++i) {
    text.push_back(written[i]);
    if (written[i] == kRcsQuote) {
      ++i;
    }
  }
  return text;
}

}  // namespace

std::string RcsText::ToString() const {
  return doubled_ ? Collapsed(written_) : std::string(written_);
}

std::uint32_t RcsText::HashOfCollapsed(std::uint64_t seed) const {
  return HashOfBytes(Collapsed(written_), seed);
}

bool RcsText::MeansSame(const RcsText& left, const RcsText& right) {
  const std::string_view doubled = left.doubled_ ? left.written_ : right.written_;
  const std::string_view plain = left.doubled_ ? right.written_ : left.written_;
  std::size_t at = 0;
  for (const char byte : plain) {
    if (at == doubled.size() || doubled[at] != byte) {
      return false;
    }
    at += byte == kRcsQuote ? 2 : 1;
  }
  return at == doubled.size();
}

std::string Quote(std::string_view value) {
  std::string quoted(1, kRcsQuote);
  quoted.reserve(value.size() + 2);
  for (const char byte : value) {
    quoted.append(byte == kRcsQuote ? 2 : 1, byte);
  }
  quoted.push_back(kRcsQuote);
  return quoted;
}

}  // namespace altium_registration
