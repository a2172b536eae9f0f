#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/desktop/doors_win32.h"
#include "export/deliver/finalize_command.h"

namespace kestrune {

/// Delivers the host's archive: copies it under the board's name into the export directory, hands
/// it to the configured application or places it on the clipboard, and shows the user a message.
///
/// Returns the exit code (FinalizeCode).
int FinalizeExport(const FinalizeCommand& command, const Doors& doors);

/// Holds the outcome of a delivery, before a message is shown.
struct FinalizeOutcome {
  /// FinalizeCode.
  int code = kDelivered;
  /// The text for the user; empty when an application accepted the archive.
  std::wstring message;
  MessageIcon icon = MessageIcon::Information;
};

/// Delivers the archive without showing a message. The default export directory lies below
/// `local_app_data`.
FinalizeOutcome DeliverExport(const std::wstring& local_app_data, const std::wstring& native_zip,
                              const std::wstring& source_pcb, std::optional<std::int64_t> space,
                              const Doors& doors);

/// Returns the message for a failed delivery without a more specific one. It names the log.
std::wstring FinalizeFailureMessage(SystemCalls& calls);

}  // namespace kestrune
