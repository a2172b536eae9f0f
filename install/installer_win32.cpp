#include "install/installer_win32.h"

#include <windows.h>

#include <exception>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

#include "common/failure.h"
#include "common/file_win32.h"
#include "common/known_folders_win32.h"
#include "common/log_win32.h"
#include "common/ordinal.h"
#include "common/path.h"
#include "common/product_files.h"
#include "common/text.h"
#include "common/text_win32.h"
#include "export/settings/user_settings_win32.h"
#include "install/extra_record_kinds_win32.h"
#include "install/host_discovery_win32.h"
#include "install/host_process_win32.h"
#include "install/host_product.h"
#include "install/deploy/package_locator_win32.h"
#include "install/registration_plan.h"
#include "install/deploy/runtime_deployment_win32.h"
#include "registration/transaction/global_projects.h"
#include "registration/rcs/rcs.h"
#include "registration/rcs/toolbar_edit.h"
#include "registration/transaction/transaction.h"
#include "registration/store/windows_store_win32.h"

namespace kestrune {
namespace {

using altium_registration::Rcs;
using altium_registration::RcsOptions;
using altium_registration::RegistrationChange;
using altium_registration::RegistryValue;
using altium_registration::Spec;
using altium_registration::ToolbarAnchor;
using altium_registration::ToolbarKind;
using altium_registration::WindowsStore;

/// The host's toolbar definitions have some megabytes at most; a larger file would only fill the
/// memory of a 32-bit process.
constexpr std::uint64_t kLargestResource = 64 << 20;

/// What the user's settings say about a registration.
struct RegistrationSettings {
  /// The button's hint as bytes in the ANSI code page.
  std::string description;
  std::vector<std::string> extra_record_kinds;
};

/// The command's label, which names the user's application; the plain label where the code page
/// cannot hold that name.
std::string DescriptionFor(const UserSettings& user) {
  std::string description;
  if (!AnsiFromWide(BuildExportCommandLabel(user), description)) {
    description = AnsiFromWideLossy(BuildExportCommandLabel({}));
  }
  return description;
}

RegistrationSettings ReadSettings(const std::wstring& local_app_data) {
  UserSettings user;
  std::wstring path;
  std::wstring error_text;
  if (!LoadUserSettings(user, path, error_text)) {
    user = {};
  }
  RegistrationSettings settings;
  settings.description = DescriptionFor(user);
  settings.extra_record_kinds = ReadExtraRecordKinds(local_app_data);
  return settings;
}

constexpr std::wstring_view kFailedStage = L"Installer failed";

/// What is reported and logged where there is no memory for more.
constexpr std::wstring_view kShortFailure = L"FAILED: Not enough memory.\n";
constexpr std::wstring_view kNoMemoryFields = L"Error=Not enough memory. GetLastError=8";

/// Returns the exception that is being handled as a failure. Throws std::bad_alloc.
Failure CurrentFailure() {
  try {
    throw;
  } catch (const Failure& failure) {
    return failure;
  } catch (const std::bad_alloc&) {
    return {kNotEnoughMemory, ERROR_NOT_ENOUGH_MEMORY};
  } catch (const std::exception& error) {
    return {L"Unexpected failure: " + WidenBytes(error.what())};
  } catch (...) {
    return {L"Unexpected failure."};
  }
}

/// What an instance's files and registry say before anything is changed.
struct InstanceState {
  Rcs rcs;
  std::vector<RegistryValue> projects;
  std::optional<ToolbarAnchor> anchor;
};

/// One installer command over all instances.
class InstallerRun {
 public:
  InstallerRun(const InstallerOptions& options, const std::wstring& program_path,
               SystemCalls& calls)
      : options_(options), program_path_(program_path), calls_(calls) {}

  /// Throws only when memory runs out; what was reported until then can still be taken.
  void Run() {
    try {
      RunOrFail();
    } catch (const Failure& failure) {
      End(kInstallerFailed, failure);
    }
  }

  /// Ends the run without memory, behind what was reported before.
  void EndWithoutMemory() noexcept {
    code_ = kInstallerFailed;
    Log(kFailedStage, kNoMemoryFields);
    AppendWithoutMemory(kNotEnoughMemory);
  }

  InstallerResult TakeResult() { return {code_, std::move(report_)}; }

 private:
  void RunOrFail() {
    const std::vector<HostInstance> instances = DiscoverHostInstances(options_);
    if (instances.empty()) {
      return End(kNoInstance, {L"No Altium instance found."});
    }
    if (options_.command != InstallerCommand::Status && IsHostRunning(calls_)) {
      return End(kHostRuns,
                 {L"Close all Altium instances before changing shared runtime or registration."});
    }
    FindRuntime();
    for (const HostInstance& instance : instances) {
      Handle(instance);
    }
  }

