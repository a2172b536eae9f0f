#include "common/message_box_win32.h"

#include <windows.h>

namespace kestrune {

void ShowMessage(const std::wstring& text, MessageIcon icon) {
  MessageBoxW(nullptr, text.c_str(), L"Kestrune", static_cast<UINT>(icon));
}

}  // namespace kestrune
