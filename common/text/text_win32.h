#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace kestrune {

/// Converts bytes in the code page (by default the system's ANSI code page) to UTF-16. Invalid
/// bytes become the system's replacement character.
std::wstring WideFromAnsi(std::string_view bytes, UINT code_page = CP_ACP);

/// Converts UTF-16 to the code page. Returns false, with `bytes` empty, when a character has no
/// exact equivalent in it (best fits are not accepted) or the conversion fails.
///
/// The code page is a parameter for tests with UTF-8, for which Windows reports a lossy conversion
/// in another way.
[[nodiscard]] bool AnsiFromWide(std::wstring_view text, std::string& bytes,
                                UINT code_page = CP_ACP);

/// Converts UTF-16 to the code page. A character without an exact equivalent becomes the best fit
/// or the code page's replacement character. Returns an empty text when the conversion fails.
std::string AnsiFromWideLossy(std::wstring_view text, UINT code_page = CP_ACP);

/// Returns whether the byte begins a character of two bytes in the code page.
[[nodiscard]] bool IsLeadByte(char byte, UINT code_page = CP_ACP);

/// Returns whether the text is unchanged after AnsiFromWideLossy and WideFromAnsi, the conversions
/// that the host makes too; false for an empty text.
[[nodiscard]] bool SurvivesAnsiRoundTrip(std::wstring_view text);

}  // namespace kestrune
