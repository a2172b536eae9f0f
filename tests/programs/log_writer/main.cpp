// log_writer NUMBER COUNT: writes COUNT entries into the diagnostic log, as fast as it can.
#include <windows.h>
#include <shellapi.h>

#include <cwchar>
#include <string>

#include "common/log/log_win32.h"
#include "common/system/owners_win32.h"
#include "tests/support/real_calls_win32.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  int count = 0;
  const kestrune::LocalMemory<wchar_t*> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!arguments || count != 3) {
    return 1;
  }
  const std::wstring number = arguments.Get()[1];
  const long entries = std::wcstol(arguments.Get()[2], nullptr, 10);
  for (long i = 0; i < entries; ++i) {
    kestrune::WriteLogEntry(kestrune::RealCalls(), L"Writer " + number,
                            L"Entry=" + std::to_wstring(i) + L" End=yes");
  }
  return 0;
}
