#include "common/system/extended_path_win32.h"

#include <windows.h>

#include "common/text/path.h"

namespace kestrune {
namespace {

bool IsExtended(std::wstring_view path) {
  return path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\");
}

std::wstring Extend(const std::wstring& path) {
  if (IsExtended(path)) {
    return path;
  }
  std::wstring full = FullPath(path);
  if (full.empty()) {
    return path;
  }
  if (IsExtended(full)) {
    return full;
  }
  return full.starts_with(L"\\\\") ? L"\\\\?\\UNC\\" + full.substr(2) : L"\\\\?\\" + full;
}

}  // namespace

std::wstring FullPath(const std::wstring& path) {
  std::wstring full;
  for (DWORD size = MAX_PATH; size > full.size();) {
    full.resize(size);
    size = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (size < full.size()) {
      full.resize(size);
      return full;
    }
  }
  return {};
}

ExtendedPath::ExtendedPath(const std::wstring& path) : text_(Extend(path)) {}

std::wstring ExtendedPath::Shown() const {
  constexpr std::wstring_view share = L"\\\\?\\UNC\\";
  constexpr std::wstring_view drive = L"\\\\?\\";
  if (text_.starts_with(share)) {
    return L"\\\\" + text_.substr(share.size());
  }
  return text_.starts_with(drive) ? text_.substr(drive.size()) : text_;
}

std::wstring_view ExtendedPath::Name() const {
  return FileName(text_);
}

ExtendedPath ExtendedPath::Parent() const {
  ExtendedPath parent;
  parent.text_ = ParentPath(text_);
  return parent;
}

ExtendedPath ExtendedPath::Entry(std::wstring_view name) const {
  ExtendedPath entry;
  entry.text_ = JoinPath(text_, name);
  return entry;
}

ExtendedPath ExtendedPath::WithEnding(std::wstring_view ending) const {
  ExtendedPath path = *this;
  path.text_ += ending;
  return path;
}

}  // namespace kestrune
