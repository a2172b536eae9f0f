#include <windows.h>
#include <shellapi.h>

#include <string>
#include <variant>
#include <vector>

#include "common/known_folders_win32.h"
#include "common/log_win32.h"
#include "common/message_box_win32.h"
#include "common/owners_win32.h"
#include "common/path.h"
#include "entry/command_line.h"
#include "entry/prepare_status_win32.h"
#include "export/finalize_win32.h"
#include "export/native_wait_win32.h"
#include "export/prepare_win32.h"
#include "export/window_position_win32.h"
#include "install/installer_win32.h"

namespace kestrune {
namespace {

constexpr int kNotACommand = 1;
constexpr int kInvalidInstallerLine = 2;
constexpr int kNoTemporaryRoot = 2;
constexpr int kStatusNotPublished = 10;

/// The program's own path in a buffer of the classic length: a path that does not fit comes out
/// cut, and deploying from it then fails with its own text.
std::wstring ProgramPath() {
  wchar_t buffer[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameW(nullptr, buffer, MAX_PATH);
  return std::wstring(buffer, length);
}

/// Tells a script that asked for it how the preparation ended; answers the exit code.
int PublishOutcome(const PrepareCommand& command, int prepare_code) {
  if (command.status_path && !PublishPrepareStatus(*command.status_path, prepare_code)) {
    WriteLogEntry(L"Prepare status failed", L"Cannot publish completion result");
    return kStatusNotPublished;
  }
  return prepare_code;
}

/// One overload for each command: carries it out and answers the process exit code.
struct Dispatcher {
  int operator()(const UnknownCommand&) const {
    ShowMessage(L"This helper is started by the Kestrune script.", MessageIcon::Information);
    return kNotACommand;
  }

  int operator()(const InvalidInstallerCommand&) const {
    ShowMessage(L"Invalid installer command line.", MessageIcon::Error);
    return kInvalidInstallerLine;
  }

  int operator()(const InstallerOptions& options) const {
    const InstallerResult result = RunInstallerCommand(options, ProgramPath());
    if (!options.quiet) {
      ShowMessage(result.message,
                  result.code == 0 ? MessageIcon::Information : MessageIcon::Warning);
    }
    return result.code;
  }

  int operator()(const PositionWindowCommand& command) const {
    return PositionWindow(command.target, command.reference);
  }

  int operator()(const PrepareCommand& command) const {
    return PublishOutcome(command,
                          PrepareTemporaryProject(command.source_pcb, command.dependency_list,
                                                  command.used_layer_manifest));
  }

  int operator()(const WaitNativeCommand& command) const {
    return WaitForNativeOutput(command.expected_path, command.report_path, command.result_path);
  }

  int operator()(const FinalizeAutoCommand& command) const {
    std::wstring root;
    std::wstring error_text;
    if (!TemporaryRoot(root, error_text)) {
      return kNoTemporaryRoot;
    }
    const std::wstring outputs = JoinPath(JoinPath(root, L"Project Outputs for Bridge"), L"ODB");
    return FinalizeExport(JoinPath(outputs, L"Bridge.zip"), command.source_pcb, command.space);
  }

  int operator()(const FinalizeCommand& command) const {
    return FinalizeExport(command.native_zip, command.source_pcb, std::nullopt);
  }
};

/// What a command answers when a failure escaped it that nothing expects, such as memory running
/// out: its own failure code, and never a crash dialog.
struct LastResort {
  int operator()(const UnknownCommand&) const { return kNotACommand; }
  int operator()(const InvalidInstallerCommand&) const { return kInvalidInstallerLine; }
  int operator()(const InstallerOptions& options) const {
    if (!options.quiet) {
      ShowMessage(L"The installer failed unexpectedly.", MessageIcon::Warning);
    }
    return 40;
  }
  int operator()(const PositionWindowCommand&) const { return 3; }
  int operator()(const PrepareCommand& command) const { return PublishOutcome(command, 4); }
  int operator()(const WaitNativeCommand&) const { return 5; }
  int operator()(const FinalizeAutoCommand&) const { return FinalizeFailed(); }
  int operator()(const FinalizeCommand&) const { return FinalizeFailed(); }

 private:
  static int FinalizeFailed() {
    ShowMessage(FinalizeFailureMessage(), MessageIcon::Error);
    return 4;
  }
};

int RunCommand(const Command& command) {
  try {
    return std::visit(Dispatcher{}, command);
  } catch (...) {
    WriteLogEntry(L"Unhandled failure");
    return std::visit(LastResort{}, command);
  }
}

int Run() {
  // The program runs from folders that its user may write: a DLL planted there must never load.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  int count = 0;
  const LocalMemory<wchar_t*> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!arguments) {
    return kNotACommand;
  }
  return RunCommand(ParseCommandLine({arguments.Get(), arguments.Get() + count}));
}

}  // namespace
}  // namespace kestrune

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  return kestrune::Run();
}
