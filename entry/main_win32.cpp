#include <windows.h>

#include "common/failure/error_mode_win32.h"
#include "entry/dispatch_win32.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  // Loads no DLL from the program's own folder, to which the user may write.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  const kestrune::ErrorMode error_mode(kestrune::kNoSystemBoxes);
  const auto command = kestrune::ReadCommandLine(GetCommandLineW());
  if (!command) {
    return kestrune::kNotACommand;
  }
  kestrune::SystemCalls system;
  kestrune::Desktop desktop(error_mode.Previous());
  return kestrune::RunCommand(*command, kestrune::kModes, {system, desktop});
}
