#include "install/deploy/runtime_deployment_win32.h"

#include <array>

#include "common/files/file_win32.h"
#include "common/places/known_folders_win32.h"
#include "common/text/path.h"
#include "common/places/product_files.h"
#include "install/deploy/file_installation_win32.h"
#include "install/deploy/refusal.h"
#include "install/deploy/runtime_script_win32.h"

namespace kestrune {
namespace {

/// Holds the place of a runtime file in the package.
struct PackageFile {
  std::wstring_view folder;
  std::wstring_view name;
};

/// The package's files that are copied unchanged, in the order of installation.
constexpr std::array<PackageFile, 7> kPackageFiles = {{
    {kPackageScriptFolder, kScriptProjectFile},
    {kPackageScriptFolder, kWaitFormUnitFile},
    {kPackageScriptFolder, kWaitFormFile},
    {kPackageRuntimeFolder, kBridgeOutJob},
    {kPackageAssetsFolder, kLegacyImageFile},
    {kPackageAssetsFolder, kActiveBarImageFile},
    {kPackageAssetsFolder, kFlatImageFile},
}};

void DeployFile(SystemCalls& calls, const std::wstring& source, const std::wstring& target) {
  if (QueryFileKind(calls, source) != FileKind::RegularFile) {
    throw Refusal{{L"Missing file of the package: ", 0, source}};
  }
  try {
    CreateDirectories(calls, std::wstring(ParentPath(target)));
  } catch (const Failure& failure) {
    throw Refusal{{L"Cannot copy ", failure.code, source + L"."}};
  }
  InstallFile(calls, source, target);
}

void Deploy(SystemCalls& calls, const std::wstring& package, const std::wstring& program) {
  std::wstring local_app_data;
  std::wstring folder_error;
  if (!LocalAppDataDirectory(calls, local_app_data, folder_error)) {
    throw Refusal{{folder_error}};
  }
  const std::wstring runtime = RuntimeRoot(local_app_data);
  try {
    CreateDirectories(calls, runtime);
  } catch (const Failure& failure) {
    throw Refusal{{L"Cannot create the Bridge runtime directory.", failure.code}};
  }
  DeployFile(calls, program, JoinPath(runtime, kProgramFile));
  for (const PackageFile& file : kPackageFiles) {
    DeployFile(calls, JoinPath({package, file.folder, file.name}), JoinPath(runtime, file.name));
  }
  GenerateRuntimeScript(calls, package, runtime);
}

}  // namespace

std::optional<Failure> DeployRuntime(SystemCalls& calls, const std::wstring& package,
                                     const std::wstring& program) {
  try {
    Deploy(calls, package, program);
    return std::nullopt;
  } catch (const Refusal& refusal) {
    return refusal;
  }
}

}  // namespace kestrune
