#pragma once

#include <string>
#include <string_view>

namespace kestrune {

/// Returns the absolute path as Windows normalises it: "..", "/" and trailing dots resolved.
/// Returns an empty path when Windows cannot normalise it.
std::wstring FullPath(const std::wstring& path);

/// Holds a path in the form without the 260-character limit ("\\?\", "\\?\UNC\"). Used only in
/// calls to Windows; it never appears in a message, a log entry, a command line or the clipboard.
class ExtendedPath {
 public:
  ExtendedPath() = default;
  /// Converts an absolute or relative path. An empty path stays empty; one that Windows cannot make
  /// absolute is kept as it is.
  explicit ExtendedPath(const std::wstring& path);

  [[nodiscard]] const std::wstring& Text() const noexcept { return text_; }
  /// Returns the text for calls to Windows.
  [[nodiscard]] const wchar_t* Get() const noexcept { return text_.c_str(); }

  /// Returns the path without the prefix, for logs and messages.
  [[nodiscard]] std::wstring Shown() const;

  /// Returns the last component.
  [[nodiscard]] std::wstring_view Name() const;
  /// Returns everything before the last component.
  [[nodiscard]] ExtendedPath Parent() const;
  /// Returns the entry `name` (or the search pattern) in this directory.
  [[nodiscard]] ExtendedPath Entry(std::wstring_view name) const;
  /// Returns this path with `ending` appended to its last component.
  [[nodiscard]] ExtendedPath WithEnding(std::wstring_view ending) const;

  [[nodiscard]] bool operator==(const ExtendedPath&) const = default;

 private:
  std::wstring text_;
};

}  // namespace kestrune
