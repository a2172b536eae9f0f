#include "install/instance_registration_win32.h"

#include <string_view>
#include <utility>
#include <vector>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text_win32.h"
#include "install/button.h"
#include "install/discovery/host_process_win32.h"
#include "registration/rcs/rcs.h"
#include "registration/rcs/toolbar_edit.h"
#include "registration/transaction/global_projects.h"
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

/// The host's toolbar definitions have a few megabytes at most. The limit protects the memory of a
/// 32-bit process.
constexpr std::uint64_t kLargestResource = 64 << 20;

/// Holds the state of an instance's files and registry before any change.
struct InstanceState {
  Rcs rcs;
  std::vector<RegistryValue> projects;
  std::optional<ToolbarAnchor> anchor;
};

/// Carries out the command for one instance.
class InstanceRegistration {
 public:
  InstanceRegistration(InstallerRun& run, const HostInstance& instance)
      : run_(run), instance_(instance) {}

  void Run() {
    if (instance_.needs_verification || instance_.executable.empty() ||
        QueryFileKind(run_.calls, instance_.executable) == FileKind::Absent) {
      return Skip(instance_.reason + L" (executable/profile must be verified).");
    }
    if (QueryFileKind(run_.calls, instance_.rcs_path) == FileKind::Absent) {
      return Skip(L"DXP.RCS does not exist; initialize this Altium profile first.");
    }
    WindowsStore store({instance_.rcs_path, instance_.registry_branch, instance_.guid}, run_.calls);
    InstanceState state = ReadState(store);
    if (run_.command == InstallerCommand::Status) {
      return ReportStatus(state);
    }
    ChangeRegistration(store, std::move(state));
  }

 private:
  void Skip(const std::wstring& reason) {
    run_.report.Skip(reason);
    run_.log.Skipped(reason, instance_.guid);
  }

  [[nodiscard]] bool Registering() const {
    return run_.command == InstallerCommand::Install || run_.command == InstallerCommand::Update;
  }

  const RegistrationSettings& Settings() {
    if (!run_.settings) {
      run_.settings = ReadRegistrationSettings(run_.calls, run_.runtime.LocalAppData());
    }
    return *run_.settings;
  }

  const std::vector<std::string>& ExtraRecordKinds() { return Settings().extra_record_kinds; }

  InstanceState ReadState(WindowsStore& store) {
    InstanceState state;
    std::string text = store.ReadRcs();
    state.projects = store.ReadGlobalProjects();
    const RcsOptions options{.strict = true, .extra_record_kinds = ExtraRecordKinds()};
    std::wstring error;
    if (!Rcs::Parse(std::move(text), options, state.rcs, error)) {
      throw Failure{ShownError(error) + L" Manual registration required; no profile change."};
    }
    // The anchor is searched in the host's own definitions, since the user's file has only the
    // user's changes.
    const std::string resource =
        ReadFileIfPossible(run_.calls, instance_.resource_path, kLargestResource)
            .value_or(std::string());
    state.anchor = ChooseAnchor(resource, instance_.version.major, ExtraRecordKinds());
    return state;
  }

  /// Returns the description of the button for this instance.
  Spec DescribeButton(const std::optional<ToolbarAnchor>& anchor) {
    const bool active_bar = anchor && anchor->kind == ToolbarKind::ActiveBar;
    const std::wstring image =
        JoinPath(run_.runtime.Directory(),
                 ChooseToolbarImage(instance_.version_text, active_bar, instance_.display_name));
    Spec spec;
    spec.script_project_path = AnsiFromWideLossy(run_.runtime.ProjectPath());
    spec.is_lead_byte = [](char byte) { return IsLeadByte(byte); };
    spec.image_path = AnsiFromWideLossy(image);
    spec.description = Settings().hint;
    if (anchor) {
      spec.anchor_target = anchor->target;
      spec.anchor_reference = anchor->reference;
    }
    return spec;
  }

  void ReportStatus(const InstanceState& state) {
    std::vector<RegistryValue> plan;
    std::wstring error;
    const bool listed = altium_registration::PlanGlobalProjects(
                            state.projects, run_.runtime.ProjectPath(), true, plan, error) &&
                        altium_registration::SameValues(plan, state.projects);
    const bool installed =
        listed && state.anchor &&
        altium_registration::ValidateRcs(state.rcs, DescribeButton(state.anchor), true, error);
    if (!installed) {
      run_.report.SetFailureCode();
    }
    run_.report.Append(installed ? L"Installed\n"
                                 : L"Not installed / registration requires repair\n");
  }

  void ChangeRegistration(WindowsStore& store, InstanceState state) {
    if (Registering() && !state.anchor) {
      throw Failure{
          L"No validated per-instance toolbar anchor; use manual Global Project and toolbar "
          L"registration. No profile changes made."};
    }
    const Spec spec = DescribeButton(state.anchor);
    RegistrationChange change = PlanChange(std::move(state), spec);
    change.validate = [&](std::string_view text) {
      // EditRcs has validated the planned text already.
      return text == change.rcs_after || IsValid(text, spec);
    };
    if (Registering()) {
      run_.runtime.Deploy();
    }
    if (IsHostRunning(run_.calls)) {
      throw Failure{L"Altium started during preparation; aborting registration."};
    }
    Commit(store, change);
    store.AppendLog(AnsiFromWideLossy(IdentityLine(instance_)));
    run_.report.Append(Registering() ? L"Installed/updated and validated.\n"
                                     : L"Registration removed; shared runtime retained.\n");
  }

  RegistrationChange PlanChange(InstanceState state, const Spec& spec) {
    RegistrationChange change;
    std::wstring error;
    if (!altium_registration::EditRcs(state.rcs, spec, Registering(), change.rcs_after, error) ||
        !altium_registration::PlanGlobalProjects(state.projects, run_.runtime.ProjectPath(),
                                                 Registering(), change.values_after, error)) {
      throw Failure{ShownError(error)};
    }
    change.rcs_before = std::move(state.rcs).TakeText();
    change.values_before = std::move(state.projects);
    return change;
  }

  bool IsValid(std::string_view text, const Spec& spec) {
    const RcsOptions options{.strict = true, .extra_record_kinds = ExtraRecordKinds()};
    Rcs rcs;
    std::wstring ignored;
    return Rcs::Parse(std::string(text), options, rcs, ignored) &&
           altium_registration::ValidateRcs(rcs, spec, Registering(), ignored);
  }

  void Commit(WindowsStore& store, const RegistrationChange& change) {
    std::wstring message;
    const bool committed = altium_registration::RunTransaction(store, change, message);
    run_.report.Append(std::wstring(change.rcs_before.empty() ? L"Backend: captured empty RCS"
                                                              : L"Backend: recognized text RCS") +
                       L"\nBackup: " + store.BackupDirectory() + L"\n");
    if (!committed) {
      throw Failure{message};
    }
  }

  InstallerRun& run_;
  const HostInstance& instance_;
};

}  // namespace

void HandleInstance(InstallerRun& run, const HostInstance& instance) {
  InstanceRegistration(run, instance).Run();
}

}  // namespace kestrune
