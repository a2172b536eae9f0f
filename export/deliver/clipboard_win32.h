#pragma once

#include <windows.h>

#include <cstddef>
#include <string>

namespace kestrune {

/// The calls that give the clipboard its content. Tests put a stand-in here for memory that runs
/// out and for a clipboard that refuses.
class ClipboardCalls {
 public:
  ClipboardCalls() = default;
  ClipboardCalls(const ClipboardCalls&) = delete;
  ClipboardCalls& operator=(const ClipboardCalls&) = delete;
  virtual ~ClipboardCalls() = default;

  /// GlobalAlloc of a movable block of zeros.
  virtual HGLOBAL Allocate(std::size_t size);
  /// SetClipboardData; null when the block was not accepted and stays the caller's.
  virtual HANDLE Place(UINT format, HGLOBAL block);
};

/// Replaces the clipboard's content by the file at `path`: a paste into a file window copies the
/// file, a paste into a text field inserts its full path. One attempt, without an owner window.
///
/// False with "Cannot allocate Clipboard data.", "Cannot open the Windows Clipboard." or "Cannot
/// place the ZIP file on the Windows Clipboard." (unless both formats were accepted).
[[nodiscard]] bool PlaceZipOnClipboard(const std::wstring& path, std::wstring& error_text);

/// The same through `calls`.
[[nodiscard]] bool PlaceZipOnClipboard(const std::wstring& path, ClipboardCalls& calls,
                                       std::wstring& error_text);

}  // namespace kestrune
