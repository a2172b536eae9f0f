#include <windows.h>

#include "common/failure/error_mode_win32.h"
#include "entry/dispatch_win32.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  // The program runs from folders that its user may write to; a DLL planted there must never be
  // loaded.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  const kestrune::ErrorMode error_mode(kestrune::kNoSystemBoxes);
  const auto command = kestrune::ReadCommandLine(GetCommandLineW());
  if (!command) {
    return kestrune::kNotACommand;
  }
  kestrune::SystemCalls system;
  kestrune::Desktop desktop(error_mode.Found());
  return kestrune::RunCommand(*command, kestrune::kModes, {system, desktop});
}
