// host_server.exe: carries out what the stand-in of the host, a Linux program, cannot do without a
// Windows program. Reads commands from its standard input, one on each line (see
// conversation_win32.h). At the end of the input it ends, and the programs that it started too:
//
//   start ID COMMAND_LINE            starts a program; replies "started ID ERROR", and reports
//                                    "box ID ICON TEXT" for each of its boxes and "ended ID CODE"
//                                    at its end
//   dismiss ID                       presses OK in the box of this program
//   hold PATH                        opens a file without sharing; replies "held ERROR"
//   release                          closes it
//   windows TITLE CAPTION WIDTH HEIGHT
//                                    shows the host's main window and creates the script's form;
//                                    replies "windows FORM MAIN" with the two handles
//   control NAME CLASS LEFT TOP WIDTH HEIGHT BOLD TEXT
//   text NAME TEXT | bar NAME MAX POSITION | enable NAME 0|1 | show 0|1
//                                    change a control or the form
//   place                            replies "place LEFT TOP RIGHT BOTTOM" of the form, in screen
//                                    coordinates, and the same of the screen's work area
#include <windows.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/files/file_win32.h"
#include "common/text/text.h"
#include "tests/programs/host_server/conversation_win32.h"
#include "tests/programs/host_server/host_windows_win32.h"
#include "tests/support/process/program_run_win32.h"

namespace kestrune {
namespace {

/// Milliseconds between two searches for boxes.
constexpr DWORD kPause = 20;

/// Returns the program that a command line names in its first, quoted word.
std::wstring ProgramOf(const std::wstring& command_line) {
  const std::size_t quote = command_line.find(L'"', 1);
  return command_line.starts_with(L'"') && quote != std::wstring::npos
             ? command_line.substr(1, quote - 1)
             : command_line.substr(0, command_line.find(L' '));
}

int Number(const std::wstring& text) {
  return static_cast<int>(wcstol(text.c_str(), nullptr, 10));
}

std::wstring HandleNumber(HWND window) {
  return std::to_wstring(reinterpret_cast<std::uintptr_t>(window));
}

Fields PlaceFields(const RECT& place) {
  return {std::to_wstring(place.left), std::to_wstring(place.top), std::to_wstring(place.right),
          std::to_wstring(place.bottom)};
}

class Server {
 public:
  Server() {
    commands_ = {
        {L"start", [this](const Fields& f) { Start(f.at(1), f.at(2)); }},
        {L"dismiss", [this](const Fields& f) { Dismiss(f.at(1)); }},
        {L"hold", [this](const Fields& f) { Hold(f.at(1)); }},
        {L"release", [this](const Fields&) { held_.Reset(); }},
        {L"windows", [this](const Fields& f) { MakeWindows(f); }},
        {L"control",
         [this](const Fields& f) {
           windows_->AddControl(
               f.at(1), f.at(2),
               {Number(f.at(3)), Number(f.at(4)), Number(f.at(3)) + Number(f.at(5)),
                Number(f.at(4)) + Number(f.at(6))},
               f.at(7) == L"1", f.at(8));
         }},
        {L"text", [this](const Fields& f) { windows_->SetText(f.at(1), f.at(2)); }},
        {L"bar",
         [this](const Fields& f) { windows_->SetBar(f.at(1), Number(f.at(2)), Number(f.at(3))); }},
        {L"enable", [this](const Fields& f) { windows_->Enable(f.at(1), f.at(2) == L"1"); }},
        {L"show", [this](const Fields& f) { windows_->ShowForm(f.at(1) == L"1"); }},
        {L"place", [this](const Fields&) { SayPlace(); }},
    };
  }

  /// Serves until the input ends.
  void Run() {
    while (!conversation_.Ended()) {
      Wait();
      MSG message = {};
      while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
      }
      for (const Fields& command : conversation_.Take()) {
        commands_.at(command.at(0))(command);
      }
      LookAtRuns();
    }
  }

 private:
  struct StartedProgram {
    ProgramRun program;
    HWND box = nullptr;
  };

  void Wait() const {
    std::vector<HANDLE> events = {conversation_.Event()};
    for (const auto& [id, run] : runs_) {
      if (events.size() < MAXIMUM_WAIT_OBJECTS - 1) {
        events.push_back(run.program.Process());
      }
    }
    MsgWaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE,
                              runs_.empty() ? INFINITE : kPause, QS_ALLINPUT);
  }

  void Start(const std::wstring& id, const std::wstring& command_line) {
    ProgramRun run = ProgramRun::WithRawCommandLine(ProgramOf(command_line), command_line);
    Conversation::Say({L"started", id, std::to_wstring(run.StartError())});
    if (run.Started()) {
      runs_.emplace(id, StartedProgram{std::move(run)});
    }
  }

  void LookAtRuns() {
    for (auto run = runs_.begin(); run != runs_.end();) {
      const std::optional<int> code = run->second.program.WaitForExit(0);
      if (code) {
        Conversation::Say({L"ended", run->first, std::to_wstring(*code)});
        run = runs_.erase(run);
      } else {
        LookForBox(run->first, run->second);
        ++run;
      }
    }
  }

  static void LookForBox(const std::wstring& id, StartedProgram& run) {
    const HWND box = run.program.WaitForBox(0);
    if (box != nullptr && box != run.box) {
      const SeenBox seen = ReadBox(box);
      Conversation::Say({L"box", id, std::to_wstring(seen.icon), seen.text});
    }
    run.box = box;
  }

  /// Presses OK. The box may have been closed meanwhile, with its program.
  void Dismiss(const std::wstring& id) const {
    const auto run = runs_.find(id);
    if (run != runs_.end() && run->second.box != nullptr) {
      DismissBox(run->second.box);
    }
  }

  void Hold(const std::wstring& path) {
    held_ = FileHandle(CreateFileW(ExtendedPath(path).Get(), GENERIC_READ, 0, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const DWORD error = held_ ? 0 : GetLastError();
    Conversation::Say({L"held", std::to_wstring(error)});
  }

  void MakeWindows(const Fields& fields) {
    windows_ = std::make_unique<HostWindows>(fields.at(1));
    windows_->MakeForm(fields.at(2), Number(fields.at(3)), Number(fields.at(4)));
    Conversation::Say({L"windows", HandleNumber(windows_->Form()), HandleNumber(windows_->Main())});
  }

  void SayPlace() const {
    RECT form = {};
    RECT screen = {};
    GetWindowRect(windows_->Form(), &form);
    SystemParametersInfoW(SPI_GETWORKAREA, 0, &screen, 0);
    Fields fields = {L"place"};
    std::ranges::copy(PlaceFields(form), std::back_inserter(fields));
    std::ranges::copy(PlaceFields(screen), std::back_inserter(fields));
    Conversation::Say(fields);
  }

  Conversation conversation_;
  std::map<std::wstring, std::function<void(const Fields&)>> commands_;
  std::map<std::wstring, StartedProgram> runs_;
  std::unique_ptr<HostWindows> windows_;
  FileHandle held_;
};

}  // namespace
}  // namespace kestrune

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  kestrune::Server().Run();
  return 0;
}
