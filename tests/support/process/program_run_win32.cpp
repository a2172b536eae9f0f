#include "tests/support/process/program_run_win32.h"

#include <array>

#include "common/places/program_path_win32.h"
#include "common/text/path.h"
#include "tests/support/process/screenshot_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

constexpr DWORD kPollMilliseconds = 5;
constexpr int kTextControl = 0xFFFF;

struct DialogSearch {
  DWORD process = 0;
  HWND found = nullptr;
};

BOOL CALLBACK FindDialog(HWND window, LPARAM parameter) {
  auto& search = *reinterpret_cast<DialogSearch*>(parameter);
  DWORD process = 0;
  GetWindowThreadProcessId(window, &process);
  wchar_t name[16] = {};
  GetClassNameW(window, name, 16);
  if (process == search.process && std::wstring_view(name) == L"#32770" &&
      IsWindowVisible(window)) {
    search.found = window;
    return FALSE;
  }
  return TRUE;
}

std::wstring WindowText(HWND window) {
  std::wstring text(32768, L'\0');
  DWORD_PTR length = 0;
  if (SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                          SMTO_ABORTIFHUNG, 2000, &length) == 0) {
    return {};
  }
  text.resize(length);
  return text;
}

/// Returns the control of the box that shows its icon.
HWND IconControl(HWND box) {
  for (HWND child = GetWindow(box, GW_CHILD); child != nullptr;
       child = GetWindow(child, GW_HWNDNEXT)) {
    const LONG style = GetWindowLongW(child, GWL_STYLE);
    wchar_t name[16] = {};
    GetClassNameW(child, name, 16);
    if (lstrcmpiW(name, L"Static") == 0 && (style & SS_TYPEMASK) == SS_ICON) {
      return child;
    }
  }
  return nullptr;
}

/// Returns the system icon that the control shows. Compares pixels, since icon handles are not
/// always valid in another process.
unsigned ShownIcon(HWND control) {
  struct Candidate {
    unsigned style;
    const wchar_t* resource;
  };
  const std::array<Candidate, 3> candidates = {{{MB_ICONERROR, IDI_ERROR},
                                                {MB_ICONWARNING, IDI_WARNING},
                                                {MB_ICONINFORMATION, IDI_INFORMATION}}};
  RECT area = {};
  if (control == nullptr || !GetWindowRect(control, &area)) {
    return 0;
  }
  const Picture shown = CaptureScreen(area);
  for (const Candidate& candidate : candidates) {
    if (LooksLikeIcon(shown, LoadIconW(nullptr, candidate.resource))) {
      return candidate.style;
    }
  }
  return 0;
}

/// Moves the box so that its icon is on the screen; a box with a very long line begins left of it.
void MoveIconOntoScreen(HWND box) {
  RECT icon = {};
  RECT whole = {};
  if (GetWindowRect(IconControl(box), &icon) && GetWindowRect(box, &whole) && icon.left < 0) {
    SetWindowPos(box, nullptr, whole.left - icon.left, whole.top, 0, 0,
                 SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
  }
}

std::wstring BuildFolder() {
  // <build>/tests/<layer>/<program>.exe
  const std::wstring path = ProgramPath(RealCalls(), 32768);
  return std::wstring(ParentPath(ParentPath(ParentPath(path))));
}

}  // namespace

ProgramRun::ProgramRun(const std::wstring& program, const std::wstring& arguments,
                       const std::wstring& directory) {
  Start(program, Quoted(program) + (arguments.empty() ? L"" : L" ") + arguments, directory);
}

ProgramRun ProgramRun::WithRawCommandLine(const std::wstring& program,
                                          const std::wstring& command_line) {
  ProgramRun run;
  run.Start(program, command_line, {});
  return run;
}

ProgramRun::~ProgramRun() {
  Terminate();
}

void ProgramRun::Start(const std::wstring& program, std::wstring command_line,
                       const std::wstring& directory) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  if (CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                     directory.empty() ? nullptr : directory.c_str(), &startup, &process)) {
    CloseHandle(process.hThread);
    process_.Reset(process.hProcess);
    id_ = process.dwProcessId;
  } else {
    start_error_ = GetLastError();
  }
}

std::optional<int> ProgramRun::WaitForExit(DWORD limit) {
  DWORD code = 0;
  if (!process_ || WaitForSingleObject(process_.Get(), limit) != WAIT_OBJECT_0 ||
      !GetExitCodeProcess(process_.Get(), &code)) {
    return std::nullopt;
  }
  return static_cast<int>(code);
}

HWND ProgramRun::WaitForBox(DWORD limit) {
  const ULONGLONG end = GetTickCount64() + limit;
  do {
    DialogSearch search{id_, nullptr};
    EnumWindows(&FindDialog, reinterpret_cast<LPARAM>(&search));
    if (search.found != nullptr) {
      return search.found;
    }
  } while (!WaitForExit(kPollMilliseconds) && GetTickCount64() < end);
  return nullptr;
}

void ProgramRun::Terminate() {
  if (process_ && WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT) {
    TerminateProcess(process_.Get(), 0xDEAD);
    WaitForSingleObject(process_.Get(), 5000);
  }
}

SeenBox ReadBox(HWND box) {
  SeenBox seen;
  seen.title = WindowText(box);
  seen.text = WindowText(GetDlgItem(box, kTextControl));
  seen.owned = GetWindow(box, GW_OWNER) != nullptr;
  seen.topmost = (GetWindowLongW(box, GWL_EXSTYLE) & WS_EX_TOPMOST) != 0;
  MoveIconOntoScreen(box);
  const ULONGLONG end = GetTickCount64() + 2000;
  while ((seen.icon = ShownIcon(IconControl(box))) == 0 && GetTickCount64() < end) {
    Sleep(kPollMilliseconds);
  }
  return seen;
}

void DismissBox(HWND box) {
  PostMessageW(box, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED),
               reinterpret_cast<LPARAM>(GetDlgItem(box, IDOK)));
}

std::wstring EnvironmentVariable(const wchar_t* name) {
  std::wstring value(32768, L'\0');
  value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
  return value;
}

std::wstring KestrunePath() {
  const std::wstring named = EnvironmentVariable(L"KESTRUNE_EXE");
  return named.empty() ? JoinPath(BuildFolder(), L"Kestrune.exe") : named;
}

std::wstring TestProgramPath(std::wstring_view name) {
  return JoinPath(BuildFolder(), L"tests\\programs\\" + std::wstring(name) + L".exe");
}

RunOutcome Finish(ProgramRun run, DWORD limit) {
  RunOutcome outcome;
  if (!run.Started()) {
    return outcome;
  }
  outcome.code = RunOutcome::kNeverEnded;
  const ULONGLONG begin = GetTickCount64();
  HWND last = nullptr;
  while (GetTickCount64() - begin < limit) {
    if (const std::optional<int> code = run.WaitForExit(0)) {
      outcome.code = *code;
      break;
    }
    const HWND box = run.WaitForBox(50);
    if (box != nullptr && box != last) {
      last = box;
      outcome.boxes.push_back(ReadBox(box));
      DismissBox(box);
    }
    run.WaitForExit(kPollMilliseconds);
  }
  outcome.milliseconds = static_cast<DWORD>(GetTickCount64() - begin);
  return outcome;
}

RunOutcome RunKestrune(const std::wstring& arguments, DWORD limit) {
  return Finish(ProgramRun(KestrunePath(), arguments), limit);
}

std::wstring Quoted(std::wstring_view text) {
  return L"\"" + std::wstring(text) + L"\"";
}

}  // namespace kestrune
