#include "tests/host/export_script_win32.h"

#include <knownfolders.h>
#include <shlobj.h>

#include <optional>
#include <thread>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "common/text/text_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/export/odb_archive.h"
#include "tests/support/export/output_job_reader.h"
#include "tests/support/process/program_run_win32.h"

namespace kestrune {
namespace {

constexpr std::uint64_t kFileLimit = 1U << 30U;

std::wstring Folder(const KNOWNFOLDERID& id) {
  TaskText path;
  SHGetKnownFolderPath(id, KF_FLAG_CREATE, nullptr, path.Put());
  return path ? path.Get() : L"";
}

/// A message's lines behind each other.
std::wstring OnOneLine(const std::wstring& text) {
  std::wstring line;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != L'\n') {
      line += text[i];
    } else if (i > 0 && text[i - 1] != L'\n') {
      line += L" / ";
    }
  }
  return line;
}

bool FileIsThere(const std::wstring& path) {
  return GetFileAttributesW(ExtendedPath(path).Get()) != INVALID_FILE_ATTRIBUTES;
}

class ExportScript {
 public:
  ExportScript(const ExportOptions& options, HostWindows& windows, Journal& journal)
      : options_(options),
        windows_(windows),
        journal_(journal),
        exchange_(JoinPath(Folder(FOLDERID_LocalAppData), L"Kestrune\\Exchange")),
        temporary_(JoinPath(Folder(FOLDERID_PublicDocuments), L"Kestrune\\Temp")) {}

  ExportEnd Run() {
    CentreWindow();
    ExportEnd end = Prepare();
    if (end == ExportEnd::Delivered) {
      end = OpenProject();
    }
    if (end == ExportEnd::Delivered) {
      end = GenerateAndWait();
    }
    windows_.HideWait();
    return end == ExportEnd::Delivered ? Deliver() : end;
  }

 private:
  std::wstring Exchanged(std::wstring_view name) const { return JoinPath(exchange_, name); }

  /// Lets somebody outside photograph the screen: asks through a file and waits for the answer.
  void Photograph(const std::wstring& name) {
    if (options_.photos.empty()) {
      return;
    }
    const std::wstring request = JoinPath(options_.photos, name + L".please");
    const std::wstring taken = JoinPath(options_.photos, name + L".taken");
    static_cast<void>(TryWriteFile(request, ""));
    for (int i = 0; i < 500 && !FileIsThere(taken); ++i) {
      Sleep(20);
    }
    journal_.Note(FileIsThere(taken) ? L"photograph taken: " + name
                                     : L"nobody took the photograph: " + name);
  }

  ProgramRun Start(const std::wstring& arguments) {
    journal_.Note(L"start Kestrune.exe " + arguments);
    return ProgramRun(options_.program, arguments);
  }

