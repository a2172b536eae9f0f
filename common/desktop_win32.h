#pragma once

#include <windows.h>

#include <string>

namespace kestrune {

/// The icon of a message box, with its style word.
enum class MessageIcon : unsigned { Error = 16, Warning = 48, Information = 64 };

/// The program's one door to the user's desktop. Tests put a stand-in here for what no machine does
/// on request, and for boxes that nobody is there to close.
class Desktop {
 public:
  Desktop() = default;
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  virtual ~Desktop() = default;

  /// Shows a message box titled "Kestrune" without an owner window and waits until it is closed.
  virtual void ShowMessage(const std::wstring& text, MessageIcon icon);
};

}  // namespace kestrune
