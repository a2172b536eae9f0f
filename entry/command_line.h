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

/// An installer keyword with options that cannot be read.
struct InvalidInstallerCommand {};

/// Anything that is no command of ours.
struct UnknownCommand {};

using Command =
    std::variant<UnknownCommand, InvalidInstallerCommand, InstallerOptions, PositionWindowCommand,
                 PrepareCommand, WaitNativeCommand, InspectCommand, FinalizeCommand>;

/// Reads the arguments (the first is the program's own path, as Windows splits them) into the one
/// command that this run carries out. Keywords are compared over their whole length and with case;
/// an installer keyword counts only as the first argument behind the path, a runtime keyword only
/// with its exact number of arguments.
Command ParseCommandLine(const std::vector<std::wstring>& arguments);

}  // namespace kestrune
