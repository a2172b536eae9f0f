#include "install/deploy/package_directories.h"

#include "common/text/path.h"

namespace kestrune {

std::vector<std::wstring> PackageDirectories(std::wstring_view program_path) {
  constexpr std::size_t kMostDirectories = 6;
  std::vector<std::wstring> directories;
  std::wstring_view directory = ParentPath(program_path);
  while (!directory.empty() && directories.size() < kMostDirectories &&
         (directories.empty() || directory != directories.back())) {
    directories.emplace_back(directory);
    directory = ParentPath(directory);
  }
  return directories;
}

}  // namespace kestrune
