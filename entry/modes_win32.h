#pragma once

#include <tuple>
#include <variant>

#include "common/desktop/doors_win32.h"
#include "entry/command_line.h"

namespace kestrune {

/// Exit codes of a command line that is no mode.
enum CommandLineCode : int {
  kNotACommand = 1,
  kInvalidInstallerLine = 2,
};

/// All that the program knows about one kind of command.
template <class C>
struct Mode {
  /// Carries the command out and returns the exit code. What it throws is unexpected: it is logged
  /// and ends with `failure_code`.
  int (*run)(const C& command, const Doors& doors) = nullptr;
  int failure_code = 0;
  /// Reports such a failure to whom waits for the mode, and returns the exit code. May throw:
  /// `failure_code` then still holds. Null for a mode whose failure only the exit code reports.
  int (*report_failure)(const C& command, const Doors& doors) = nullptr;
};

template <class Commands>
struct TableOfModes;
template <class... C>
struct TableOfModes<std::variant<C...>> {
  using Type = std::tuple<Mode<C>...>;
};

/// One mode for each kind of command.
using Modes = TableOfModes<Command>::Type;

/// The program's modes. A new mode is a new kind of Command and one row of this table.
extern const Modes kModes;

}  // namespace kestrune
