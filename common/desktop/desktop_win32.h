#pragma once

#include <windows.h>
#include <shellapi.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace kestrune {

/// Lists the icons of a message box. The values are the MB_ICON bits of its style.
enum class MessageIcon : unsigned { Error = 16, Warning = 48, Information = 64 };

/// Makes all calls to Windows that involve the user's desktop: windows, message boxes, the
/// clipboard, other applications. A call that fails leaves its code in the thread's last error. One
/// object is created at the start and passed down. Tests derive from it to simulate conditions that
/// a test machine cannot produce: several monitors, a program that demands elevation, a box that
/// closes by itself.
class Desktop {
 public:
  /// `inherited_error_mode` is the error mode that started applications inherit.
  explicit Desktop(UINT inherited_error_mode = GetErrorMode())
      : inherited_error_mode_(inherited_error_mode) {}
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  virtual ~Desktop() = default;

  // Windows on the screen

  /// IsWindow.
  virtual bool HasWindow(HWND window);
  /// GetForegroundWindow.
  virtual HWND Foreground();
  /// MonitorFromWindow; the primary monitor for a window that is on none.
  virtual HMONITOR MonitorOf(HWND window);
  /// GetMonitorInfoW.
  virtual bool ReadMonitor(HMONITOR monitor, MONITORINFO& information);
  /// GetWindowRect.
  virtual bool ReadRectangle(HWND window, RECT& rectangle);
  /// SetWindowPos.
  virtual bool Move(HWND window, HWND insert_after, int x, int y, int width, int height,
                    UINT flags);
  /// Shows a message box titled "Kestrune" without an owner window and waits until it is closed.
  virtual void ShowMessage(const std::wstring& text, MessageIcon icon);

  // The clipboard

  /// GlobalAlloc of a movable, zeroed block.
  virtual HGLOBAL Allocate(std::size_t size);
  /// GlobalLock. Null when it fails.
  virtual void* Lock(HGLOBAL block);
  /// GlobalUnlock.
  virtual void Unlock(HGLOBAL block);
  /// OpenClipboard without an owner window.
  virtual bool OpenClipboard();
  /// EmptyClipboard.
  virtual void EmptyClipboard();
  /// SetClipboardData; null when the block was not accepted, so that the caller still owns it.
  virtual HANDLE SetClipboard(UINT format, HGLOBAL block);
  /// CloseClipboard.
  virtual void CloseClipboard();

  // Starting an application

  [[nodiscard]] UINT InheritedErrorMode() const { return inherited_error_mode_; }

  /// CreateProcessW with a suspended main thread. The process inherits the environment and no
  /// handles.
  virtual BOOL CreateSuspended(const wchar_t* application, wchar_t* command_line,
                               const wchar_t* directory, PROCESS_INFORMATION& process);
  /// AllowSetForegroundWindow.
  virtual void AllowForeground(DWORD process_id);
  /// ResumeThread.
  virtual DWORD Resume(HANDLE thread);
  /// TerminateProcess.
  virtual void Terminate(HANDLE process, DWORD code);
  /// ShellExecuteExW with COM initialised.
  virtual BOOL Execute(SHELLEXECUTEINFOW& execution);

  // An application that runs already

  /// Opens the mailslot `\\.\mailslot\<name>` and writes one message. Returns false unless every
  /// byte was written.
  virtual bool SendToMailslot(const std::wstring& name, std::string_view message);

 private:
  UINT inherited_error_mode_;
};

}  // namespace kestrune
