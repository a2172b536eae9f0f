#include "export/deliver/clipboard_win32.h"

#include <windows.h>
#include <shlobj.h>

#include <cstring>

#include "common/owners_win32.h"

namespace kestrune {
namespace {

/// The clipboard, held open.
class ClipboardSession {
 public:
  ClipboardSession() : open_(OpenClipboard(nullptr) != FALSE) {}
  ClipboardSession(const ClipboardSession&) = delete;
  ClipboardSession& operator=(const ClipboardSession&) = delete;
  ~ClipboardSession() {
    if (open_) {
      CloseClipboard();
    }
  }
  explicit operator bool() const { return open_; }

 private:
  bool open_;
};

bool CopyInto(const GlobalMemory& block, std::size_t offset, const void* bytes, std::size_t size) {
  auto* const memory = static_cast<char*>(GlobalLock(block.Get()));
  if (memory == nullptr) {
    return false;
  }
  std::memcpy(memory + offset, bytes, size);
  GlobalUnlock(block.Get());
  return true;
}

/// Hands the block to the open clipboard; one that is not accepted stays the caller's.
bool Place(UINT format, GlobalMemory& block, ClipboardCalls& calls) {
  if (calls.Place(format, block.Get()) == nullptr) {
    return false;
  }
  static_cast<void>(block.Release());
  return true;
}

}  // namespace

HGLOBAL ClipboardCalls::Allocate(std::size_t size) {
  return GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size);
}

HANDLE ClipboardCalls::Place(UINT format, HGLOBAL block) {
  return SetClipboardData(format, block);
}

bool PlaceZipOnClipboard(const std::wstring& path, std::wstring& error_text) {
  ClipboardCalls calls;
  return PlaceZipOnClipboard(path, calls, error_text);
}

bool PlaceZipOnClipboard(const std::wstring& path, ClipboardCalls& calls,
                         std::wstring& error_text) {
  // The shell reads a list of files behind the header: each path ends with a zero, the list with
  // one more.
  DROPFILES header{};
  static_assert(sizeof header == 20);
  header.pFiles = sizeof header;
  header.fWide = TRUE;
  const std::size_t path_size = 2 * path.size() + 2;
  GlobalMemory drop(calls.Allocate(sizeof header + path_size + 2));
  GlobalMemory text(calls.Allocate(path_size));
  if (!drop || !text || !CopyInto(drop, 0, &header, sizeof header) ||
      !CopyInto(drop, sizeof header, path.c_str(), path_size) ||
      !CopyInto(text, 0, path.c_str(), path_size)) {
    error_text = L"Cannot allocate Clipboard data.";
    return false;
  }
  const ClipboardSession clipboard;
  if (!clipboard) {
    error_text = L"Cannot open the Windows Clipboard.";
    return false;
  }
  EmptyClipboard();
  const bool drop_placed = Place(CF_HDROP, drop, calls);
  const bool text_placed = Place(CF_UNICODETEXT, text, calls);
  if (!drop_placed || !text_placed) {
    error_text = L"Cannot place the ZIP file on the Windows Clipboard.";
  }
  return drop_placed && text_placed;
}

}  // namespace kestrune
