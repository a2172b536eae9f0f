#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/desktop/doors_win32.h"
#include "export/deliver/finalize_command.h"

namespace kestrune {

/// Delivers the host's archive: copies it under the board's name into the export directory, hands
/// it to the configured application or places it on the clipboard, and tells the user.
///
/// Returns the exit code (FinalizeCode).
int FinalizeExport(const FinalizeCommand& command, const Doors& doors);

/// How a delivery ended, before the user is told.
struct FinalizeOutcome {
  /// FinalizeCode.
  int code = kDelivered;
  /// What the user is told; empty when an application took the archive over.
  std::wstring message;
  MessageIcon icon = MessageIcon::Information;
};

/// The delivery itself. `local_app_data` is the folder below which the default export directory
/// lies.
FinalizeOutcome DeliverExport(const std::wstring& local_app_data, const std::wstring& native_zip,
                              const std::wstring& source_pcb, std::optional<std::int64_t> space,
                              const Doors& doors);

/// The message for a failed delivery that has no text of its own: it names the log.
std::wstring FinalizeFailureMessage();

}  // namespace kestrune
