#include "entry/dispatch_win32.h"

#include <windows.h>
#include <shellapi.h>

#include <array>
#include <variant>

#include "common/known_folders_win32.h"
#include "common/log_win32.h"
#include "common/owners_win32.h"
#include "common/path.h"
#include "common/program_path_win32.h"
#include "export/prepare/prepare_status_win32.h"
#include "export/deliver/finalize_win32.h"
#include "export/wait/native_wait_win32.h"
#include "export/prepare/prepare_win32.h"
#include "export/wait/window_position_win32.h"
#include "install/installer_report_win32.h"
#include "install/installer_win32.h"

namespace kestrune {
namespace {

constexpr int kNotACommand = 1;
constexpr int kInvalidInstallerLine = 2;
constexpr int kNoTemporaryRoot = 2;
constexpr int kStatusNotPublished = 10;

/// Tells a script that asked for it how the preparation ended; answers the exit code.
int PublishOutcome(const PrepareCommand& command, int prepare_code) {
  if (command.status_path && !PublishPrepareStatus(*command.status_path, prepare_code)) {
    WriteLogEntry(L"Prepare status failed", L"Cannot publish completion result");
    return kStatusNotPublished;
  }
  return prepare_code;
}

/// Hands the result of an installer command to the report file and the box that were asked for;
/// returns the exit code.
int ReportInstallation(const InstallerOptions& options, const InstallerResult& result,
                       ModeCalls& calls) {
  WriteInstallerReport(options, result.message);
  if (!options.quiet) {
    calls.Show(result.message, result.code == 0 ? MessageIcon::Information : MessageIcon::Warning);
  }
  return result.code;
}

/// One overload for each command: carries it out and answers the exit code.
struct Dispatcher {
  ModeCalls& calls;

  int operator()(const UnknownCommand&) const {
    calls.Show(L"This helper is started by the Kestrune script.", MessageIcon::Information);
    return kNotACommand;
  }

  int operator()(const InvalidInstallerCommand&) const {
    calls.Show(L"Invalid installer command line.", MessageIcon::Error);
    return kInvalidInstallerLine;
  }

  int operator()(const InstallerOptions& options) const {
    return ReportInstallation(options, calls.Install(options), calls);
  }

  int operator()(const PositionWindowCommand& command) const {
    return calls.Position(command.target, command.reference);
  }

  int operator()(const PrepareCommand& command) const {
    return PublishOutcome(command, calls.Prepare(command));
  }

  int operator()(const WaitNativeCommand& command) const { return calls.WaitNative(command); }

  int operator()(const FinalizeAutoCommand& command) const {
    std::wstring root;
    if (!calls.FindTemporaryRoot(root)) {
      return kNoTemporaryRoot;
    }
    const std::wstring outputs = JoinPath(JoinPath(root, L"Project Outputs for Bridge"), L"ODB");
    return calls.Finalize(JoinPath(outputs, L"Bridge.zip"), command.source_pcb, command.space);
  }

  int operator()(const FinalizeCommand& command) const {
    return calls.Finalize(command.native_zip, command.source_pcb, std::nullopt);
  }
};

/// The codes of commands that failed where nothing expects it, in the order of Command's kinds. A
/// table, for a look into it cannot fail.
constexpr std::array kFailureCodes = {kNotACommand,        kInvalidInstallerLine, kInstallerFailed,
                                      kPositionUnreadable, kPrepareFailed,        kNativeWaitFailed,
                                      kFinalizeFailed,     kFinalizeFailed};
static_assert(kFailureCodes.size() == std::variant_size_v<Command>);

/// Tells whoever waits for such a command that it failed; answers the exit code.
struct LastResort {
  ModeCalls& calls;

  int operator()(const InstallerOptions& options) const {
    return ReportInstallation(options, {kInstallerFailed, L"The installer failed unexpectedly."},
                              calls);
  }

  int operator()(const PrepareCommand& command) const {
    return PublishOutcome(command, kPrepareFailed);
  }

  int operator()(const WaitNativeCommand& command) const {
    ReportNativeWaitFailure(command.result_path);
    return kNativeWaitFailed;
  }

  int operator()(const FinalizeAutoCommand&) const { return FinalizeFailed(); }
  int operator()(const FinalizeCommand&) const { return FinalizeFailed(); }

  int operator()(const UnknownCommand&) const { return kNotACommand; }
  int operator()(const InvalidInstallerCommand&) const { return kInvalidInstallerLine; }
  int operator()(const PositionWindowCommand&) const { return kPositionUnreadable; }

 private:
  int FinalizeFailed() const {
    calls.Show(FinalizeFailureMessage(), MessageIcon::Error);
    return kFinalizeFailed;
  }
};

}  // namespace

InstallerResult ModeCalls::Install(const InstallerOptions& options) {
  // Of a path that does not fit nothing is known; deploying from nowhere fails with its own text.
  return RunInstallerCommand(options, ProgramPath());
}

int ModeCalls::Position(std::uint64_t target, std::uint64_t reference) {
  return PositionWindow(target, reference);
}

int ModeCalls::Prepare(const PrepareCommand& command) {
  return PrepareTemporaryProject(command.source_pcb, command.dependency_list,
                                 command.used_layer_manifest);
}

int ModeCalls::WaitNative(const WaitNativeCommand& command) {
  return WaitForNativeOutput(command.expected_path, command.report_path, command.result_path);
}

int ModeCalls::Finalize(const std::wstring& native_zip, const std::wstring& source_pcb,
                        std::optional<std::int64_t> space) {
  return FinalizeExport(native_zip, source_pcb, space);
}

bool ModeCalls::FindTemporaryRoot(std::wstring& root) {
  std::wstring error_text;
  return TemporaryRoot(root, error_text);
}

void ModeCalls::Show(const std::wstring& text, MessageIcon icon) {
  ShowMessage(text, icon);
}

int RunCommandLine(const wchar_t* command_line, ModeCalls& calls) noexcept {
  Command command;
  try {
    int count = 0;
    const LocalMemory<wchar_t*> arguments(CommandLineToArgvW(command_line, &count));
    if (!arguments) {
      return kNotACommand;
    }
    command = ParseCommandLine({arguments.Get(), arguments.Get() + count});
  } catch (...) {
    return kNotACommand;
  }
  return RunCommand(command, calls);
}

int RunCommand(const Command& command, ModeCalls& calls) noexcept {
  try {
    return std::visit(Dispatcher{calls}, command);
  } catch (...) {
    WriteLogEntry(L"Unhandled failure");
  }
  try {
    return std::visit(LastResort{calls}, command);
  } catch (...) {
    // Not even its telling had room; the code still does.
    return kFailureCodes[command.index()];
  }
}

}  // namespace kestrune
