#pragma once

#include <optional>

#include "entry/modes_win32.h"

namespace kestrune {

/// Splits the process's command line as Windows does and reads it. Nothing when Windows cannot
/// split it or memory runs out.
std::optional<Command> ReadCommandLine(const wchar_t* command_line) noexcept;

/// Carries out one command with its mode and returns its exit code. A failure that escaped the mode
/// because nothing expects it, such as memory running out, is logged with what was thrown and ends
/// with the mode's own failure code, reported in the mode's own way as far as that is still
/// possible; never with a crash box.
int RunCommand(const Command& command, const Modes& modes, const Doors& doors) noexcept;

}  // namespace kestrune
