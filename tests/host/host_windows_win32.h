#pragma once

#include <windows.h>

#include <string>

namespace kestrune {

/// The host's main window with a board in it, and the script's wait window. Both live in the thread
/// that made them; that thread must go on answering messages.
class HostWindows {
 public:
  explicit HostWindows(const std::wstring& board_name);
  HostWindows(const HostWindows&) = delete;
  HostWindows& operator=(const HostWindows&) = delete;
  ~HostWindows();

  [[nodiscard]] HWND Main() const { return main_; }
  [[nodiscard]] HWND Wait() const { return wait_; }

  /// Shows step `number` of six. May be called from any thread.
  void ShowStep(int number, const std::wstring& text);
  /// May be called from any thread.
  void HideWait();

 private:
  HWND main_ = nullptr;
  HWND wait_ = nullptr;
  HWND step_ = nullptr;
  HWND bar_ = nullptr;
};

}  // namespace kestrune
