#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kestrune {

/// `--finalize` and `--finalize-auto`: deliver the host's archive.
struct FinalizeCommand {
  /// Absent for the archive that the host wrote for the temporary project.
  std::optional<std::wstring> native_zip;
  std::wstring source_pcb;
  /// The board's spacing in ten-thousandths of a mil; present only when it is a positive number.
  std::optional<std::int64_t> space;
};

/// Exit codes of `--finalize` and `--finalize-auto`.
enum FinalizeCode : int {
  kDelivered = 0,
  /// The user's local application data or, for the host's own archive, Public Documents.
  kFinalizeNoFolder = 2,
  kNotOnClipboard = 3,
  kFinalizeFailed = 4,
};

}  // namespace kestrune
