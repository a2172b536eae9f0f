#include "common/desktop_win32.h"

namespace kestrune {

void Desktop::ShowMessage(const std::wstring& text, MessageIcon icon) {
  MessageBoxW(nullptr, text.c_str(), L"Kestrune", static_cast<UINT>(icon));
}

}  // namespace kestrune
