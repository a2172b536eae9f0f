#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrune {

// Builds the argument line of the application that receives an export: the user's template with
// its placeholders replaced, plus this program's identity and the board's spacing.

/// Returns `text` with the placeholders of the archive at `zip_path` replaced: "%ODBPP%" and
/// "%ODBPP_ZIP%" its full path, "%ODBPP_DIR%" its folder (without a trailing separator except at a
/// drive root), "%ODBPP_NAME%" its name, "%BRIDGE_CAD%" and "%BRIDGE_VERSION%" this program's
/// identity.
///
/// The placeholders are replaced one kind after the other in this order; matching is
/// case-sensitive. A placeholder in an inserted path is not replaced. No quotes are added.
std::wstring ReplacePlaceholders(std::wstring_view text, std::wstring_view zip_path);

/// Returns whether `token` (ASCII, in lower case) occurs at the start of the line or after white
/// space (space, tab, line feed, vertical tab, form feed, carriage return), ignoring case.
bool HasToken(std::wstring_view line, std::wstring_view token);

/// Returns the line with the tokens -bridge:"AltiumDesigner" and -bridge-version:"0.2.3" prepended,
/// each only when the line does not have that token yet.
std::wstring WithIdentityTokens(const std::wstring& line);

/// Returns the line with -space:<value>mil appended, unless it already has such a token. `space` is
/// in ten-thousandths of a mil; nothing is appended for 0 or less.
std::wstring WithSpaceToken(const std::wstring& line, std::optional<std::int64_t> space);

/// Returns the complete argument line for the user's template.
std::wstring BuildArgumentLine(std::wstring_view text, std::wstring_view zip_path,
                               std::optional<std::int64_t> space);

/// Returns the argument quoted so that a Windows program that splits its command line gets it back
/// unchanged. An empty argument, and one without space, tab and double quote, is returned as it is.
std::wstring QuoteCommandLineArgument(std::wstring_view argument);

}  // namespace kestrune
