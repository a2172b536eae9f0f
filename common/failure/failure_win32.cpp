#include "common/failure/failure_win32.h"

#include <windows.h>

#include "common/failure/failure.h"

namespace kestrune {

void ThrowLastError(const wchar_t* text) {
  const DWORD code = GetLastError();
  throw Failure{text, code};
}

void ThrowLastError(const wchar_t* text, const std::wstring& subject) {
  const DWORD code = GetLastError();
  throw Failure{text, code, subject};
}

}  // namespace kestrune
