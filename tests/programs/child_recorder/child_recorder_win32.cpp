// child_recorder.exe [ANYTHING...]: records how it was started and ends. It replaces the
// application that receives an export.
//
// The record goes to the file named by KESTRUNE_CHILD_RECORD, else to <own path>.record. It is
// written beside that file and then renamed. UTF-16LE without byte order mark, lines end with a
// line feed; the raw command line is last, since it may contain any character:
//   Directory=<working directory>
//   Marker=<value of KESTRUNE_CHILD_MARKER>
//   HandlePath=<file of the handle numbered KESTRUNE_CHILD_HANDLE, empty when there is none>
//   StartupFlags=<dwFlags of the start-up information, decimal>
//   CommandLine=<raw command line up to the end of the file>
//
// KESTRUNE_CHILD_EXIT is its exit code (default 0), KESTRUNE_CHILD_LINGER the milliseconds that it
// stays alive after the record is written (default 0).
#include <windows.h>

#include <cstdint>
#include <string>

#include "common/places/program_path_win32.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"
#include "tests/support/process/program_run_win32.h"
#include "tests/support/real_calls_win32.h"

namespace {

DWORD NumericVariable(const wchar_t* name) {
  return static_cast<DWORD>(wcstoul(kestrune::EnvironmentVariable(name).c_str(), nullptr, 10));
}

std::wstring WorkingDirectory() {
  std::wstring path(32768, L'\0');
  path.resize(GetCurrentDirectoryW(static_cast<DWORD>(path.size()), path.data()));
  return path;
}

std::wstring HandlePath() {
  const std::uintptr_t number = NumericVariable(L"KESTRUNE_CHILD_HANDLE");
  if (number == 0) {
    return {};
  }
  // The parent process can pass a handle only as a number.
  auto* const handle = reinterpret_cast<HANDLE>(number);  // NOLINT(performance-no-int-to-ptr)
  std::wstring path(32768, L'\0');
  const DWORD length =
      GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), 0);
  path.resize(length < path.size() ? length : 0);
  return path;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  STARTUPINFOW startup{};
  GetStartupInfoW(&startup);
  const std::wstring record = L"Directory=" + WorkingDirectory() + L"\nMarker=" +
                              kestrune::EnvironmentVariable(L"KESTRUNE_CHILD_MARKER") +
                              L"\nHandlePath=" + HandlePath() + L"\nStartupFlags=" +
                              kestrune::Decimal(startup.dwFlags) + L"\nCommandLine=" +
                              GetCommandLineW();
  std::wstring target = kestrune::EnvironmentVariable(L"KESTRUNE_CHILD_RECORD");
  if (target.empty()) {
    target = kestrune::ProgramPath(kestrune::RealCalls(), 32768) + L".record";
  }
  const std::string_view bytes(reinterpret_cast<const char*>(record.data()),
                               record.size() * sizeof(wchar_t));
  if (!kestrune::TryPublishFile(target, bytes)) {
    return 99;
  }
  Sleep(NumericVariable(L"KESTRUNE_CHILD_LINGER"));
  return static_cast<int>(NumericVariable(L"KESTRUNE_CHILD_EXIT"));
}
