#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kestrune {

/// Lists the installer's commands. The values are fixed, since setup programs rely on them.
enum class InstallerCommand : std::int32_t { Install = 0, Update = 1, Uninstall = 2, Status = 3 };

/// Holds an installer command with its options from the command line.
struct InstallerOptions {
  InstallerCommand command = InstallerCommand::Install;
  /// Only instances of this major version; 0 for all.
  std::int32_t major = 0;
  /// Only the instance with this GUID (with braces, any case); empty for all.
  std::wstring profile;
  /// The directory of the package to deploy; empty to search beside the program.
  std::wstring package;
  /// The file that receives the report; absent when none is wanted.
  std::optional<std::wstring> report;
  /// Whether the result is shown in no message box.
  bool quiet = false;
};

/// Lists the exit codes of the installer's commands; setup programs rely on them.
enum InstallerCode : std::int32_t {
  /// For `--status`: installed in every instance.
  kInstallerDone = 0,
  /// `--status` found an instance where it is not installed.
  kStatusProblem = 10,
  kNoInstance = 20,
  /// A host is running; not used by `--status`.
  kHostRuns = 30,
  /// An instance was skipped or failed, or the whole command failed.
  kInstallerFailed = 40,
};

/// Holds the result of an installer command.
struct InstallerResult {
  /// The process exit code (InstallerCode).
  std::int32_t code = 1;
  /// The report over all instances, for the user.
  std::wstring message;
};

}  // namespace kestrune
