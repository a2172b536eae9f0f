#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace kestrune {

/// Windows paths as text: nothing here asks the file system. Both "\" and "/" separate.

constexpr bool IsPathSeparator(wchar_t c) {
  return c == L'\\' || c == L'/';
}

/// `directory` and `name` with exactly one separator between them.
std::wstring JoinPath(std::wstring_view directory, std::wstring_view name);

/// The parts in their order, one separator between each two.
std::wstring JoinPath(std::initializer_list<std::wstring_view> parts);

/// The last component; empty for a path that ends in a separator.
std::wstring_view FileName(std::wstring_view path);

/// The file name without its last extension; a name whose only dot is its first character (and
/// "..") has no extension.
std::wstring_view FileStem(std::wstring_view path);

/// Everything before the last component, without a trailing separator except at a root ("C:\",
/// "\\?\C:\"). A root, a network share among them, is its
/// own parent.
std::wstring_view ParentPath(std::wstring_view path);

/// Whether `path` is `root` or lies below it: every component of the root equals the path's
/// component in the same place, without regard to case. Both must be full paths.
bool LiesInside(std::wstring_view path, std::wstring_view root);

}  // namespace kestrune
