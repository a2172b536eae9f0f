#include "common/text/path.h"

#include <algorithm>
#include <vector>

#include "common/text/ordinal.h"

namespace kestrune {
namespace {

std::size_t LastSeparator(std::wstring_view path) {
  return path.find_last_of(L"\\/");
}

bool HasSeparator(std::wstring_view path, std::size_t place) {
  return place < path.size() && IsPathSeparator(path[place]);
}

/// Returns the end of the component that begins at `start`.
std::size_t ComponentEnd(std::wstring_view path, std::size_t start) {
  return std::min(path.find_first_of(L"\\/", start), path.size());
}

/// Returns the end of the share whose server name begins at `start`.
std::size_t ShareEnd(std::wstring_view path, std::size_t start) {
  const std::size_t server_end = ComponentEnd(path, start);
  return HasSeparator(path, server_end) ? ComponentEnd(path, server_end + 1) : server_end;
}

/// Returns the length of the root, which every parent path keeps: "C:", "C:\", a leading separator,
/// "\\server\share", or the same after "\\?\".
std::size_t RootLength(std::wstring_view path) {
  constexpr std::size_t kPrefix = 4;  // "\\?\"
  const bool is_network = HasSeparator(path, 0) && HasSeparator(path, 1);
  const bool is_device =
      is_network && HasSeparator(path, 3) && (path[2] == L'?' || path[2] == L'.');
  if (is_device && EqualIgnoringCase(path.substr(kPrefix, 3), L"UNC") && HasSeparator(path, 7)) {
    return ShareEnd(path, kPrefix + 4);
  }
  if (is_network && !is_device) {
    return ShareEnd(path, 2);
  }
  const bool has_drive = path.size() >= 2 && path[1] == L':' && !IsPathSeparator(path[0]);
  const std::size_t volume = is_device ? ComponentEnd(path, kPrefix) : has_drive ? 2 : 0;
  return volume + (HasSeparator(path, volume) ? 1 : 0);
}

/// Returns the drive or server, then the directories and the name; separators and empty components
/// are dropped.
std::vector<std::wstring_view> PathComponents(std::wstring_view path) {
  std::vector<std::wstring_view> components;
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t end = std::min(path.find_first_of(L"\\/", at), path.size());
    if (end > at) {
      components.push_back(path.substr(at, end - at));
    }
    at = end + 1;
  }
  return components;
}

}  // namespace

std::wstring JoinPath(std::wstring_view directory, std::wstring_view name) {
  std::wstring result(directory);
  if (!result.empty() && !IsPathSeparator(result.back())) {
    result.push_back(L'\\');
  }
  return result.append(name);
}

std::wstring JoinPath(std::initializer_list<std::wstring_view> parts) {
  std::wstring result;
  for (const std::wstring_view part : parts) {
    result = JoinPath(result, part);
  }
  return result;
}

std::wstring_view FileName(std::wstring_view path) {
  const std::size_t separator = LastSeparator(path);
  const std::size_t start = separator == std::wstring_view::npos ? 0 : separator + 1;
  return path.substr(std::max(start, RootLength(path)));
}

std::wstring_view FileStem(std::wstring_view path) {
  const std::wstring_view name = FileName(path);
  const std::size_t dot = name.rfind(L'.');
  if (dot == std::wstring_view::npos || dot == 0 || name == L"..") {
    return name;
  }
  return name.substr(0, dot);
}

std::wstring_view ParentPath(std::wstring_view path) {
  const std::size_t root = RootLength(path);
  std::size_t end = path.size() - FileName(path).size();
  while (end > root && IsPathSeparator(path[end - 1])) {
    --end;
  }
  return path.substr(0, end);
}

bool LiesInside(std::wstring_view path, std::wstring_view root) {
  const auto inner = PathComponents(path);
  const auto outer = PathComponents(root);
  return inner.size() >= outer.size() &&
         std::equal(outer.begin(), outer.end(), inner.begin(), EqualIgnoringCase);
}

}  // namespace kestrune