  void FindRuntime() {
    std::wstring folder_error;
    if (!LocalAppDataDirectory(local_app_data_, folder_error)) {
      throw Failure{folder_error};
    }
    runtime_ = RuntimeRoot(local_app_data_);
    project_path_ = JoinPath(runtime_, kScriptProjectFile);
    if (!SurvivesAnsiRoundTrip(project_path_)) {
      throw Failure{
          L"Runtime path cannot be represented safely by the existing DelphiScript runtime."};
    }
  }

  /// Handles one instance. Whatever is thrown there becomes its line in the report, and the others
  /// go on.
  void Handle(const HostInstance& instance) noexcept {
    try {
      Append(InstanceHeader(instance));
      HandleOrFail(instance);
    } catch (...) {
      ReportFailure(instance);
    }
  }

  void HandleOrFail(const HostInstance& instance) {
    if (instance.needs_verification || instance.executable.empty() ||
        QueryFileKind(instance.executable) == FileKind::Absent) {
      return Skip(instance, instance.reason + L" (executable/profile must be verified).");
    }
    if (QueryFileKind(instance.rcs_path) == FileKind::Absent) {
      return Skip(instance, L"DXP.RCS does not exist; initialize this Altium profile first.");
    }
    WindowsStore store({instance.rcs_path, instance.registry_branch, instance.guid}, calls_);
    InstanceState state = ReadState(store, instance);
    if (options_.command == InstallerCommand::Status) {
      return ReportStatus(instance, state);
    }
    ChangeRegistration(store, instance, std::move(state));
  }

  /// Reports the exception that is being handled.
  void ReportFailure(const HostInstance& instance) noexcept {
    SeeProblem();
    try {
      const Failure failure = CurrentFailure();
      Append(L"FAILED: " + failure.text + L"\n");
      Log(kFailedStage, ErrorFields(failure) + L" GUID=" + instance.guid + PathField(failure));
    } catch (...) {
      AppendWithoutMemory(kShortFailure);
      Log(kFailedStage, kNoMemoryFields);
    }
  }

  /// Adds to the report and leaves room in it for a failure that has no memory left.
  void Append(std::wstring_view text) {
    report_.reserve(report_.size() + text.size() + kShortFailure.size());
    report_ += text;
  }

  void AppendWithoutMemory(std::wstring_view text) noexcept {
    try {
      report_ += text;
    } catch (...) {
      // The code tells that something failed, and the report what was done before.
      return;
    }
  }

  void Skip(const HostInstance& instance, const std::wstring& text) {
    SeeProblem();
    Append(L"Skipped: " + text + L"\n");
    Log(L"Installer skipped", L"Reason=" + text + L" GUID=" + instance.guid);
  }

  void SeeProblem() {
    code_ = options_.command == InstallerCommand::Status ? kStatusProblem : kInstallerFailed;
  }

  /// Ends the whole run.
  void End(std::int32_t code, const Failure& failure) {
    code_ = code;
    Append(failure.text);
    Log(kFailedStage, ErrorFields(failure) + PathField(failure));
  }

  /// Keeps for an administrator what a quiet run shows nobody. Asking for the status logs nothing.
  void Log(std::wstring_view stage, std::wstring_view detail) const {
    if (options_.command != InstallerCommand::Status) {
      WriteLogEntry(stage, detail);
    }
  }

  [[nodiscard]] bool Registering() const {
    return options_.command == InstallerCommand::Install ||
           options_.command == InstallerCommand::Update;
  }

  /// Read when the first instance needs it, and again while reading fails.
  const RegistrationSettings& Settings() {
    if (!settings_) {
      settings_ = ReadSettings(local_app_data_);
    }
    return *settings_;
  }

  const std::vector<std::string>& ExtraKinds() { return Settings().extra_record_kinds; }

  InstanceState ReadState(WindowsStore& store, const HostInstance& instance) {
    InstanceState state;
    std::string text = store.ReadRcs();
    state.projects = store.ReadGlobalProjects();
    const RcsOptions options{.strict = true, .extra_record_kinds = ExtraKinds()};
    std::wstring error;
    if (!Rcs::Parse(std::move(text), options, state.rcs, error)) {
      throw Failure{ShownError(error) + L" Manual registration required; no profile change."};
    }
    // The place is looked for in the host's own definitions; the user's file holds only what the
    // user changed.
    std::string resource;
    if (!ReadWholeFile(instance.resource_path, kLargestResource, resource)) {
      resource.clear();
    }
    state.anchor = ChooseAnchor(resource, instance.version.major, ExtraKinds());
    return state;
  }

  /// The button as it is to stand in this instance.
  Spec DescribeButton(const HostInstance& instance, const std::optional<ToolbarAnchor>& anchor) {
    const bool active_bar = anchor && anchor->kind == ToolbarKind::ActiveBar;
    const std::wstring image = JoinPath(
        runtime_, ChooseToolbarImage(instance.version_text, active_bar, instance.display_name));
    Spec spec;
    spec.script_project_path = AnsiFromWideLossy(project_path_);
    spec.image_path = AnsiFromWideLossy(image);
    spec.description = Settings().description;
    if (anchor) {
      spec.anchor_target = anchor->target;
      spec.anchor_reference = anchor->reference;
    }
    return spec;
  }

