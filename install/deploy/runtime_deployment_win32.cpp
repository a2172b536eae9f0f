#include "install/deploy/runtime_deployment_win32.h"

#include <array>

#include "common/file_win32.h"
#include "common/known_folders_win32.h"
#include "common/path.h"
#include "common/product_files.h"
#include "install/deploy/file_installation_win32.h"
#include "install/deploy/refusal.h"
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

void DeployFile(const std::wstring& source, const std::wstring& target, InstallCalls& calls) {
  if (QueryFileKind(source) != FileKind::RegularFile) {
    throw Refusal{{L"Missing file of the package: ", 0, source}};
  }
  if (!CreateDirectories(std::wstring(ParentPath(target)))) {
    const DWORD code = GetLastError();
    throw Refusal{{L"Cannot copy ", code, source + L"."}};
  }
  InstallFile(source, target, calls);
}

void Deploy(const std::wstring& package, const std::wstring& program, InstallCalls& calls) {
  std::wstring local_app_data;
  std::wstring folder_error;
  if (!LocalAppDataDirectory(local_app_data, folder_error)) {
    throw Refusal{{folder_error}};
  }
  const std::wstring runtime = RuntimeRoot(local_app_data);
  if (!CreateDirectories(runtime)) {
    const DWORD code = GetLastError();
    throw Refusal{{L"Cannot create the Bridge runtime directory.", code}};
  }
  DeployFile(program, JoinPath(runtime, kProgramFile), calls);
  for (const PackageFile& file : kPackageFiles) {
    DeployFile(JoinPath({package, file.folder, file.name}), JoinPath(runtime, file.name), calls);
  }
  GenerateRuntimeScript(package, runtime, calls);
}

}  // namespace

std::optional<Failure> DeployRuntime(const std::wstring& package, const std::wstring& program,
                                     InstallCalls& calls) {
  try {
    Deploy(package, program, calls);
    return std::nullopt;
  } catch (const Refusal& refusal) {
    return refusal;
  }
}

}  // namespace kestrune
