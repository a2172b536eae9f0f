#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace kestrune {

/// Text in the code page (the system's ANSI code page by default) as UTF-16. Bytes that mean
/// nothing there come out as the system's replacement character.
std::wstring WideFromAnsi(std::string_view bytes, UINT code_page = CP_ACP);

/// UTF-16 as text in the code page. False when a character has no exact equivalent there (best
/// fits are not accepted) or the text cannot be converted; `bytes` is then empty.
///
/// A system may have UTF-8 as its ANSI code page; the two ways in which Windows reports a loss
/// exclude each other there, which is why the code page can be given.
[[nodiscard]] bool AnsiFromWide(std::wstring_view text, std::string& bytes,
                                UINT code_page = CP_ACP);

/// UTF-16 as text in the code page, with replacement characters where it cannot hold one.
std::string AnsiFromWideLossy(std::wstring_view text, UINT code_page = CP_ACP);

/// Returns whether the byte begins a character of two bytes in the code page.
[[nodiscard]] bool IsLeadByte(char byte, UINT code_page = CP_ACP);

/// Whether the text comes back unit for unit after a conversion to the system's ANSI code page and
/// back. The conversion is the plain one that the host itself would make.
[[nodiscard]] bool SurvivesAnsiRoundTrip(std::wstring_view text);

}  // namespace kestrune
