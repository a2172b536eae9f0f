#pragma once

#include <string>

#include "common/desktop/desktop_win32.h"

namespace kestrune {

/// Replaces the clipboard's content by the file at `path`: a paste into a file window copies the
/// file, a paste into a text field inserts its full path. One attempt, without an owner window.
///
/// False with "Cannot allocate Clipboard data.", "Cannot open the Windows Clipboard." or "Cannot
/// place the ZIP file on the Windows Clipboard." (unless both formats were accepted).
[[nodiscard]] bool PlaceZipOnClipboard(const std::wstring& path, Desktop& desktop,
                                       std::wstring& error_text);

}  // namespace kestrune
