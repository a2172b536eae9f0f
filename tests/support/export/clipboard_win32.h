#pragma once

#include <string>
#include <vector>

namespace kestrune {

/// Holds what another program finds on the clipboard.
struct ClipboardContent {
  bool readable = false;
  std::vector<std::wstring> files;  // of the file-drop format
  std::wstring text;                // of the Unicode text format
};

ClipboardContent ReadClipboard();

/// Places a text as the only content.
void FillClipboard(const std::wstring& text);

}  // namespace kestrune
