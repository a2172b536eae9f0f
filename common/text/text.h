#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrune {

/// ASCII-only lower case; every other unit, also a non-ASCII letter, stays as it is.
constexpr char LowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
constexpr wchar_t LowerAscii(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}
std::string LowerAscii(std::string_view text);
std::wstring LowerAscii(std::wstring_view text);

constexpr bool IsAsciiDigit(char c) {
  return c >= '0' && c <= '9';
}
constexpr bool IsAsciiDigit(wchar_t c) {
  return c >= L'0' && c <= L'9';
}
constexpr bool IsAsciiAlphanumeric(char c) {
  return IsAsciiDigit(c) || (LowerAscii(c) >= 'a' && LowerAscii(c) <= 'z');
}

/// Space, tab, line feed, vertical tab, form feed and carriage return.
constexpr bool IsAsciiBlank(wchar_t c) {
  return c == L' ' || (c >= L'\t' && c <= L'\r');
}

/// `text` without the leading and trailing characters that stand in `blanks`.
std::string_view Trim(std::string_view text, std::string_view blanks);
std::wstring_view Trim(std::wstring_view text, std::wstring_view blanks);

/// Each line feed becomes carriage return and line feed: what text mode does on Windows.
std::string WithWindowsLineEnds(std::string_view text);
std::wstring WithWindowsLineEnds(std::wstring_view text);

/// Replaces every occurrence of `what` (not empty) from left to right; the search goes on behind
/// the inserted text, so what was inserted is never searched.
std::string ReplaceAll(std::string_view text, std::string_view what, std::string_view with);

/// One wide unit for each byte; for 8-bit text whose encoding is unknown.
std::wstring WidenBytes(std::string_view bytes);

/// UTF-16 units from UTF-16LE bytes. An odd last byte is dropped.
std::wstring WideFromUtf16Le(std::string_view bytes);

/// UTF-16 units from UTF-8; malformed bytes become U+FFFD.
std::wstring WideFromUtf8(std::string_view bytes);

/// UTF-8 from UTF-16 units; an unpaired surrogate becomes U+FFFD.
std::string Utf8FromWide(std::wstring_view text);

/// Takes the decimal digits off the front of `text`. Returns their number, or `limit` for a larger
/// one; nothing, with `text` as it was, when there is no digit.
std::optional<std::uint64_t> TakeDecimal(std::wstring_view& text, std::uint64_t limit);

/// Plain decimal.
std::wstring Decimal(std::uint64_t value);

/// Decimal with leading zeros up to `width` digits; a longer number keeps all of its own.
std::wstring PaddedDecimal(std::uint64_t value, std::size_t width);

}  // namespace kestrune
