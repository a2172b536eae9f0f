#include "export/deliver/clipboard_win32.h"

#include <windows.h>
#include <shlobj.h>

#include <cstring>

#include "common/system/owners_win32.h"

namespace kestrune {
namespace {

/// Keeps the clipboard open for its lifetime.
class ClipboardSession {
 public:
  explicit ClipboardSession(Desktop& desktop) : desktop_(desktop), open_(desktop.OpenClipboard()) {}
  ClipboardSession(const ClipboardSession&) = delete;
  ClipboardSession& operator=(const ClipboardSession&) = delete;
  ~ClipboardSession() {
    if (open_) {
      desktop_.CloseClipboard();
    }
  }
  explicit operator bool() const { return open_; }

 private:
  Desktop& desktop_;
  bool open_;
};

bool CopyInto(Desktop& desktop, const GlobalMemory& block, std::size_t offset, const void* bytes,
              std::size_t size) {
  auto* const memory = static_cast<char*>(desktop.Lock(block.Get()));
  if (memory == nullptr) {
    return false;
  }
  std::memcpy(memory + offset, bytes, size);
  desktop.Unlock(block.Get());
  return true;
}

/// Passes the block to the open clipboard. The caller keeps a block that is not accepted.
bool Place(UINT format, GlobalMemory& block, Desktop& desktop) {
  if (desktop.SetClipboard(format, block.Get()) == nullptr) {
    return false;
  }
  static_cast<void>(block.Release());
  return true;
}

}  // namespace

bool PlaceZipOnClipboard(const std::wstring& path, Desktop& desktop, std::wstring& error_text) {
  // The shell expects the list of files after the header: each path ends with a null, the list with
  // one more.
  DROPFILES header{};
  static_assert(sizeof header == 20);
  header.pFiles = sizeof header;
  header.fWide = TRUE;
  const std::size_t path_size = 2 * path.size() + 2;
  GlobalMemory drop(desktop.Allocate(sizeof header + path_size + 2));
  GlobalMemory text(desktop.Allocate(path_size));
  if (!drop || !text || !CopyInto(desktop, drop, 0, &header, sizeof header) ||
      !CopyInto(desktop, drop, sizeof header, path.c_str(), path_size) ||
      !CopyInto(desktop, text, 0, path.c_str(), path_size)) {
    error_text = L"Cannot allocate Clipboard data.";
    return false;
  }
  const ClipboardSession clipboard(desktop);
  if (!clipboard) {
    error_text = L"Cannot open the Windows Clipboard.";
    return false;
  }
  desktop.EmptyClipboard();
  const bool drop_placed = Place(CF_HDROP, drop, desktop);
  const bool text_placed = Place(CF_UNICODETEXT, text, desktop);
  if (!drop_placed || !text_placed) {
    error_text = L"Cannot place the ZIP file on the Windows Clipboard.";
  }
  return drop_placed && text_placed;
}

}  // namespace kestrune
