#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrune {

/// Describes a failed step. It is thrown within a layer, and the layer's public functions convert
/// it to their error text. Deliberately not a std::exception, whose text has an unknown encoding.
struct Failure {
  /// The failed step, or a whole sentence, for logs and messages.
  std::wstring text;
  /// The Windows error code of the failed call; 0 when no call failed.
  std::uint32_t code = 0;
  /// The path or name that the step was applied to; empty where there is none.
  std::wstring subject = {};
};

/// Precedes the Windows error code in a log entry.
inline constexpr std::wstring_view kErrorCodeField = L"GetLastError=";

/// Returns " GetLastError=<code>", a field of a log entry.
std::wstring CodeField(const Failure& failure);

/// Returns "Error=<text> GetLastError=<code>", the fields of a log entry.
std::wstring ErrorFields(const Failure& failure);

/// Returns " Path=<subject>", or an empty text without a subject. It is the last field of a log
/// entry, since a path may contain blanks.
std::wstring PathField(const Failure& failure);

/// The text for logs and messages when memory ran out.
inline constexpr wchar_t kNotEnoughMemory[] = L"Not enough memory.";

}  // namespace kestrune