  void ReportStatus(const HostInstance& instance, const InstanceState& state) {
    std::vector<RegistryValue> plan;
    std::wstring error;
    const bool listed =
        altium_registration::PlanGlobalProjects(state.projects, project_path_, true, plan, error) &&
        altium_registration::SameValues(plan, state.projects);
    const bool installed = listed && state.anchor &&
                           altium_registration::ValidateRcs(
                               state.rcs, DescribeButton(instance, state.anchor), true, error);
    if (!installed) {
      SeeProblem();
    }
    Append(installed ? L"Installed\n" : L"Not installed / registration requires repair\n");
  }

  void ChangeRegistration(WindowsStore& store, const HostInstance& instance, InstanceState state) {
    if (Registering() && !state.anchor) {
      throw Failure{
          L"No validated per-instance toolbar anchor; use manual Global Project and toolbar "
          L"registration. No profile changes made."};
    }
    const Spec spec = DescribeButton(instance, state.anchor);
    RegistrationChange change = PlanChange(std::move(state), spec);
    change.validate = [&](std::string_view text) {
      // The planned text was found valid when it was made; only another one is parsed.
      return text == change.rcs_after || IsValid(text, spec);
    };
    if (Registering() && !deployed_) {
      Deploy();
    }
    if (IsHostRunning(calls_)) {
      throw Failure{L"Altium started during preparation; aborting registration."};
    }
    Commit(store, change);
    store.AppendLog(AnsiFromWideLossy(IdentityLine(instance)));
    Append(Registering() ? L"Installed/updated and validated.\n"
                         : L"Registration removed; shared runtime retained.\n");
  }

  RegistrationChange PlanChange(InstanceState state, const Spec& spec) {
    RegistrationChange change;
    std::wstring error;
    if (!altium_registration::EditRcs(state.rcs, spec, Registering(), change.rcs_after, error) ||
        !altium_registration::PlanGlobalProjects(state.projects, project_path_, Registering(),
                                                 change.values_after, error)) {
      throw Failure{ShownError(error)};
    }
    change.rcs_before = std::move(state.rcs).TakeText();
    change.values_before = std::move(state.projects);
    return change;
  }

  bool IsValid(std::string_view text, const Spec& spec) {
    const RcsOptions options{.strict = true, .extra_record_kinds = ExtraKinds()};
    Rcs rcs;
    std::wstring ignored;
    return Rcs::Parse(std::string(text), options, rcs, ignored) &&
           altium_registration::ValidateRcs(rcs, spec, Registering(), ignored);
  }

  void Deploy() {
    const std::wstring package =
        options_.package.empty() ? FindPackageDirectory(program_path_) : options_.package;
    if (const std::optional<Failure> refusal = DeployFrom(package)) {
      // The report keeps to one sentence; the log has the rest.
      Log(kFailedStage, L"Error=" + refusal->text + refusal->subject + L" GetLastError=" +
                            Decimal(refusal->code) + L" Package=" + package);
      throw Failure{L"Runtime deployment failed; profile unchanged."};
    }
    deployed_ = true;
    if (EqualIgnoringCase(program_path_, JoinPath(runtime_, kProgramFile))) {
      Log(L"Installer note",
          L"The running program is the deployed one and was not replaced. Package=" + package);
    }
  }

  /// Returns what refused the deployment.
  std::optional<Failure> DeployFrom(const std::wstring& package) {
    if (program_path_.empty()) {
      return Failure{L"The program's own path is too long."};
    }
    if (package.empty()) {
      return Failure{L"No package beside the program: ", 0, program_path_};
    }
    return DeployRuntime(calls_, package, program_path_);
  }

  void Commit(WindowsStore& store, const RegistrationChange& change) {
    std::wstring message;
    const bool committed = altium_registration::RunTransaction(store, change, message);
    Append(std::wstring(change.rcs_before.empty() ? L"Backend: captured empty RCS"
                                                  : L"Backend: recognized text RCS") +
           L"\nBackup: " + store.BackupDirectory() + L"\n");
    if (!committed) {
      throw Failure{message};
    }
  }

  const InstallerOptions& options_;
  const std::wstring& program_path_;
  SystemCalls& calls_;
  std::wstring local_app_data_;
  std::wstring runtime_;
  std::wstring project_path_;
  std::optional<RegistrationSettings> settings_;
  bool deployed_ = false;
  std::int32_t code_ = kInstallerDone;
  std::wstring report_;
};

}  // namespace

InstallerResult RunInstallerCommand(const InstallerOptions& options,
                                    const std::wstring& program_path, SystemCalls& calls) {
  InstallerRun run(options, program_path, calls);
  try {
    run.Run();
  } catch (const std::bad_alloc&) {
    run.EndWithoutMemory();
  }
  return run.TakeResult();
}

}  // namespace kestrune
