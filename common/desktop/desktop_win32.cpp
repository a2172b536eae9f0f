#include "common/desktop/desktop_win32.h"

#include <objbase.h>

#include "common/system/owners_win32.h"

namespace kestrune {
namespace {

/// Initialises COM for one shell call and keeps the call's last error.
class ComApartment {
 public:
  ComApartment() : entered_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;
  ~ComApartment() {
    const LastErrorKeeper error;
    if (entered_) {
      CoUninitialize();
    }
  }

 private:
  bool entered_;
};

}  // namespace

bool Desktop::HasWindow(HWND window) {
  return IsWindow(window) != FALSE;
}

HWND Desktop::Foreground() {
  return GetForegroundWindow();
}

HMONITOR Desktop::MonitorOf(HWND window) {
  return MonitorFromWindow(window, MONITOR_DEFAULTTOPRIMARY);
}

bool Desktop::ReadMonitor(HMONITOR monitor, MONITORINFO& information) {
  return GetMonitorInfoW(monitor, &information) != FALSE;
}

bool Desktop::ReadRectangle(HWND window, RECT& rectangle) {
  return GetWindowRect(window, &rectangle) != FALSE;
}

bool Desktop::Move(HWND window, HWND insert_after, int x, int y, int width, int height,
                   UINT flags) {
  return SetWindowPos(window, insert_after, x, y, width, height, flags) != FALSE;
}

void Desktop::ShowMessage(const std::wstring& text, MessageIcon icon) {
  MessageBoxW(nullptr, text.c_str(), L"Kestrune", static_cast<UINT>(icon));
}

HGLOBAL Desktop::Allocate(std::size_t size) {
  return GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size);
}

void* Desktop::Lock(HGLOBAL block) {
  return GlobalLock(block);
}

void Desktop::Unlock(HGLOBAL block) {
  GlobalUnlock(block);
}

bool Desktop::OpenClipboard() {
  return ::OpenClipboard(nullptr) != FALSE;
}

void Desktop::EmptyClipboard() {
  ::EmptyClipboard();
}

HANDLE Desktop::SetClipboard(UINT format, HGLOBAL block) {
  return SetClipboardData(format, block);
}

void Desktop::CloseClipboard() {
  ::CloseClipboard();
}

BOOL Desktop::CreateSuspended(const wchar_t* application, wchar_t* command_line,
                              const wchar_t* directory, PROCESS_INFORMATION& process) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  return CreateProcessW(application, command_line, nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                        nullptr, directory, &startup, &process);
}

void Desktop::AllowForeground(DWORD process_id) {
  AllowSetForegroundWindow(process_id);
}

DWORD Desktop::Resume(HANDLE thread) {
  return ResumeThread(thread);
}

void Desktop::Terminate(HANDLE process, DWORD code) {
  TerminateProcess(process, code);
}

BOOL Desktop::Execute(SHELLEXECUTEINFOW& execution) {
  const ComApartment apartment;
  return ShellExecuteExW(&execution);
}

bool Desktop::SendToMailslot(const std::wstring& name, std::string_view message) {
  const FileHandle mailslot(CreateFileW((L"\\\\.\\mailslot\\" + name).c_str(), GENERIC_WRITE,
                                        FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  return mailslot &&
         WriteFile(mailslot.Get(), message.data(), static_cast<DWORD>(message.size()), &written,
                   nullptr) &&
         written == message.size();
}

}  // namespace kestrune
