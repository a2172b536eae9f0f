#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
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
  /// `text` is the whole file, of at most kMaxRcsBytes, and must outlive the lexer. A UTF-8 byte
  /// order mark at its start is skipped.
  explicit RcsLexer(const std::string& text) : RcsLexer(text, 0) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    SkipTo(raw_ + (text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0));
  }
  /// Starts at the token at `start`.
  RcsLexer(const std::string& text, std::size_t start)
      : raw_(text.c_str()), end_(raw_ + text.size()), position_(raw_ + start) {}

  bool AtEnd() const { return position_ == end_; }
  /// Returns the offset of the next token.
  std::uint32_t Position() const { return static_cast<std::uint32_t>(position_ - raw_); }
  /// Moves to the first token from `offset` on. That must not be inside a token.
  void GoTo(std::size_t offset) { SkipTo(raw_ + offset); }

  /// Consumes the next token if it is an unquoted "=". Returns whether it was.
  bool TakeEquals() {
    if (*position_ != '=') {
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
    const char* const end = WordEnd(start);
    SkipTo(end);
    return Span(start, end, false, false);
  }

  /// Consumes the next token like Next, without returning it.
  void Skip() {
    if (*position_ != kRcsQuote) {
      SkipTo(WordEnd(position_));
      return;
    }
    SkipTo(ClosingQuote(FindQuote(position_ + 1)) + 1);
  }

 private:
  /// The classes of a byte outside quotes; a byte can have both. The null byte after the text is
  /// not a blank and ends a word, so that no loop has to check for the text's end.
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
    const char* const first = FindQuote(start);
    const char* const close = ClosingQuote(first);
    SkipTo(close + 1);
    return Span(start, close, true, close != first);
  }

  /// Returns the end of the word that begins here.
  static const char* WordEnd(const char* start) {
    const char* end = start;
    while (!Is(kEndsWord, *end)) {
      ++end;
    }
    if (end != start) {
      return end;
    }
    // Blanks and quotes are handled elsewhere, so this is an equals sign or a null byte.
    if (*end == '\0') {
      throw kestrune::Failure{kUnsupportedRcs};
    }
    return end + 1;
  }

  /// Returns the first quote from `from` on. Values are longer than words, so sixteen bytes are
  /// checked at once.
  const char* FindQuote(const char* from) const {
#ifdef KESTRUNE_RCS_SSE2
    constexpr std::ptrdiff_t kBlock = sizeof(__m128i);
    for (; end_ - from >= kBlock; from += kBlock) {
      const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
      const __m128i found = _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8(kRcsQuote)),
                                         _mm_cmpeq_epi8(block, _mm_setzero_si128()));
      if (const auto mask = static_cast<unsigned>(_mm_movemask_epi8(found)); mask != 0) {
        return RequireQuote(from + std::countr_zero(mask));
      }
    }
#endif
    while (*from != kRcsQuote && *from != '\0') {
      ++from;
    }
    return RequireQuote(from);
  }

  /// Returns the closing quote of the text whose first inner or closing quote is `first`.
  const char* ClosingQuote(const char* first) const {
    return first[1] == kRcsQuote ? AfterDoubledQuotes(first) : first;
  }
  /// Returns the closing quote after the doubled quote at `pair`. Checks the next byte before it
  /// searches, since doubled quotes often follow each other.
  const char* AfterDoubledQuotes(const char* pair) const {
    do {
      pair = pair[2] == kRcsQuote ? pair + 2 : FindQuote(pair + 2);
    } while (pair[1] == kRcsQuote);
    return pair;
  }

  const char* RequireQuote(const char* found) const {
    if (*found != kRcsQuote) {
      throw kestrune::Failure{found == end_ ? L"Unclosed RCS quote." : kUnsupportedRcs};
    }
    return found;
  }

  /// Moves to `position` and past the blanks there.
  void SkipTo(const char* position) {
    while (Is(kBlank, *position)) {
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
