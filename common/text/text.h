#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrune {

/// Returns an ASCII letter in lower case, and any other unit unchanged.
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

/// Returns whether `c` is a space, tab, line feed, vertical tab, form feed or carriage return.
constexpr bool IsAsciiBlank(wchar_t c) {
  return c == L' ' || (c >= L'\t' && c <= L'\r');
}

/// Returns `text` without leading and trailing characters of `blanks`.
std::string_view Trim(std::string_view text, std::string_view blanks);
std::wstring_view Trim(std::wstring_view text, std::wstring_view blanks);

/// Returns `text` with each line feed replaced by carriage return and line feed, as text mode on
/// Windows does.
std::string WithWindowsLineEnds(std::string_view text);
std::wstring WithWindowsLineEnds(std::wstring_view text);

/// Returns `text` with every occurrence of `what` (not empty) replaced, from left to right. The
/// inserted text is not searched.
std::string ReplaceAll(std::string_view text, std::string_view what, std::string_view with);

/// Returns one UTF-16 unit for each byte, for 8-bit text whose encoding is unknown.
std::wstring WidenBytes(std::string_view bytes);

/// Returns UTF-16 units from UTF-16LE bytes. An odd last byte is dropped.
std::wstring WideFromUtf16Le(std::string_view bytes);

/// Returns UTF-16 units from UTF-8; malformed bytes become U+FFFD.
std::wstring WideFromUtf8(std::string_view bytes);

/// Returns UTF-8 from UTF-16 units; an unpaired surrogate becomes U+FFFD.
std::string Utf8FromWide(std::wstring_view text);

/// Removes the decimal digits from the front of `text` and returns their number, or `limit` for a
/// larger one. Returns nothing, with `text` unchanged, when there is no digit.
std::optional<std::uint64_t> TakeDecimal(std::wstring_view& text, std::uint64_t limit);

/// Returns the number in decimal.
std::wstring Decimal(std::uint64_t value);

/// Returns the number in decimal, with leading zeros to at least `width` digits.
std::wstring PaddedDecimal(std::uint64_t value, std::size_t width);

}  // namespace kestrune
