#pragma once

#include <cstdint>
#include <string_view>

#include "common/failure.h"
#include "registration/rcs/rcs_scan.h"
#include "registration/rcs/rcs_text.h"

namespace altium_registration {

/// The failure's text for a file above the size limit, or with a NUL byte as UTF-16 files have
/// them.
inline constexpr const wchar_t* kUnsupportedRcs = L"Unsupported RCS size/encoding.";

/// Reads the tokens of a customization file one after the other. None is kept: a file of eight
/// million one-byte tokens costs no more memory than any other.
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

  /// Whether the next token is an unquoted "=", which is then taken.
  bool TakeEquals() {
    if (position_ == end_ || *position_ != '=') {
      return false;
    }
    SkipTo(position_ + 1);
    return true;
  }

  /// Takes the next token. Must not be called at the end. Throws kestrune::Failure with "Unclosed
  /// RCS quote." or kUnsupportedRcs (a NUL byte).
  RcsSpan Next() {
    const char* const start = position_;
    if (*start == kRcsQuote) {
      return QuotedToken(start + 1);
    }
    const char* end = FindBareTokenEnd(start, end_);
    if (end == start) {
      // A token cannot begin with a blank or a quote here: an equals sign, or a NUL.
      if (*end == '\0') {
        throw kestrune::Failure{kUnsupportedRcs};
      }
      ++end;
    }
    SkipTo(end);
    return Span(start, end, false, false);
  }

 private:
  RcsSpan QuotedToken(const char* start) {
    bool doubled = false;
    for (const char* close = start;; close += 2) {
      close = FindRcsQuoteOrNul(close, end_);
      if (close == nullptr) {
        throw kestrune::Failure{L"Unclosed RCS quote."};
      }
      if (*close == '\0') {
        throw kestrune::Failure{kUnsupportedRcs};
      }
      if (close + 1 == end_ || close[1] != kRcsQuote) {
        SkipTo(close + 1);
        return Span(start, close, true, doubled);
      }
      doubled = true;
    }
  }

  /// Goes on behind the blanks that begin here.
  void SkipTo(const char* position) { position_ = SkipRcsBlanks(position, end_); }

  RcsSpan Span(const char* start, const char* end, bool quoted, bool doubled) const {
    return {static_cast<std::uint32_t>(start - raw_), static_cast<std::uint32_t>(end - start),
            quoted, doubled};
  }

  const char* raw_;
  const char* end_;
  const char* position_;
};

}  // namespace altium_registration