  void NoteEnd(std::wstring_view mode, ProgramRun& run) {
    const std::optional<int> code = run.WaitForExit(10'000);
    journal_.Note(std::wstring(mode) + (code ? L" ended with " + std::to_wstring(*code)
                                             : std::wstring(L" did not end")));
  }

  void CentreWindow() {
    windows_.ShowStep(1, L"preparing a copy of the board");
    journal_.Note(L"wait window shown");
    Photograph(L"1-before-centring");
    ProgramRun run = Start(
        L"--position-window " + std::to_wstring(reinterpret_cast<std::uintptr_t>(windows_.Wait())) +
        L" " + std::to_wstring(reinterpret_cast<std::uintptr_t>(windows_.Main())));
    NoteEnd(L"--position-window", run);
    RECT place = {};
    GetWindowRect(windows_.Wait(), &place);
    journal_.Note(L"wait window stands at " + std::to_wstring(place.left) + L"," +
                  std::to_wstring(place.top));
    Photograph(L"2-after-centring");
  }

  /// A list as the script saves it: one line each, in the ANSI code page.
  bool SaveList(const std::wstring& path, const std::vector<std::wstring>& lines) {
    std::string bytes;
    for (const std::wstring& line : lines) {
      std::string ansi;
      if (!AnsiFromWide(line, ansi)) {
        return false;
      }
      bytes += ansi + "\r\n";
    }
    return TryWriteFile(path, bytes);
  }

  bool SaveLists() {
    std::vector<std::wstring> manifest;
    for (const std::wstring& key : options_.plot_keys) {
      manifest.push_back(L"PlotKey=" + key);
    }
    for (const std::wstring& name : options_.layer_names) {
      manifest.push_back(L"LayerName=" + name);
    }
    DeleteFileW(Exchanged(L"status.txt").c_str());
    DeleteFileW(Exchanged(L"result.txt").c_str());
    return TryCreateDirectories(exchange_) &&
           SaveList(Exchanged(L"dependencies.txt"), options_.dependencies) &&
           SaveList(Exchanged(L"layers.txt"), manifest);
  }

  /// The first word of an answer file once the program has put it there; nothing when the script's
  /// patience ends first.
  std::optional<std::string> Await(const std::wstring& path) {
    const ULONGLONG end = GetTickCount64() + options_.patience;
    do {
      std::string answer;
      if (FileIsThere(path) && TryReadFile(path, kFileLimit, answer) && !answer.empty()) {
        return answer.substr(0, answer.find_first_of("\r\n"));
      }
      Sleep(100);
    } while (GetTickCount64() < end);
    return std::nullopt;
  }

  ExportEnd Prepare() {
    if (!SaveLists()) {
      return ExportEnd::FileFailed;
    }
    journal_.Note(
        L"wrote " + std::to_wstring(options_.dependencies.size()) + L" dependencies and " +
        std::to_wstring(options_.plot_keys.size() + options_.layer_names.size()) + L" used layers");
    ProgramRun run = Start(
        L"--prepare " + Quoted(options_.board) + L" " + Quoted(Exchanged(L"dependencies.txt")) +
        L" " + Quoted(Exchanged(L"layers.txt")) + L" " + Quoted(Exchanged(L"status.txt")));
    const std::optional<std::string> answer = Await(Exchanged(L"status.txt"));
    NoteEnd(L"--prepare", run);
    journal_.Note(L"status: " + (answer ? WidenBytes(*answer) : std::wstring(L"no answer")));
    if (!answer) {
      return ExportEnd::PrepareWithoutAnswer;
    }
    return *answer == "OK" ? ExportEnd::Delivered : ExportEnd::PrepareFailed;
  }

  /// Reads Bridge.PrjPcb and Bridge.OutJob as the host does when it opens the project.
  ExportEnd OpenProject() {
    windows_.ShowStep(2, L"opening the temporary project");
    std::string project;
    std::string output_job;
    if (!TryReadFile(JoinPath(temporary_, L"Bridge.PrjPcb"), kFileLimit, project)) {
      journal_.Note(L"Bridge.PrjPcb cannot be read");
      return ExportEnd::ProjectUnreadable;
    }
    for (const ProjectSection& section : ReadProject(project)) {
      if (!section.name.starts_with("Document")) {
        continue;
      }
      const std::wstring name = WideFromAnsi(section.Value("DocumentPath"));
      const std::wstring path = JoinPath(temporary_, name);
      journal_.Note(L"project document " + WidenBytes(section.name) + L": " + name);
      if (name.empty() || !FileIsThere(path)) {
        journal_.Note(L"the document is not there");
        return ExportEnd::ProjectUnreadable;
      }
      if (name.ends_with(L".OutJob") && !TryReadFile(path, kFileLimit, output_job)) {
        return ExportEnd::ProjectUnreadable;
      }
    }
    const OutputConfiguration configuration = ReadOutputConfiguration(output_job);
    if (!configuration.found) {
      journal_.Note(L"the project's output job has no ODB++ output 1");
      return ExportEnd::ProjectUnreadable;
    }
    layers_ = configuration.LayersSwitchedOn();
    std::string list;
    for (const std::string& layer : layers_) {
      list += (list.empty() ? "" : ", ") + layer;
    }
    journal_.Note(L"layers switched on: " + WidenBytes(list));
    return ExportEnd::Delivered;
  }

  ExportEnd GenerateAndWait() {
    std::string archive = OdbArchive(layers_);
    if (!options_.archive.empty() && !TryReadFile(options_.archive, kFileLimit, archive)) {
      return ExportEnd::FileFailed;
    }
    const std::wstring outputs = JoinPath(temporary_, L"Project Outputs for Bridge");
    const std::wstring zip = JoinPath(outputs, L"ODB\\Bridge.zip");
    windows_.ShowStep(3, L"the host writes the ODB++ archive");
    journal_.Note(L"the host writes " + zip);
    std::atomic<bool> stop = false;
    bool written = true;
    std::thread host([&] { written = output_.Write(zip, archive, options_.manner, stop); });
    windows_.ShowStep(4, L"waiting until the archive is complete");
    ProgramRun run = Start(L"--wait-native " + Quoted(zip) + L" " +
                           Quoted(JoinPath(outputs, L"Status Report.Txt")) + L" " +
                           Quoted(Exchanged(L"result.txt")));
    const std::optional<std::string> answer = Await(Exchanged(L"result.txt"));
    stop = true;
    host.join();
    journal_.Note(L"result: " + (answer ? WidenBytes(*answer) : std::wstring(L"no answer")));
    if (!answer) {
      run.Terminate();
      return ExportEnd::WaitWithoutAnswer;
    }
    NoteEnd(L"--wait-native", run);
    if (!written) {
      return ExportEnd::FileFailed;
    }
    return *answer == "OK" ? ExportEnd::Delivered : ExportEnd::WaitFailed;
  }

  ExportEnd Deliver() {
    ProgramRun run = Start(L"--finalize-auto " + Quoted(options_.board) +
                           (options_.space.empty() ? L"" : L" " + options_.space));
    if (const HWND box = run.WaitForBox(options_.patience)) {
      const SeenBox seen = ReadBox(box);
      journal_.Note(L"message with icon " + std::to_wstring(seen.icon) + L": " +
                    OnOneLine(seen.text));
      Photograph(L"3-result");
      if (options_.press_ok) {
        DismissBox(box);
      }
    }
    const std::optional<int> code = run.WaitForExit(options_.patience);
    journal_.Note(code ? L"--finalize-auto ended with " + std::to_wstring(*code)
                       : std::wstring(L"--finalize-auto did not end"));
    return code == 0 ? ExportEnd::Delivered : ExportEnd::DeliveryFailed;
  }

  const ExportOptions& options_;
  HostWindows& windows_;
  Journal& journal_;
  std::wstring exchange_;
  std::wstring temporary_;
  std::vector<std::string> layers_;
  NativeOutput output_;
};

}  // namespace

ExportEnd RunExport(const ExportOptions& options, HostWindows& windows, Journal& journal) {
  const ExportEnd end = ExportScript(options, windows, journal).Run();
  journal.Note(end == ExportEnd::Delivered
                   ? std::wstring(L"export delivered")
                   : L"export ended with " + std::to_wstring(static_cast<int>(end)));
  return end;
}

}  // namespace kestrune
