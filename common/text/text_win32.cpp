#include "common/text/text_win32.h"

namespace kestrune {
namespace {

bool IsUtf8(UINT code_page) {
  return code_page == CP_UTF8 || (code_page == CP_ACP && GetACP() == CP_UTF8);
}

/// Converts the text with the given flags. Returns an empty string on failure.
std::string Convert(std::wstring_view text, UINT code_page, DWORD flags, BOOL* used_default) {
  const int length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(code_page, flags, text.data(), length, nullptr, 0, nullptr, used_default);
  if (size <= 0) {
    return {};
  }
  std::string bytes(static_cast<std::size_t>(size), '\0');
  if (WideCharToMultiByte(code_page, flags, text.data(), length, bytes.data(), size, nullptr,
                          used_default) != size) {
    return {};
  }
  return bytes;
}

}  // namespace

std::wstring WideFromAnsi(std::string_view bytes, UINT code_page) {
  const int length = static_cast<int>(bytes.size());
  const int size = MultiByteToWideChar(code_page, 0, bytes.data(), length, nullptr, 0);
  if (size <= 0) {
    return {};
  }
  std::wstring text(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(code_page, 0, bytes.data(), length, text.data(), size);
  return text;
}

bool AnsiFromWide(std::wstring_view text, std::string& bytes, UINT code_page) {
  BOOL used_default = FALSE;
  bytes = IsUtf8(code_page) ? Convert(text, code_page, WC_ERR_INVALID_CHARS, nullptr)
                            : Convert(text, code_page, WC_NO_BEST_FIT_CHARS, &used_default);
  if (used_default != FALSE) {
    bytes.clear();
  }
  return !bytes.empty() || text.empty();
}

std::string AnsiFromWideLossy(std::wstring_view text, UINT code_page) {
  return Convert(text, code_page, 0, nullptr);
}

bool IsLeadByte(char byte, UINT code_page) {
  return IsDBCSLeadByteEx(code_page, static_cast<BYTE>(byte)) != FALSE;
}

bool SurvivesAnsiRoundTrip(std::wstring_view text) {
  const std::string bytes = AnsiFromWideLossy(text);
  return !bytes.empty() && WideFromAnsi(bytes) == text;
}

}  // namespace kestrune
