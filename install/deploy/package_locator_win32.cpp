#include "install/deploy/package_locator_win32.h"

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/places/product_files.h"
#include "install/deploy/package_directories.h"

namespace kestrune {
namespace {

bool IsPackage(SystemCalls& calls, const std::wstring& directory) {
  return QueryFileKind(calls, JoinPath({directory, kPackageScriptFolder, kScriptFile})) !=
             FileKind::Absent &&
         QueryFileKind(calls, JoinPath({directory, kPackageRuntimeFolder, kBridgeOutJob})) !=
             FileKind::Absent;
}

}  // namespace

std::wstring FindPackageDirectory(SystemCalls& calls, const std::wstring& program_path) {
  for (const std::wstring& directory : PackageDirectories(program_path)) {
    if (IsPackage(calls, directory)) {
      return directory;
    }
  }
  return {};
}

}  // namespace kestrune
