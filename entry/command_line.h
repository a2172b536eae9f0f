#pragma once

#include <string>
#include <variant>
#include <vector>

#include "export/deliver/finalize_command.h"
#include "export/inspect/inspect_command.h"
#include "export/prepare/prepare_command.h"
#include "export/wait/native_wait_command.h"
#include "export/wait/window_position_command.h"
#include "install/installer_options.h"

namespace kestrune {

/// Describes an installer keyword with invalid options.
struct InvalidInstallerCommand {};

/// Describes a command line without a known keyword.
struct UnknownCommand {};

using Command =
    std::variant<UnknownCommand, InvalidInstallerCommand, InstallerOptions, PositionWindowCommand,
                 PrepareCommand, WaitNativeCommand, InspectCommand, FinalizeCommand>;

/// Parses the arguments as Windows splits them (the first is the program's own path) into the
/// command of this run. Keywords are case-sensitive. An installer keyword counts only as the first
/// argument after the path, the keyword of any other mode also only with its exact number of
/// arguments.
Command ParseCommandLine(const std::vector<std::wstring>& arguments);

}  // namespace kestrune
