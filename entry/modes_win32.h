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
  /// Runs the command and returns the exit code. An exception from it is unexpected; it is logged
  /// and ends the program with `failure_code`.
  int (*run)(const C& command, const Doors& doors) = nullptr;
  int failure_code = 0;
  /// Reports such a failure to the script or user and returns the exit code. If it throws,
  /// `failure_code` is returned. Null for a mode whose failure is reported only by the exit code.
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
