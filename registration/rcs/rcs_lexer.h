#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "common/failure/failure.h"
#include "registration/rcs/rcs_text.h"

#if defined(__SSE2__) || (defined(_MSC_VER) && (defined(_M_X64) || _M_IX86_FP >= 2))
#define KESTRUNE_RCS_SSE2 1
#include <emmintrin.h>
#endif

namespace altium_registration {

/// The failure's text for a file above the size limit, or with a null byte as in UTF-16 files.
inline constexpr const wchar_t* kUnsupportedRcs = L"Unsupported RCS size/encoding.";

/// Reads the tokens of a customization file one after the other. Stores none of them, so that a
/// file of eight million one-byte tokens needs no more memory than any other.
class RcsLexer {
 public:
  /// `raw` is the whole file, of at most kMaxRcsBytes; a UTF-8 byte order mark at its start is
  /// skipped. It must outlive the lexer.
  explicit RcsLexer(std::string_view raw)
      : raw_(raw.data()), end_(raw.data() + raw.size()), position_(raw.data()) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    SkipTo(position_ + (raw.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0));
  }

  bool AtEnd() const { return position_ == end_; }

  /// Consumes the next token if it is an unquoted "=". Returns whether it was.
  bool TakeEquals() {
    if (position_ == end_ || *position_ != '=') {
      return false;
    }
    SkipTo(position_ + 1);
    return true;
  }

  /// Consumes and returns the next token. Must not be called at the end. Throws kestrune::Failure
  /// with "Unclosed RCS quote." or kUnsupportedRcs for a null byte, which is detected here to avoid
  /// a second pass over the file.
  RcsSpan Next() {
    const char* const start = position_;
    if (*start == kRcsQuote) {
      return QuotedToken(start + 1);
    }
    const char* end = FindWordEnd(start);
    if (end == start) {
      // Blanks and quotes are handled above, so this is an equals sign or a null byte.
      RequireNoNul(end);
      ++end;
    }
    SkipTo(end);
    return Span(start, end, false, false);
  }

 private:
  /// The classes of a byte outside quotes; a byte can have both.
  static constexpr std::uint8_t kBlank = 1;
  static constexpr std::uint8_t kEndsWord = 2;

  static constexpr std::array<std::uint8_t, 256> kMeanings = [] {
    std::array<std::uint8_t, 256> meanings{};
    meanings[' '] = meanings['\t'] = meanings['\r'] = meanings['\n'] = kBlank | kEndsWord;
    meanings['='] = meanings[kRcsQuote] = meanings['\0'] = kEndsWord;
    return meanings;
  }();

  static bool Is(std::uint8_t meaning, char byte) {
    return (kMeanings[static_cast<unsigned char>(byte)] & meaning) != 0;
  }

  RcsSpan QuotedToken(const char* start) {
    bool doubled = false;
    for (const char* close = start;; close += 2) {
      close = FindQuoteOrNul(close);
      if (close == nullptr) {
        throw kestrune::Failure{L"Unclosed RCS quote."};
      }
      RequireNoNul(close);
      if (close + 1 == end_ || close[1] != kRcsQuote) {
        SkipTo(close + 1);
        return Span(start, close, true, doubled);
      }
      doubled = true;
    }
  }

  /// Returns the first byte from `from` on that ends a word, or the end. Checks for the file's end
  /// only once in four bytes.
  const char* FindWordEnd(const char* from) const {
    for (; end_ - from >= 4; from += 4) {
      for (int place = 0; place < 4; ++place) {
        if (Is(kEndsWord, from[place])) {
          return from + place;
        }
      }
    }
    while (from != end_ && !Is(kEndsWord, *from)) {
      ++from;
    }
    return from;
  }

  /// Returns the first quote or null byte from `from` on, or nullptr. Values are longer than words,
  /// so sixteen bytes are checked at once; longer searches use the library, which is faster for
  /// them.
  const char* FindQuoteOrNul(const char* from) const {
#ifdef KESTRUNE_RCS_SSE2
    constexpr std::ptrdiff_t kBlock = sizeof(__m128i);
    for (int count = 0; count < 4 && end_ - from >= kBlock; ++count, from += kBlock) {
      const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
      const __m128i found = _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8(kRcsQuote)),
                                         _mm_cmpeq_epi8(block, _mm_setzero_si128()));
      if (const auto mask = static_cast<unsigned>(_mm_movemask_epi8(found)); mask != 0) {
        return from + std::countr_zero(mask);
      }
    }
#endif
    const auto size = static_cast<std::size_t>(end_ - from);
    const void* const quote = std::memchr(from, kRcsQuote, size);
    const std::size_t searched =
        quote == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(quote) - from);
    const void* const nul = std::memchr(from, '\0', searched);
    return static_cast<const char*>(nul != nullptr ? nul : quote);
  }

  static void RequireNoNul(const char* place) {
    if (*place == '\0') {
      throw kestrune::Failure{kUnsupportedRcs};
    }
  }

  /// Moves to `position` and past the blanks there.
  void SkipTo(const char* position) {
    while (position != end_ && Is(kBlank, *position)) {
      ++position;
    }
    position_ = position;
  }

  RcsSpan Span(const char* start, const char* end, bool quoted, bool doubled) const {
    return {static_cast<std::uint32_t>(start - raw_), static_cast<std::uint32_t>(end - start),
            quoted, doubled};
  }

  const char* raw_;
  const char* end_;
  const char* position_;
};

}  // namespace altium_registration
