#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace kestrune {

/// Returns text in the code page (the system's ANSI code page by default) as UTF-16. Bytes that are
/// invalid there become the system's replacement character.
std::wstring WideFromAnsi(std::string_view bytes, UINT code_page = CP_ACP);

/// Converts UTF-16 to the code page. Returns false, with `bytes` empty, when a character has no
/// exact equivalent there (best fits are not accepted) or the text cannot be converted.
///
/// The code page is a parameter so that UTF-8 as the system's ANSI code page can be tested: Windows
/// reports a lossy conversion in another way there.
[[nodiscard]] bool AnsiFromWide(std::wstring_view text, std::string& bytes,
                                UINT code_page = CP_ACP);

/// Converts UTF-16 to the code page, with replacement characters where a character has no
/// equivalent.
std::string AnsiFromWideLossy(std::wstring_view text, UINT code_page = CP_ACP);

/// Returns whether the byte begins a character of two bytes in the code page.
[[nodiscard]] bool IsLeadByte(char byte, UINT code_page = CP_ACP);

/// Returns whether the text is unchanged after a conversion to the system's ANSI code page and
/// back. The conversion is the default one, which the host uses.
[[nodiscard]] bool SurvivesAnsiRoundTrip(std::wstring_view text);

}  // namespace kestrune
