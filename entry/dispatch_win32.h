#pragma once

#include <optional>

#include "entry/modes_win32.h"

namespace kestrune {

/// Splits the process's command line as Windows does and parses it. Returns nothing when Windows
/// cannot split it or memory runs out.
std::optional<Command> ReadCommandLine(const wchar_t* command_line) noexcept;

/// Runs one command in its mode and returns the exit code. An unexpected exception, such as running
/// out of memory, is logged and passed to the mode's `report_failure`. Without that function, or if
/// it throws, the mode's failure code is returned.
// NOLINTNEXTLINE(bugprone-exception-escape): the definition says why not
int RunCommand(const Command& command, const Modes& modes, const Doors& doors) noexcept;

}  // namespace kestrune
