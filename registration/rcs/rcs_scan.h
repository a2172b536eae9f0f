#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "registration/rcs/rcs_text.h"

#if defined(__SSE2__) || (defined(_MSC_VER) && (defined(_M_X64) || _M_IX86_FP >= 2))
#define KESTRUNE_RCS_SCAN_SSE2 1
#include <emmintrin.h>
#endif

namespace altium_registration {

/// Searches in a customization file's bytes. What counts is how fast a search begins and ends.
/// Names, keywords and the blanks between them are a few bytes long and much the same in every
/// record: a processor that foresees the loop's end is through them before it could have compared a
/// block. Quoted values are longer, so there sixteen bytes are looked at in one go. Nothing behind
/// the end is ever read.

/// What a byte means outside quotes; a byte can be several of them.
enum class RcsByte : std::uint8_t { kBlank = 1, kEndsBareToken = 2 };

inline constexpr std::array<std::uint8_t, 256> kRcsBytes = [] {
  constexpr auto kBlank = static_cast<std::uint8_t>(RcsByte::kBlank);
  constexpr auto kEnds = static_cast<std::uint8_t>(RcsByte::kEndsBareToken);
  std::array<std::uint8_t, 256> bytes{};
  bytes[' '] = bytes['\t'] = bytes['\r'] = bytes['\n'] = kBlank | kEnds;
  bytes['='] = bytes[kRcsQuote] = bytes['\0'] = kEnds;
  return bytes;
}();

inline bool IsRcs(RcsByte meaning, char byte) {
  return (kRcsBytes[static_cast<unsigned char>(byte)] & static_cast<std::uint8_t>(meaning)) != 0;
}

/// The first byte in [begin, end) that ends a bare token (NUL among them), or `end`.
inline const char* FindBareTokenEnd(const char* begin, const char* end) {
  // Four at a time: one look at the end for four bytes.
  for (; end - begin >= 4; begin += 4) {
    for (int place = 0; place < 4; ++place) {
      if (IsRcs(RcsByte::kEndsBareToken, begin[place])) {
        return begin + place;
      }
    }
  }
  while (begin != end && !IsRcs(RcsByte::kEndsBareToken, *begin)) {
    ++begin;
  }
  return begin;
}

/// The first byte in [begin, end) that is no blank, or `end`.
inline const char* SkipRcsBlanks(const char* begin, const char* end) {
  while (begin != end && IsRcs(RcsByte::kBlank, *begin)) {
    ++begin;
  }
  return begin;
}

/// The first quote or NUL in [begin, end), or null. What is not found soon is left to the library,
/// which is faster on long stretches.
inline const char* FindRcsQuoteOrNul(const char* begin, const char* end) {
#ifdef KESTRUNE_RCS_SCAN_SSE2
  constexpr std::ptrdiff_t kBlock = sizeof(__m128i);
  for (int count = 0; count < 4 && end - begin >= kBlock; ++count, begin += kBlock) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin));
    const __m128i found = _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8(kRcsQuote)),
                                       _mm_cmpeq_epi8(block, _mm_setzero_si128()));
    if (const auto mask = static_cast<unsigned>(_mm_movemask_epi8(found)); mask != 0) {
      return begin + std::countr_zero(mask);
    }
  }
#endif
  const auto size = static_cast<std::size_t>(end - begin);
  const void* const quote = std::memchr(begin, kRcsQuote, size);
  const std::size_t searched =
      quote == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(quote) - begin);
  const void* const nul = std::memchr(begin, '\0', searched);
  return static_cast<const char*>(nul != nullptr ? nul : quote);
}

}  // namespace altium_registration
