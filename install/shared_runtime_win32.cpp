#include "install/shared_runtime_win32.h"

#include <optional>

#include "common/failure/failure.h"
#include "common/places/known_folders_win32.h"
#include "common/text/ordinal.h"
#include "common/text/path.h"
#include "common/places/product_files.h"
#include "common/text/text_win32.h"
#include "install/deploy/package_locator_win32.h"
#include "install/deploy/runtime_deployment_win32.h"

namespace kestrune {
namespace {

/// Deploys the runtime. Returns the failure, if any.
std::optional<Failure> DeployFrom(SystemCalls& calls, const std::wstring& package,
                                  const std::wstring& program_path) {
  if (program_path.empty()) {
    return Failure{L"The program's own path is too long."};
  }
  if (package.empty()) {
    return Failure{L"No package beside the program: ", 0, program_path};
  }
  return DeployRuntime(calls, package, program_path);
}

}  // namespace

SharedRuntime::SharedRuntime(SystemCalls& calls, const InstallerOptions& options,
                             const std::wstring& program_path, const InstallerLog& log)
    : calls_(calls), options_(options), program_path_(program_path), log_(log) {
  std::wstring folder_error;
  if (!LocalAppDataDirectory(calls, local_app_data_, folder_error)) {
    throw Failure{folder_error};
  }
  directory_ = RuntimeRoot(local_app_data_);
  project_path_ = JoinPath(directory_, kScriptProjectFile);
  if (!SurvivesAnsiRoundTrip(project_path_)) {
    throw Failure{
        L"Runtime path cannot be represented safely by the existing DelphiScript runtime."};
  }
}

void SharedRuntime::Deploy() {
  if (is_deployed_) {
    return;
  }
  const std::wstring package =
      options_.package.empty() ? FindPackageDirectory(calls_, program_path_) : options_.package;
  if (const std::optional<Failure> refusal = DeployFrom(calls_, package, program_path_)) {
    // The report has one sentence; the log has the details.
    log_.DeploymentRefused(*refusal, package);
    throw Failure{L"Runtime deployment failed; profile unchanged."};
  }
  is_deployed_ = true;
  if (EqualIgnoringCase(program_path_, JoinPath(directory_, kProgramFile))) {
    log_.ProgramKept(package);
  }
}

}  // namespace kestrune
