#include "tests/support/export/clipboard_win32.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <shellapi.h>

#include <cstring>

#include "common/system/owners_win32.h"

namespace kestrune {
namespace {

/// Opens the clipboard with retries, since other programs open it whenever it changes.
class OpenedClipboard {
 public:
  OpenedClipboard() {
    for (int i = 0; i < 200 && !opened_; ++i) {
      opened_ = OpenClipboard(nullptr) != FALSE;
      if (!opened_) {
        Sleep(10);
      }
    }
  }
  OpenedClipboard(const OpenedClipboard&) = delete;
  OpenedClipboard& operator=(const OpenedClipboard&) = delete;
  ~OpenedClipboard() {
    if (opened_) {
      CloseClipboard();
    }
  }
  explicit operator bool() const { return opened_; }

 private:
  bool opened_ = false;
};

}  // namespace

ClipboardContent ReadClipboard() {
  ClipboardContent content;
  const OpenedClipboard clipboard;
  content.readable = static_cast<bool>(clipboard);
  if (!clipboard) {
    return content;
  }
  const auto drop = static_cast<HDROP>(GetClipboardData(CF_HDROP));
  const UINT files = drop != nullptr ? DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0) : 0;
  for (UINT i = 0; i < files; ++i) {
    std::wstring path(DragQueryFileW(drop, i, nullptr, 0) + 1, L'\0');
    path.resize(DragQueryFileW(drop, i, path.data(), static_cast<UINT>(path.size())));
    content.files.push_back(path);
  }
  const HANDLE text = GetClipboardData(CF_UNICODETEXT);
  if (const void* const memory = text != nullptr ? GlobalLock(text) : nullptr) {
    content.text = static_cast<const wchar_t*>(memory);
    GlobalUnlock(text);
  }
  return content;
}

void FillClipboard(const std::wstring& text) {
  const OpenedClipboard clipboard;
  ASSERT_TRUE(static_cast<bool>(clipboard));
  ASSERT_TRUE(EmptyClipboard());
  const std::size_t size = (text.size() + 1) * sizeof(wchar_t);
  GlobalMemory memory(GlobalAlloc(GMEM_MOVEABLE, size));
  std::memcpy(GlobalLock(memory.Get()), text.c_str(), size);
  GlobalUnlock(memory.Get());
  ASSERT_NE(SetClipboardData(CF_UNICODETEXT, memory.Get()), nullptr);
  static_cast<void>(memory.Release());
}

}  // namespace kestrune
