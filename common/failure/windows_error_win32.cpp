#include "common/failure/windows_error_win32.h"

#include "common/system/owners_win32.h"

namespace kestrune {

std::wstring WindowsErrorText(std::uint32_t code) {
  LocalMemory<wchar_t> message;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, code, 0, reinterpret_cast<wchar_t*>(message.Put()), 0, nullptr);
  if (length == 0) {
    return L"Unknown Windows error";
  }
  std::wstring text(message.Get(), length);
  text.erase(text.find_last_not_of(L"\r\n") + 1);
  return text;
}

bool MeansAbsent(std::uint32_t code) {
  return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND ||
         code == ERROR_BAD_NETPATH || code == ERROR_INVALID_NAME || code == ERROR_DIRECTORY;
}

}  // namespace kestrune
