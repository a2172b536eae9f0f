#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "install/installer_options.h"

namespace kestrune {

/// `--prepare`: build the throw-away project around a board.
struct PrepareCommand {
  std::wstring source_pcb;
  std::wstring dependency_list;
  std::wstring used_layer_manifest;
  /// Where the outcome is published for the script; absent when it did not ask.
  std::optional<std::wstring> status_path;
};

/// `--wait-native`: wait until the host has written its archive.
struct WaitNativeCommand {
  std::wstring expected_path;
  std::wstring report_path;
  std::wstring result_path;
};

/// `--finalize`: deliver the archive at a given path.
struct FinalizeCommand {
  std::wstring native_zip;
  std::wstring source_pcb;
};

/// `--finalize-auto`: deliver the archive that the host wrote for the temporary project.
struct FinalizeAutoCommand {
  std::wstring source_pcb;
  /// Spacing in ten-thousandths of a mil; present only when it is a positive number.
  std::optional<std::int64_t> space;
};

/// `--position-window`: centre one window on the monitor of another. The handles are numbers as
/// written; a host may print them sign-extended to 64 bits.
struct PositionWindowCommand {
  std::uint64_t target = 0;
  std::uint64_t reference = 0;
};

/// An installer keyword with options that cannot be read.
struct InvalidInstallerCommand {};

/// Anything that is no command of ours.
struct UnknownCommand {};

using Command =
    std::variant<UnknownCommand, InvalidInstallerCommand, InstallerOptions, PositionWindowCommand,
                 PrepareCommand, WaitNativeCommand, FinalizeAutoCommand, FinalizeCommand>;

/// Reads the arguments (the first is the program's own path, as Windows splits them) into the one
/// command that this run carries out. Keywords are compared over their whole length and with case;
/// an installer keyword counts only as the first argument behind the path, a runtime keyword only
/// with its exact number of arguments.
Command ParseCommandLine(const std::vector<std::wstring>& arguments);

}  // namespace kestrune
