#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "common/desktop/doors_win32.h"

namespace kestrune {

/// Sends an argument line to a running process of the application through the mailslot
/// `mailslot_name` on which it listens. Returns whether the whole message was written.
///
/// Gives the listener the right to take the foreground only if VerifyListenerProcess accepts it as
/// the configured application (`executable_path`, expanded). Any other listener receives the
/// message too.
[[nodiscard]] bool SendToRunningInstance(const Doors& doors, const std::wstring& mailslot_name,
                                         const std::wstring& argument_line,
                                         const std::wstring& executable_path);

/// Returns whether `process` (opened for SYNCHRONIZE and PROCESS_QUERY_LIMITED_INFORMATION) is the
/// running process `process_id`, in this session, of this user, with this image path (ignoring
/// case).
[[nodiscard]] bool VerifyListenerProcess(SystemCalls& calls, HANDLE process,
                                         std::uint32_t process_id,
                                         const std::wstring& executable_path);

/// Writes the line as one message of 1 to 32,767 bytes in the ANSI code page, without a terminating
/// null. Returns false when the name is not a mailslot name of a listener, when a character has no
/// exact equivalent in the code page, when there is no listener, or when not every byte was
/// written.
[[nodiscard]] bool SendMailslotNotice(const std::wstring& mailslot_name,
                                      const std::wstring& argument_line, Desktop& desktop);

}  // namespace kestrune
