#pragma once

#include <cstdint>
#include <string>

namespace kestrune {

/// What a step that could not be done throws inside a layer; the layer's entry turns it into its
/// error text. Deliberately not a std::exception: no text in some other encoding can come along.
struct Failure {
  /// The step or sentence that stands in logs and messages, UTF-16.
  std::wstring text;
  /// The Windows error as the failing call gave it; 0 when no call failed.
  std::uint32_t code = 0;
  /// The path or name that the step was about; empty where there is none.
  std::wstring subject = {};
};

/// "Error=<text> GetLastError=<code>", as log entries show it.
std::wstring ErrorFields(const Failure& failure);

/// " Path=<subject>", the last field of a log entry, since a path may hold blanks; empty where
/// there is none.
std::wstring PathField(const Failure& failure);

/// What stands in logs and messages when memory ran out.
inline constexpr wchar_t kNotEnoughMemory[] = L"Not enough memory.";

}  // namespace kestrune
