#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrune {

/// The argument line of the application that receives an export: the user's template, filled in,
/// with this program's identity and the board's spacing added.

/// `text` with the placeholders replaced that stand for the archive at `zip_path`:
/// "%ODBPP%" and "%ODBPP_ZIP%" its full path, "%ODBPP_DIR%" its folder (without a trailing
/// separator except at a drive root), "%ODBPP_NAME%" its name, "%BRIDGE_CAD%" and
/// "%BRIDGE_VERSION%" this program's identity.
///
/// The placeholders are replaced one kind after the other in this order, with case, and only in
/// what the user wrote: a path that happens to hold a placeholder stays as it is. No quotes are
/// added.
std::wstring ReplacePlaceholders(std::wstring_view text, std::wstring_view zip_path);

/// Whether `token` (ASCII) stands in the line at its start or behind a blank (space, tab, line
/// feed, vertical tab, form feed, carriage return), without regard to case.
bool HasToken(std::wstring_view line, std::wstring_view token);

/// The line with the tokens -bridge:"AltiumDesigner" and -bridge-version:"0.2.3" in front, each
/// only when the line has none of its kind.
std::wstring WithIdentityTokens(const std::wstring& line);

/// The line with -space:<value>mil behind it, unless it has such a token. `space` counts
/// ten-thousandths of a mil; 0 and less add nothing.
std::wstring WithSpaceToken(const std::wstring& line, std::optional<std::int64_t> space);

/// The whole road from the user's template to the finished line.
std::wstring BuildArgumentLine(std::wstring_view text, std::wstring_view zip_path,
                               std::optional<std::int64_t> space);

/// One argument so that Windows programs, splitting their command line, get it back unchanged. An
/// argument without space, tab and double quote stays as it is, and so does an empty one.
std::wstring QuoteCommandLineArgument(std::wstring_view argument);

}  // namespace kestrune
