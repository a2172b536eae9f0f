// clipboard_reader.exe FILE           describes the clipboard in FILE, which appears complete
// clipboard_reader.exe --set TEXT     replaces the content of the clipboard with TEXT
// clipboard_reader.exe --hold FILE MS keeps the clipboard open, so that no other program can open
//                                     it. Creates FILE then, and ends when FILE is deleted or after
//                                     MS milliseconds
//
// The description is UTF-8 with line feeds. Lines of a format that is absent are left out:
//   DropHeader=<pFiles>,<x>,<y>,<fNC>,<fWide>
//   DropSize=<bytes of the CF_HDROP block>
//   Drop=<path>                       once for each file of the CF_HDROP format
//   TextSize=<bytes of the CF_UNICODETEXT block>
//   Text=<CF_UNICODETEXT>
//
// Exit code: 0 done, 1 the clipboard could not be opened within two seconds, 2 something else
// failed, 3 wrong arguments.
#include <windows.h>
#include <shellapi.h>
#include <shlobj.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"
#include "tests/support/real_calls_win32.h"

namespace {

class OpenedClipboard {
 public:
  explicit OpenedClipboard(HWND window) {
    for (int i = 0; i < 100 && !open_; ++i) {
      open_ = OpenClipboard(window) != FALSE;
      if (!open_) {
        Sleep(20);
      }
    }
  }
  OpenedClipboard(const OpenedClipboard&) = delete;
  OpenedClipboard& operator=(const OpenedClipboard&) = delete;
  ~OpenedClipboard() {
    if (open_) {
      CloseClipboard();
    }
  }
  explicit operator bool() const { return open_; }

 private:
  bool open_ = false;
};

std::string DescribeDrop() {
  void* const block = GetClipboardData(CF_HDROP);
  if (block == nullptr) {
    return {};
  }
  DROPFILES header{};
  const void* const bytes = GlobalLock(block);
  if (bytes == nullptr) {
    return {};
  }
  std::memcpy(&header, bytes, sizeof header);
  GlobalUnlock(block);
  std::string text = "DropHeader=" + std::to_string(header.pFiles) + "," +
                     std::to_string(header.pt.x) + "," + std::to_string(header.pt.y) + "," +
                     std::to_string(header.fNC) + "," + std::to_string(header.fWide) +
                     "\nDropSize=" + std::to_string(GlobalSize(block)) + "\n";
  auto* const drop = static_cast<HDROP>(block);
  const UINT count = DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0);
  for (UINT i = 0; i < count; ++i) {
    std::wstring path(DragQueryFileW(drop, i, nullptr, 0), L'\0');
    DragQueryFileW(drop, i, path.data(), static_cast<UINT>(path.size() + 1));
    text += "Drop=" + kestrune::Utf8FromWide(path) + "\n";
  }
  return text;
}

std::string DescribeText() {
  void* const block = GetClipboardData(CF_UNICODETEXT);
  const void* const bytes = block == nullptr ? nullptr : GlobalLock(block);
  if (bytes == nullptr) {
    return {};
  }
  const std::wstring text = static_cast<const wchar_t*>(bytes);
  GlobalUnlock(block);
  return "TextSize=" + std::to_string(GlobalSize(block)) +
         "\nText=" + kestrune::Utf8FromWide(text) + "\n";
}

int Describe(const std::wstring& file) {
  std::string text;
  {
    const OpenedClipboard clipboard(nullptr);
    if (!clipboard) {
      return 1;
    }
    text = DescribeDrop() + DescribeText();
  }
  return kestrune::TryPublishFile(file, text) ? 0 : 2;
}

/// Creates a window of our own, without which another program could open the clipboard too.
HWND MakeWindow() {
  return CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
}

int Set(const std::wstring& text) {
  const std::size_t size = (text.size() + 1) * sizeof(wchar_t);
  kestrune::GlobalMemory block(GlobalAlloc(GMEM_MOVEABLE, size));
  void* const bytes = block ? GlobalLock(block.Get()) : nullptr;
  if (bytes == nullptr) {
    return 2;
  }
  std::memcpy(bytes, text.c_str(), size);
  GlobalUnlock(block.Get());
  const OpenedClipboard clipboard(MakeWindow());
  if (!clipboard) {
    return 1;
  }
  if (!EmptyClipboard() || SetClipboardData(CF_UNICODETEXT, block.Get()) == nullptr) {
    return 2;
  }
  static_cast<void>(block.Release());
  return 0;
}

int Hold(const std::wstring& file, unsigned long milliseconds) {
  const OpenedClipboard clipboard(MakeWindow());
  if (!clipboard) {
    return 1;
  }
  if (!kestrune::TryWriteFile(file, "holding")) {
    return 2;
  }
  const ULONGLONG deadline = GetTickCount64() + milliseconds;
  while (GetTickCount64() < deadline &&
         kestrune::QueryFileKindQuietly(kestrune::RealCalls(), file) ==
             kestrune::FileKind::RegularFile) {
    Sleep(20);
  }
  return 0;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  int count = 0;
  const kestrune::LocalMemory<wchar_t*> owner(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!owner) {
    return 2;
  }
  const std::vector<std::wstring> arguments(owner.Get(), owner.Get() + count);
  if (count == 2) {
    return Describe(arguments[1]);
  }
  if (count == 3 && arguments[1] == L"--set") {
    return Set(arguments[2]);
  }
  if (count == 4 && arguments[1] == L"--hold") {
    return Hold(arguments[2], wcstoul(arguments[3].c_str(), nullptr, 10));
  }
  return 3;
}
