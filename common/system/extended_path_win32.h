#pragma once

#include <string>
#include <string_view>

namespace kestrune {

/// The absolute path as Windows normalises it: "..", "/" and trailing dots resolved. Empty when
/// Windows refuses the text.
std::wstring FullPath(const std::wstring& path);

/// A path in the form that lifts the 260-character limit ("\\?\", "\\?\UNC\"). Only for calls to
/// Windows: it never appears in a text, a log line, a command line or the clipboard.
class ExtendedPath {
 public:
  ExtendedPath() = default;
  /// Makes the path absolute first. An empty path stays empty, and one that Windows refuses to make
  /// absolute stays as it is.
  explicit ExtendedPath(const std::wstring& path);

  [[nodiscard]] const std::wstring& Text() const noexcept { return text_; }
  /// For the calls of Windows.
  [[nodiscard]] const wchar_t* Get() const noexcept { return text_.c_str(); }

  /// The path as people write it, for logs and messages.
  [[nodiscard]] std::wstring Shown() const;

  /// The last component.
  [[nodiscard]] std::wstring_view Name() const;
  /// Everything before the last component.
  [[nodiscard]] ExtendedPath Parent() const;
  /// The entry `name` (or the search pattern) in this directory.
  [[nodiscard]] ExtendedPath Entry(std::wstring_view name) const;
  /// This path with `ending` appended to its last component.
  [[nodiscard]] ExtendedPath WithEnding(std::wstring_view ending) const;

  [[nodiscard]] bool operator==(const ExtendedPath&) const = default;

 private:
  std::wstring text_;
};

}  // namespace kestrune
