#pragma once

#include <string>

#include "common/desktop/desktop_win32.h"

namespace kestrune {

/// Replaces the clipboard's content with the file at `path`: pasting into a folder copies the file,
/// pasting into a text field inserts its full path. Tries once, without an owner window.
///
/// Returns false with "Cannot allocate Clipboard data.", "Cannot open the Windows Clipboard." or
/// "Cannot place the ZIP file on the Windows Clipboard." (unless both formats were accepted).
[[nodiscard]] bool PlaceZipOnClipboard(const std::wstring& path, Desktop& desktop,
                                       std::wstring& error_text);

}  // namespace kestrune
