#include "install/deploy/runtime_deployment_win32.h"

#include <array>

#include "common/file_win32.h"
#include "common/known_folders_win32.h"
#include "common/path.h"
#include "install/deploy/file_installation_win32.h"
#include "install/deploy/runtime_script_win32.h"

namespace kestrune {
namespace {

/// The package's files that are copied as they are, in the order of their installation.
constexpr std::array<const wchar_t*, 7> kPackageFiles = {
    L"Script\\Kestrune.PrjScr",          L"Script\\Kestrune_WaitForm.pas",
    L"Script\\Kestrune_WaitForm.dfm",    L"Runtime\\Bridge.OutJob",
    L"Assets\\odbpp-toolbar-legacy.bmp", L"Assets\\odbpp-toolbar-activebar.png",
    L"Assets\\odbpp-toolbar-ad26-16.png"};

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
  if (!DeployFile(program, JoinPath(runtime, L"Kestrune.exe"), message)) {
    return false;
  }
  for (const wchar_t* file : kPackageFiles) {
    if (!DeployFile(JoinPath(package, file), JoinPath(runtime, FileName(file)), message)) {
      return false;
    }
  }
  return GenerateRuntimeScript(package, runtime, message);
}

}  // namespace kestrune
