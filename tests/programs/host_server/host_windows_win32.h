#pragma once

#include <windows.h>

#include <map>
#include <string>

namespace kestrune {

/// The host's main window with a board in it, and the script's form. Every call must come from the
/// thread that made them; that thread must go on handling messages.
class HostWindows {
 public:
  explicit HostWindows(const std::wstring& title);
  HostWindows(const HostWindows&) = delete;
  HostWindows& operator=(const HostWindows&) = delete;
  ~HostWindows();

  [[nodiscard]] HWND Main() const { return main_; }
  [[nodiscard]] HWND Form() const { return form_; }

  /// Creates the form, hidden and away from the centre, with room inside for `width` by `height`.
  void MakeForm(const std::wstring& caption, int width, int height);
  /// Adds a control of this window class to the form.
  void AddControl(const std::wstring& name, const std::wstring& type, RECT place, bool bold,
                  const std::wstring& text);
  void SetText(const std::wstring& name, const std::wstring& text);
  void SetBar(const std::wstring& name, int max, int position);
  void Enable(const std::wstring& name, bool enabled);
  void ShowForm(bool shown);

 private:
  [[nodiscard]] HWND Control(const std::wstring& name) const;

  HWND main_ = nullptr;
  HWND form_ = nullptr;
  HFONT bold_ = nullptr;
  std::map<std::wstring, HWND> controls_;
};

}  // namespace kestrune
