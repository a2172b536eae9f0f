#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/known_folders_win32.h"
#include "common/message_box_win32.h"

namespace kestrune {

/// The exit code of a delivery that failed.
inline constexpr int kFinalizeFailed = 4;

/// Delivers the host's archive: copies it under the board's name into the export directory, hands
/// it to the configured application or places it on the clipboard, and tells the user.
///
/// `space` is the board's spacing in ten-thousandths of a mil, positive when present.
///
/// Returns the exit code of `--finalize`: 0 delivered, 2 no local application data, 3 copied but
/// not on the clipboard, 4 failed.
int FinalizeExport(const std::wstring& native_zip, const std::wstring& source_pcb,
                   std::optional<std::int64_t> space);

/// How a delivery ended, before the user is told.
struct FinalizeOutcome {
  /// The exit code of `--finalize`.
  int code = 0;
  /// What the user is told; empty when an application took the archive over.
  std::wstring message;
  MessageIcon icon = MessageIcon::Information;
};

/// All of FinalizeExport but the message box, which waits for a person.
FinalizeOutcome FinalizeQuietly(const std::wstring& native_zip, const std::wstring& source_pcb,
                                std::optional<std::int64_t> space, FolderCalls& folders);

/// The delivery itself. `local_app_data` is the folder below which the default export directory
/// lies.
FinalizeOutcome DeliverExport(const std::wstring& local_app_data, const std::wstring& native_zip,
                              const std::wstring& source_pcb, std::optional<std::int64_t> space);

/// The message for a failed delivery that has no text of its own: it names the log.
std::wstring FinalizeFailureMessage();

}  // namespace kestrune
