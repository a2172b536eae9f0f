#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/system/owners_win32.h"

namespace kestrune {

/// Holds a message box of another process as its user sees it.
struct SeenBox {
  std::wstring title;
  std::wstring text;
  /// The style word whose icon is drawn in it: 16 error, 48 warning, 64 information, 0 none of
  /// them.
  unsigned icon = 0;
  /// Whether another window owns it.
  bool owned = false;
  bool topmost = false;
};

/// Holds one start of a program, from its command line to its exit code. Every
/// wait has a limit, and a program that still runs at the end of the scope is ended.
class ProgramRun {
 public:
  /// Starts `program` with the command line `"<program>" <arguments>`, the arguments exactly as
  /// given. Started() returns whether that worked.
  ProgramRun(const std::wstring& program, const std::wstring& arguments,
             const std::wstring& directory = {});
  /// Starts `program` with a command line of which every character is the caller's.
  static ProgramRun WithRawCommandLine(const std::wstring& program,
                                       const std::wstring& command_line);
  ProgramRun(ProgramRun&&) = default;
  ProgramRun& operator=(ProgramRun&&) = default;
  ~ProgramRun();

  [[nodiscard]] bool Started() const { return static_cast<bool>(process_); }
  /// Returns the Windows error of a start that failed; 0 when the program was started.
  [[nodiscard]] DWORD StartError() const { return start_error_; }
  [[nodiscard]] DWORD Id() const { return id_; }
  [[nodiscard]] HANDLE Process() const { return process_.Get(); }

  /// Waits for the end; nothing when the program still runs after `limit` milliseconds.
  std::optional<int> WaitForExit(DWORD limit);
  /// Waits for the program's visible dialog and returns it; null when the program ended or the time
  /// is over.
  HWND WaitForBox(DWORD limit);
  void Terminate();

 private:
  ProgramRun() = default;
  void Start(const std::wstring& program, std::wstring command_line, const std::wstring& directory);

  KernelHandle process_;
  DWORD id_ = 0;
  DWORD start_error_ = 0;
};

/// Reads a message box. Waits until it is drawn, at most two seconds.
SeenBox ReadBox(HWND box);

/// Presses OK.
void DismissBox(HWND box);

/// Holds how a whole start ended.
struct RunOutcome {
  static constexpr int kNeverStarted = -1;
  static constexpr int kNeverEnded = -2;

  int code = kNeverStarted;
  /// Every box in the order in which they came up; each was dismissed.
  std::vector<SeenBox> boxes;
  DWORD milliseconds = 0;
};

/// Returns a variable of the environment; empty when it is absent.
std::wstring EnvironmentVariable(const wchar_t* name);

/// Returns the program under test: $KESTRUNE_EXE, or the one built with this test program.
std::wstring KestrunePath();

/// Returns a program built with this test program: <build>/tests/programs/<name>.exe.
std::wstring TestProgramPath(std::wstring_view name);

/// Lets a started program come to its end, reading and dismissing its boxes.
RunOutcome Finish(ProgramRun run, DWORD limit = 120'000);

/// Starts Kestrune.exe with the arguments exactly as given and lets it come to its end.
RunOutcome RunKestrune(const std::wstring& arguments, DWORD limit = 120'000);

/// Returns the text between double quotes.
std::wstring Quoted(std::wstring_view text);

}  // namespace kestrune
