#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "common/desktop/desktop_win32.h"

namespace kestrune {

/// Offers a finished argument line to a running copy of the application through the mailslot
/// `mailslot_name` that it listens on. True when the whole message was written; every failure is
/// silent and only makes it false.
///
/// A listener that is the configured application (`executable_path`, expanded) of this user in this
/// session is allowed to come to the foreground. Any other one gets the message all the same.
[[nodiscard]] bool SendToRunningInstance(const std::wstring& mailslot_name,
                                         const std::wstring& argument_line,
                                         const std::wstring& executable_path, Desktop& desktop);

/// Whether `process` (opened for SYNCHRONIZE and PROCESS_QUERY_LIMITED_INFORMATION) is the running
/// process `process_id`, in this session, of this user, with this image path (ignoring case).
[[nodiscard]] bool VerifyListenerProcess(HANDLE process, std::uint32_t process_id,
                                         const std::wstring& executable_path, Desktop& desktop);

/// Writes the line as one message of 1 to 32,767 bytes in the ANSI code page, without terminating
/// zero. False when the name is no mailslot name of ours, when a character has no exact equivalent
/// in the code page, when nobody listens, and when not every byte was written.
[[nodiscard]] bool SendMailslotNotice(const std::wstring& mailslot_name,
                                      const std::wstring& argument_line, Desktop& desktop);

}  // namespace kestrune
