#include "install/deploy/package_locator_win32.h"

#include "common/file_win32.h"
#include "common/path.h"

namespace kestrune {
namespace {

constexpr int kDirectoriesTried = 6;

bool IsPackage(const std::wstring& directory) {
  return QueryFileKind(JoinPath(directory, L"Script\\Kestrune.pas")) != FileKind::Absent &&
         QueryFileKind(JoinPath(directory, L"Runtime\\Bridge.OutJob")) != FileKind::Absent;
}

}  // namespace

std::wstring FindPackageDirectory(const std::wstring& program_path) {
  std::wstring directory(ParentPath(program_path));
  for (int tried = 0; tried < kDirectoriesTried && !directory.empty(); ++tried) {
    if (IsPackage(directory)) {
      return directory;
    }
    std::wstring parent(ParentPath(directory));
    if (parent == directory) {
      break;
    }
    directory = std::move(parent);
  }
  return {};
}

}  // namespace kestrune
