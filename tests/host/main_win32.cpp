// host_standin.exe plays the part of the host and of the script in it for one whole export: it
// shows a wait window, starts Kestrune.exe as the script does, opens the project that comes out of
// it, writes an ODB++ archive and has it delivered.
//
//   --board PATH           the board to export (needed)
//   --program PATH         Kestrune.exe; by default the one that was built with this program
//   --journal FILE         where each step is noted with its time
//   --archive FILE         the bytes that the host writes instead of an archive of its own
//   --dependency PATH      an embedded board; may be repeated
//   --plot-key KEY         a plot field to switch on; may be repeated. Without this and
//   --layer-name
//   --layer-name NAME      an ordinary two-layer board is assumed
//   --space NUMBER         the board's spacing
//   --manner NAME          how the host writes: growing, slow, nothing, zero, half, replace, hold
//   --patience MS          how long the script waits for an answer
//   --photos FOLDER        ask for photographs through files in this folder
//   --press-ok             close the message that comes at the end
//   --make-board PATH      write a small board there and do nothing else
//
// The exit code says how far the export came: see ExportEnd.
#include <windows.h>
#include <shellapi.h>

#include <map>
#include <string>
#include <thread>

#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "tests/host/export_script_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/export/odb_archive.h"
#include "tests/support/process/program_run_win32.h"

namespace {

using kestrune::ExportEnd;
using kestrune::ExportOptions;

struct CommandLine {
  ExportOptions options;
  std::wstring journal;
  std::wstring make_board;
};

bool Parse(CommandLine& line) {
  ExportOptions& options = line.options;
  std::wstring manner = L"growing";
  std::wstring patience = L"150000";
  const std::map<std::wstring, std::wstring*> single = {{L"--board", &options.board},
                                                        {L"--program", &options.program},
                                                        {L"--journal", &line.journal},
                                                        {L"--archive", &options.archive},
                                                        {L"--space", &options.space},
                                                        {L"--photos", &options.photos},
                                                        {L"--manner", &manner},
                                                        {L"--patience", &patience},
                                                        {L"--make-board", &line.make_board}};
  const std::map<std::wstring, std::vector<std::wstring>*> repeated = {
      {L"--dependency", &options.dependencies},
      {L"--plot-key", &options.plot_keys},
      {L"--layer-name", &options.layer_names}};
  int count = 0;
  const kestrune::LocalMemory<wchar_t*> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
  for (int i = 1; arguments && i < count; ++i) {
    const std::wstring name = arguments.Get()[i];
    if (name == L"--press-ok") {
      options.press_ok = true;
    } else if (i + 1 == count) {
      return false;
    } else if (const auto found = single.find(name); found != single.end()) {
      *found->second = arguments.Get()[++i];
    } else if (const auto list = repeated.find(name); list != repeated.end()) {
      list->second->push_back(arguments.Get()[++i]);
    } else {
      return false;
    }
  }
  options.patience = static_cast<unsigned>(wcstoul(patience.c_str(), nullptr, 10));
  return ParseOutputManner(manner, options.manner) &&
         (!options.board.empty() || !line.make_board.empty());
}

void AssumeOrdinaryBoard(ExportOptions& options) {
  if (options.plot_keys.empty() && options.layer_names.empty()) {
    options.plot_keys = {L"PlotTopLayerPlot",    L"PlotBottomLayerPlot",  L"PlotTopOverlayPlot",
                         L"PlotTopSolderPlot",   L"PlotBottomSolderPlot", L"PlotTopPastePlot",
                         L"PlotKeepOutLayerPlot"};
    options.layer_names = {L"Mechanical Layer 17"};
  }
}

/// Runs the export in a thread of its own while this one answers the windows' messages.
ExportEnd RunWithWindows(const CommandLine& line) {
  kestrune::Journal journal(line.journal);
  kestrune::HostWindows windows(std::wstring(kestrune::FileName(line.options.board)));
  ExportEnd end = ExportEnd::FileFailed;
  const DWORD window_thread = GetCurrentThreadId();
  std::thread script([&] {
    end = kestrune::RunExport(line.options, windows, journal);
    PostThreadMessageW(window_thread, WM_QUIT, 0, 0);
  });
  MSG message = {};
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  script.join();
  return end;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  CommandLine line;
  if (!Parse(line)) {
    return static_cast<int>(ExportEnd::BadCommandLine);
  }
  if (!line.make_board.empty()) {
    return kestrune::TryWriteFile(line.make_board, kestrune::SmallBoard())
               ? 0
               : static_cast<int>(ExportEnd::FileFailed);
  }
  if (line.options.program.empty()) {
    line.options.program = kestrune::KestrunePath();
  }
  AssumeOrdinaryBoard(line.options);
  return static_cast<int>(RunWithWindows(line));
}
