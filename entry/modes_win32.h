#pragma once

#include <tuple>
#include <variant>

#include "common/desktop/doors_win32.h"
#include "entry/command_line.h"

namespace kestrune {

/// Lists the exit codes of a command line without a mode.
enum CommandLineCode : int {
  kNotACommand = 1,
  kInvalidInstallerLine = 2,
};

/// Describes how the program carries out one kind of command.
template <class C>
struct Mode {
  /// Runs the command and returns the exit code. Throws only for unexpected reasons.
  int (*run)(const C& command, const Doors& doors) = nullptr;
  /// The exit code after an exception that `report_failure` does not report.
  int failure_code = 0;
  /// Reports an exception of `run` to the script or the user, and returns the exit code. Null for a
  /// mode that reports it only by the exit code.
  int (*report_failure)(const C& command, const Doors& doors) = nullptr;
};

template <class Commands>
struct TableOfModes;
template <class... C>
struct TableOfModes<std::variant<C...>> {
  using Type = std::tuple<Mode<C>...>;
};

/// Holds one mode for each kind of command.
using Modes = TableOfModes<Command>::Type;

/// The program's modes. A new mode is a new kind of Command and one row of this table.
extern const Modes kModes;

}  // namespace kestrune
