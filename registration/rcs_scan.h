#pragma once

#include <bit>
#include <cstddef>
#include <cstring>

#if defined(__SSE2__) || (defined(_MSC_VER) && (defined(_M_X64) || _M_IX86_FP >= 2))
#define KESTRUNE_RCS_SCAN_SSE2 1
#include <emmintrin.h>
#endif

namespace altium_registration {

/// Searches in a customization file's bytes. Tokens are a few bytes long, so what counts is how
/// fast a search begins: sixteen bytes are looked at in one go, where the processor can (all that
/// Windows 10 runs on do), and nothing behind the end is ever read.

inline constexpr char kRcsQuote = '\'';

constexpr bool IsRcsBlank(char byte) {
  return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n';
}

constexpr bool EndsBareToken(char byte) {
  return byte == '=' || byte == kRcsQuote || byte == '\0' || IsRcsBlank(byte);
}

#ifdef KESTRUNE_RCS_SCAN_SSE2
inline constexpr std::ptrdiff_t kRcsScanBlock = sizeof(__m128i);

inline __m128i LoadRcsBlock(const char* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

inline __m128i EqualInBlock(__m128i block, char byte) {
  return _mm_cmpeq_epi8(block, _mm_set1_epi8(byte));
}

/// One bit for each byte of the comparison that holds, the first byte's lowest.
inline unsigned BlockMask(__m128i comparison) {
  return static_cast<unsigned>(_mm_movemask_epi8(comparison));
}
#endif

/// The first byte in [begin, end) that ends a bare token (NUL among them), or `end`.
inline const char* FindBareTokenEnd(const char* begin, const char* end) {
#ifdef KESTRUNE_RCS_SCAN_SSE2
  for (; end - begin >= kRcsScanBlock; begin += kRcsScanBlock) {
    const __m128i block = LoadRcsBlock(begin);
    const __m128i blanks =
        _mm_or_si128(_mm_or_si128(EqualInBlock(block, ' '), EqualInBlock(block, '\t')),
                     _mm_or_si128(EqualInBlock(block, '\r'), EqualInBlock(block, '\n')));
    const __m128i marks =
        _mm_or_si128(EqualInBlock(block, '\0'),
                     _mm_or_si128(EqualInBlock(block, '='), EqualInBlock(block, kRcsQuote)));
    if (const unsigned mask = BlockMask(_mm_or_si128(blanks, marks)); mask != 0) {
      return begin + std::countr_zero(mask);
    }
  }
#endif
  while (begin != end && !EndsBareToken(*begin)) {
    ++begin;
  }
  return begin;
}

/// The first quote or NUL in [begin, end), or null. What is not found soon is left to the library,
/// which is faster on long stretches.
inline const char* FindRcsQuoteOrNul(const char* begin, const char* end) {
#ifdef KESTRUNE_RCS_SCAN_SSE2
  for (int count = 0; count < 4 && end - begin >= kRcsScanBlock; ++count) {
    const __m128i block = LoadRcsBlock(begin);
    const unsigned mask =
        BlockMask(_mm_or_si128(EqualInBlock(block, kRcsQuote), EqualInBlock(block, '\0')));
    if (mask != 0) {
      return begin + std::countr_zero(mask);
    }
    begin += kRcsScanBlock;
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
