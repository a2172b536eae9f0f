#include "install/deploy/runtime_deployment_win32.h"

#include <array>

#include "common/file_win32.h"
#include "common/known_folders_win32.h"
#include "common/path.h"
#include "common/product_files.h"
#include "install/deploy/file_installation_win32.h"
#include "install/deploy/runtime_script_win32.h"

namespace kestrune {
namespace {

/// Where the package has a file of the runtime.
struct PackageFile {
  std::wstring_view folder;
  std::wstring_view name;
};

/// The package's files that are copied as they are, in the order of their installation.
constexpr std::array<PackageFile, 7> kPackageFiles = {{
    {kPackageScriptFolder, kScriptProjectFile},
    {kPackageScriptFolder, kWaitFormUnitFile},
    {kPackageScriptFolder, kWaitFormFile},
    {kPackageRuntimeFolder, kBridgeOutJob},
    {kPackageAssetsFolder, kLegacyImageFile},
    {kPackageAssetsFolder, kActiveBarImageFile},
    {kPackageAssetsFolder, kFlatImageFile},
}};

bool DeployFile(const std::wstring& source, const std::wstring& target, std::wstring& message) {
  if (QueryFileKind(source) != FileKind::RegularFile) {
    return false;
  }
  if (!CreateDirectories(std::wstring(ParentPath(target)))) {
    message = L"Cannot copy " + source + L".";
    return false;
  }
  return InstallFile(source, target, message);
}

}  // namespace

bool DeployRuntime(const std::wstring& package, const std::wstring& program,
                   std::wstring& message) {
  message.clear();
  std::wstring local_app_data;
  std::wstring folder_error;
  if (!LocalAppDataDirectory(local_app_data, folder_error)) {
    message = folder_error;
    return false;
  }
  const std::wstring runtime = RuntimeRoot(local_app_data);
  if (!CreateDirectories(runtime)) {
    message = L"Cannot create the Bridge runtime directory.";
    return false;
  }
  if (!DeployFile(program, JoinPath(runtime, kProgramFile), message)) {
    return false;
  }
  for (const PackageFile& file : kPackageFiles) {
    if (!DeployFile(JoinPath({package, file.folder, file.name}), JoinPath(runtime, file.name),
                    message)) {
      return false;
    }
  }
  return GenerateRuntimeScript(package, runtime, message);
}

}  // namespace kestrune
