#pragma once

#include <string>

namespace kestrune {

/// The icon of a message box, with its style word.
enum class MessageIcon : unsigned { Error = 16, Warning = 48, Information = 64 };

/// Shows a message box titled "Kestrune" without an owner window and waits until it is closed.
void ShowMessage(const std::wstring& text, MessageIcon icon);

}  // namespace kestrune
