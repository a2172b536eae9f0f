// setup_stand_in.exe replaces Kestrune.exe inside a setup program, so that each of its results can
// be produced without an Altium Designer. In the folder named by KESTRUNE_STAND_IN:
//   `answer` the exit code, decimal; a second line is the code of every later start.
//            With a minus sign it waits before that until the folder holds a file `go`
//   calls    gets one line for each start: the raw command line, UTF-8
//   report   the bytes of the report for --report; without it there is one that fits the code
//   status   the same for --status, which always gives code 0
// With code 0 or 40 of --install it copies itself into the runtime, as the real one does. Without
// --quiet it shows a report box titled "Kestrune".
#include <windows.h>

#include <shlobj.h>

#include <string>

#include "common/desktop/desktop_win32.h"
#include "common/places/program_path_win32.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"
#include "tests/support/process/program_run_win32.h"
#include "tests/support/real_calls_win32.h"

namespace {

/// Returns the value after the switch on a command line with values in quotes.
std::wstring QuotedValue(const std::wstring& line, const std::wstring& name) {
  const std::size_t at = line.find(name + L" \"");
  if (at == std::wstring::npos) {
    return {};
  }
  const std::size_t begin = at + name.size() + 2;
  return line.substr(begin, line.find(L'"', begin) - begin);
}

std::string DefaultReport(const std::wstring& line, int code) {
  const std::string head =
      "Altium Designer 24\r\nGUID: {1}\r\nProfile: C:\\p\r\nHKCU: Software\\b\r\n";
  if (code == 20) {
    return "No Altium instance found.";
  }
  if (code == 40) {
    return head + "FAILED: set by the test\r\n";
  }
  return head + (line.find(L" --uninstall") != std::wstring::npos
                     ? "Registration removed; shared runtime retained.\r\n"
                     : "Installed/updated and validated.\r\n");
}

/// Writes the report with its mark if the command line requests one.
bool WriteReport(const std::wstring& line, const std::wstring& given, int code) {
  const std::wstring file = QuotedValue(line, L"--report");
  std::string report;
  if (!kestrune::TryReadFile(given, 1 << 20, report)) {
    report = DefaultReport(line, code);
  }
  return file.empty() || kestrune::TryWriteFile(file, "\xEF\xBB\xBF" + report);
}

int NextAnswer(const std::wstring& file) {
  std::string answers;
  if (!kestrune::TryReadFile(file, 100, answers))
    return 99;
  const std::size_t line_end = answers.find('\n');
  if (line_end != std::string::npos && line_end + 1 < answers.size() &&
      !kestrune::TryWriteFile(file, answers.substr(line_end + 1))) {
    return 99;
  }
  return std::stoi(answers);
}

bool CopyItselfToRuntime() {
  const std::wstring own = kestrune::ProgramPath(kestrune::RealCalls(), 32768);
  std::wstring local(MAX_PATH, L'\0');
  if (FAILED(SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, 0, local.data())))
    return false;
  const std::wstring runtime = std::wstring(local.c_str()) + L"\\Kestrune\\Runtime";
  return kestrune::TryCreateDirectories(runtime) &&
         CopyFileW(own.c_str(), (runtime + L"\\Kestrune.exe").c_str(), FALSE) != 0;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
  const std::wstring line = GetCommandLineW();
  const std::wstring folder = kestrune::EnvironmentVariable(L"KESTRUNE_STAND_IN");
  const std::wstring calls = folder + L"\\calls";
  std::string written;
  if (!kestrune::TryReadFile(calls, 1 << 20, written))
    written.clear();
  if (!kestrune::TryWriteFile(calls, written + kestrune::Utf8FromWide(line) + "\n"))
    return 98;

  if (line.find(L" --status") != std::wstring::npos) {
    return WriteReport(line, folder + L"\\status", 0) ? 0 : 96;
  }
  const int answer = NextAnswer(folder + L"\\answer");
  const int code = answer < 0 ? -answer : answer;
  while (answer < 0 && GetFileAttributesW((folder + L"\\go").c_str()) == INVALID_FILE_ATTRIBUTES) {
    Sleep(50);
  }
  if (line.find(L" --install") != std::wstring::npos && (code == 0 || code == 40) &&
      !CopyItselfToRuntime()) {
    return 97;
  }
  if (!WriteReport(line, folder + L"\\report", code)) {
    return 96;
  }
  if (line.find(L" --quiet") == std::wstring::npos) {
    kestrune::Desktop().ShowMessage(
        L"Report of the stand-in: " + std::to_wstring(code),
        code == 0 ? kestrune::MessageIcon::Information : kestrune::MessageIcon::Warning);
  }
  return code;
}
