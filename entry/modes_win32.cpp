#include "entry/modes_win32.h"

#include "common/places/program_path_win32.h"
#include "export/deliver/finalize_win32.h"
#include "export/inspect/inspect_win32.h"
#include "export/prepare/prepare_status_win32.h"
#include "export/prepare/prepare_win32.h"
#include "export/wait/native_wait_win32.h"
#include "export/wait/window_position_win32.h"
#include "install/installer_report_win32.h"
#include "install/installer_win32.h"

namespace kestrune {
namespace {

int RejectCommandLine(const UnknownCommand&, const Doors& doors) {
  doors.desktop.ShowMessage(L"This helper is started by the Kestrune script.",
                            MessageIcon::Information);
  return kNotACommand;
}

int RejectInstallerLine(const InvalidInstallerCommand&, const Doors& doors) {
  doors.desktop.ShowMessage(L"Invalid installer command line.", MessageIcon::Error);
  return kInvalidInstallerLine;
}

/// Writes the result of an installer command to the report file and the box, as the options
/// request.
int ShowResult(const InstallerOptions& options, const InstallerResult& result, const Doors& doors) {
  WriteInstallerReport(doors.system, options, result.message);
  if (!options.quiet) {
    doors.desktop.ShowMessage(result.message, result.code == kInstallerDone
                                                  ? MessageIcon::Information
                                                  : MessageIcon::Warning);
  }
  return result.code;
}

int RunInstaller(const InstallerOptions& options, const Doors& doors) {
  // ProgramPath() is empty when the path exceeds the buffer; the deployment then reports this.
  return ShowResult(options, RunInstallerCommand(doors.system, options, ProgramPath(doors.system)),
                    doors);
}

int ReportInstallerFailure(const InstallerOptions& options, const Doors& doors) {
  return ShowResult(options, {kInstallerFailed, L"The installer failed unexpectedly."}, doors);
}

int RunPrepare(const PrepareCommand& command, const Doors& doors) {
  return PublishPrepareStatus(doors.system, command,
                              PrepareTemporaryProject(doors.system, command));
}

int ReportPrepareFailure(const PrepareCommand& command, const Doors& doors) {
  return PublishPrepareStatus(doors.system, command, kPrepareFailed);
}

int RunPositionWindow(const PositionWindowCommand& command, const Doors& doors) {
  return PositionWindow(command, doors.desktop);
}

int RunWaitNative(const WaitNativeCommand& command, const Doors& doors) {
  return WaitForNativeOutput(doors.system, command);
}

int ReportWaitFailure(const WaitNativeCommand& command, const Doors& doors) {
  ReportNativeWaitFailure(doors.system, command);
  return kNativeWaitFailed;
}

int RunInspect(const InspectCommand& command, const Doors& doors) {
  return InspectForScript(doors.system, command);
}

int ReportInspectionFailure(const InspectCommand& command, const Doors& doors) {
  return ReportInspectFailure(doors.system, command);
}

int ReportFinalizeFailure(const FinalizeCommand&, const Doors& doors) {
  doors.desktop.ShowMessage(FinalizeFailureMessage(doors.system), MessageIcon::Error);
  return kFinalizeFailed;
}

}  // namespace

constexpr Modes kModes = {
    Mode<UnknownCommand>{RejectCommandLine, kNotACommand},
    Mode<InvalidInstallerCommand>{RejectInstallerLine, kInvalidInstallerLine},
    Mode<InstallerOptions>{RunInstaller, kInstallerFailed, ReportInstallerFailure},
    Mode<PositionWindowCommand>{RunPositionWindow, kPositionUnreadable},
    Mode<PrepareCommand>{RunPrepare, kPrepareFailed, ReportPrepareFailure},
    Mode<WaitNativeCommand>{RunWaitNative, kNativeWaitFailed, ReportWaitFailure},
    Mode<InspectCommand>{RunInspect, kInspectArchiveUnreadable, ReportInspectionFailure},
    Mode<FinalizeCommand>{FinalizeExport, kFinalizeFailed, ReportFinalizeFailure},
};

}  // namespace kestrune
