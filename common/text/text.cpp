#include "common/text/text.h"

#include <algorithm>

namespace kestrune {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

template <class Text, class View>
Text Lowered(View text) {
  Text result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](auto c) { return LowerAscii(c); });
  return result;
}

template <class Text, class View>
Text WindowsLines(View text) {
  Text result;
  result.reserve(text.size());
  for (const auto c : text) {
    if (c == '\n') {
      result.push_back('\r');
    }
    result.push_back(c);
  }
  return result;
}

template <class View>
View Trimmed(View text, View blanks) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == View::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

void AppendUtf8(std::string& out, char32_t point) {
  const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (point < 0x80) {
    put(point);
  } else if (point < 0x800) {
    put(0xC0 | (point >> 6));
    put(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    put(0xE0 | (point >> 12));
    put(0x80 | ((point >> 6) & 0x3F));
    put(0x80 | (point & 0x3F));
  } else {
    put(0xF0 | (point >> 18));
    put(0x80 | ((point >> 12) & 0x3F));
    put(0x80 | ((point >> 6) & 0x3F));
    put(0x80 | (point & 0x3F));
  }
}

void AppendUtf16(std::wstring& out, char32_t point) {
  if (point < 0x10000) {
    out.push_back(static_cast<wchar_t>(point));
    return;
  }
  out.push_back(static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10)));
  out.push_back(static_cast<wchar_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
}

/// Holds the meaning of a character's first byte: the length in bytes, 0 for a byte that cannot
/// begin a character; the data bits; the smallest code point of that length.
struct Utf8Lead {
  std::size_t length;
  char32_t bits;
  char32_t least;
};

Utf8Lead ReadLead(unsigned char byte) {
  if (byte < 0x80) {
    return {1, byte, 0};
  }
  if (byte >= 0xC2 && byte < 0xE0) {
    return {2, byte & 0x1FU, 0x80};
  }
  if (byte >= 0xE0 && byte < 0xF0) {
    return {3, byte & 0x0FU, 0x800};
  }
  if (byte >= 0xF0 && byte < 0xF5) {
    return {4, byte & 0x07U, 0x10000};
  }
  return {0, 0, 0};
}

/// Decodes the character at `at` and advances `at` past it, or by one byte when it is malformed.
char32_t NextUtf8(std::string_view bytes, std::size_t& at) {
  const Utf8Lead lead = ReadLead(static_cast<unsigned char>(bytes[at]));
  if (lead.length == 0 || bytes.size() - at < lead.length) {
    ++at;
    return kReplacement;
  }
  char32_t point = lead.bits;
  for (std::size_t i = 1; i < lead.length; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[at + i]);
    if ((byte & 0xC0U) != 0x80) {
      ++at;
      return kReplacement;
    }
    point = (point << 6) | (byte & 0x3FU);
  }
  if (point < lead.least || point > 0x10FFFF || (point >= 0xD800 && point < 0xE000)) {
    ++at;
    return kReplacement;
  }
  at += lead.length;
  return point;
}

}  // namespace

std::string LowerAscii(std::string_view text) {
  return Lowered<std::string>(text);
}

std::wstring LowerAscii(std::wstring_view text) {
  return Lowered<std::wstring>(text);
}

std::string_view Trim(std::string_view text, std::string_view blanks) {
  return Trimmed(text, blanks);
}

std::wstring_view Trim(std::wstring_view text, std::wstring_view blanks) {
  return Trimmed(text, blanks);
}

std::string WithWindowsLineEnds(std::string_view text) {
  return WindowsLines<std::string>(text);
}

std::wstring WithWindowsLineEnds(std::wstring_view text) {
  return WindowsLines<std::wstring>(text);
}

std::string ReplaceAll(std::string_view text, std::string_view what, std::string_view with) {
  std::string result;
  std::size_t from = 0;
  for (;;) {
    const std::size_t found = text.find(what, from);
    result.append(text.substr(from, found - from));
    if (found == std::string_view::npos) {
      return result;
    }
    result.append(with);
    from = found + what.size();
  }
}

std::wstring WidenBytes(std::string_view bytes) {
  std::wstring result(bytes.size(), L'\0');
  std::transform(bytes.begin(), bytes.end(), result.begin(),
                 [](char c) { return static_cast<wchar_t>(static_cast<unsigned char>(c)); });
  return result;
}

std::wstring WideFromUtf16Le(std::string_view bytes) {
  std::wstring result;
  result.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const auto low = static_cast<unsigned char>(bytes[i]);
    const auto high = static_cast<unsigned char>(bytes[i + 1]);
    result.push_back(static_cast<wchar_t>(low | (high << 8)));
  }
  return result;
}

std::wstring WideFromUtf8(std::string_view bytes) {
  std::wstring result;
  result.reserve(bytes.size());
  for (std::size_t at = 0; at < bytes.size();) {
    AppendUtf16(result, NextUtf8(bytes, at));
  }
  return result;
}

std::string Utf8FromWide(std::wstring_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t point = static_cast<char32_t>(text[i]);
    if (point >= 0xD800 && point < 0xE000) {
      const bool paired =
          point < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000;
      point = paired ? 0x10000 + ((point - 0xD800) << 10) +
                           (static_cast<char32_t>(text[i + 1]) - 0xDC00)
                     : kReplacement;
      i += paired ? 1 : 0;
    }
    AppendUtf8(result, point);
  }
  return result;
}

std::optional<std::uint64_t> TakeDecimal(std::wstring_view& text, std::uint64_t limit) {
  if (text.empty() || !IsAsciiDigit(text.front())) {
    return std::nullopt;
  }
  std::uint64_t number = 0;
  for (; !text.empty() && IsAsciiDigit(text.front()); text.remove_prefix(1)) {
    const auto digit = static_cast<std::uint64_t>(text.front() - L'0');
    const bool fits = digit <= limit && number <= (limit - digit) / 10;
    number = fits ? number * 10 + digit : limit;
  }
  return number;
}

std::wstring Decimal(std::uint64_t value) {
  return std::to_wstring(value);
}

std::wstring PaddedDecimal(std::uint64_t value, std::size_t width) {
  const std::wstring digits = Decimal(value);
  return digits.size() < width ? std::wstring(width - digits.size(), L'0') + digits : digits;
}

}  // namespace kestrune
