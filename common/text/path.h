#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace kestrune {

// Handles Windows paths as text, without access to the file system. Both "\" and "/" are
// separators.

constexpr bool IsPathSeparator(wchar_t c) {
  return c == L'\\' || c == L'/';
}

/// Returns `directory` and `name` with exactly one separator between them.
std::wstring JoinPath(std::wstring_view directory, std::wstring_view name);

/// Returns the parts in their order, one separator between each two.
std::wstring JoinPath(std::initializer_list<std::wstring_view> parts);

/// Returns the last component; empty for a path that ends in a separator.
std::wstring_view FileName(std::wstring_view path);

/// Returns the file name without its last extension; a name whose only dot is its first character
/// (and "..") has no extension.
std::wstring_view FileStem(std::wstring_view path);

/// Returns everything before the last component, without a trailing separator except at a root
/// ("C:\", "\\?\C:\"). A root, such as a network share, is its own parent.
std::wstring_view ParentPath(std::wstring_view path);

/// Returns whether `path` is `root` or lies below it: every component of the root equals the
/// corresponding component of the path, ignoring case. Both must be full paths.
bool LiesInside(std::wstring_view path, std::wstring_view root);

}  // namespace kestrune
