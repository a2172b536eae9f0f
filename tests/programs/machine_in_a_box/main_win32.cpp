#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/machine/disposable_profile_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/machine/machine_in_a_box_win32.h"
#include "tests/support/process/program_run_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/remove_tree_win32.h"

namespace kestrune {
namespace {

constexpr char kUsage[] =
    "machine_in_a_box make N        N installations of the host, made afresh\n"
    "machine_in_a_box make-three    one of each toolbar generation, and one never started\n"
    "machine_in_a_box snapshot FILE what registry and files hold\n"
    "machine_in_a_box diff A B      what differs between two snapshots\n"
    "machine_in_a_box show          what each host would see\n"
    "machine_in_a_box run NAME PROGRAM ARGUMENTS\n"
    "                               starts a program, prints its message and closes it; creates "
    "NAME.please\n"
    "                               before that and waits up to 5 s for NAME.taken, for a "
    "screenshot\n"
    "machine_in_a_box time-install N ROUNDS PROGRAM\n"
    "                               median milliseconds of its --install over N such "
    "installations\n"
    "machine_in_a_box line LINE     starts a whole command line, waits, and ends with its code\n"
    "machine_in_a_box clear         removes everything again\n";

void Print(const std::string& text) {
  static_cast<void>(TryWriteAll(GetStdHandle(STD_OUTPUT_HANDLE), text));
}

void MakeMany(unsigned count) {
  ClearBox();
  for (unsigned number = 1; number <= count; ++number) {
    MakeHost(UsedHost(number, number % 2 == 0 ? 17 : 24));
  }
}

void MakeThree() {
  ClearBox();
  MakeHost(UsedHost(1, 17));
  MakeHost(UsedHost(2, 24));
  BoxInstance never_started = UsedHost(3, 25);
  never_started.has_rcs = false;
  MakeHost(never_started);
}

Snapshot ReadSnapshot(const std::wstring& path) {
  std::string text;
  if (!TryReadFile(path, 256U << 20U, text)) {
    throw std::runtime_error("cannot read a snapshot");
  }
  Snapshot lines;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    lines.push_back(text.substr(begin, end - begin));
  }
  return lines;
}

void WriteSnapshot(const std::wstring& path) {
  std::string text;
  for (const std::string& line : TakeSnapshot()) {
    text += line + "\n";
  }
  if (!TryWriteFile(path, text)) {
    throw std::runtime_error("cannot write the snapshot");
  }
}

std::string Describe(const HostButton& button) {
  std::string text = "  button \"" + button.caption + "\" on " + button.toolbar + " beside " +
                     button.beside + (button.visible ? "\n" : " (hidden)\n");
  for (const auto& [name, value] : {std::pair("hint ", button.hint), {"image ", button.image}}) {
    text += value.empty() ? "" : std::string("    ") + name + value + "\n";
  }
  return text + "    runs " + button.procedure + " of " + button.project +
         (button.starts ? "\n" : " (would not start)\n");
}

void ShowHosts() {
  for (const MadeInstance& host : MadeHosts()) {
    Print(Utf8FromWide(host.display_name + L" " + host.version + L" " + host.guid) + "\n");
    const HostView view = ReadAsHost(host);
    if (!view.error.empty()) {
      Print("  " + view.error + "\n");
    }
    for (const std::wstring& project : view.projects) {
      Print("  loads " + Utf8FromWide(project) + "\n");
    }
    for (const HostButton& button : view.buttons) {
      Print(Describe(button));
    }
  }
}

/// Waits until a script outside has taken a screenshot, or for a limited time.
void HavePhotographed(const std::wstring& name) {
  if (TryWriteFile(name + L".please", "")) {
    for (int i = 0;
         i < 100 && QueryFileKindQuietly(RealCalls(), name + L".taken") == FileKind::Absent; ++i) {
      Sleep(50);
    }
    DeleteFileW((name + L".taken").c_str());
  }
}

void RunPhotographed(const std::wstring& name, const std::wstring& program,
                     const std::wstring& arguments) {
  ProgramRun run(program, arguments);
  const HWND box = run.WaitForBox(60'000);
  if (box != nullptr) {
    const SeenBox seen = ReadBox(box);
    HavePhotographed(name);
    Print(Utf8FromWide(seen.text) + "\n");
    DismissBox(box);
  }
  Print("exit code " + std::to_string(run.WaitForExit(60'000).value_or(-1)) + "\n");
}

/// Starts a command line from the registry without a shell, which would change its quotes.
int ExitCodeOfLine(std::wstring line) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION made{};
  if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                     &made) == 0) {
    throw std::runtime_error("cannot start the line");
  }
  const KernelHandle process(made.hProcess);
  const KernelHandle thread(made.hThread);
  DWORD code = 1;
  WaitForSingleObject(process.Get(), INFINITE);
  GetExitCodeProcess(process.Get(), &code);
  return static_cast<int>(code);
}

double MillisecondsOf(const std::wstring& program, const std::wstring& arguments) {
  LARGE_INTEGER frequency{};
  LARGE_INTEGER begin{};
  LARGE_INTEGER end{};
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&begin);
  ProgramRun run(program, arguments);
  if (run.WaitForExit(120'000).value_or(-1) != 0) {
    throw std::runtime_error("the installation failed");
  }
  QueryPerformanceCounter(&end);
  return 1000.0 * static_cast<double>(end.QuadPart - begin.QuadPart) /
         static_cast<double>(frequency.QuadPart);
}

/// Measures installations; each round has new hosts and no runtime.
void TimeInstallation(unsigned count, unsigned rounds, const std::wstring& program) {
  wchar_t folder[MAX_PATH + 1] = {};
  GetTempPathW(MAX_PATH + 1, folder);
  const std::wstring package = JoinPath(folder, L"kestrune-time-install");
  constexpr std::uint64_t kYear2026 = 134'117'856'000'000'000;
  MakePackage(package, kYear2026, "timed");
  std::vector<double> times;
  for (unsigned round = 0; round < rounds; ++round) {
    MakeMany(count);
    times.push_back(MillisecondsOf(program, L"--install --quiet --package " + Quoted(package)));
  }
  ClearBox();
  static_cast<void>(RemoveTree(package));
  std::ranges::sort(times);
  Print(std::to_string(std::lround(times.at(times.size() / 2))) + "\n");
}

/// Carries out a command. Returns false when the words are no command.
bool Carry(const std::vector<std::wstring>& words) {
  const std::wstring command = words.empty() ? L"" : words[0];
  if (command == L"make" && words.size() == 2) {
    MakeMany(static_cast<unsigned>(std::stoul(words[1])));
  } else if (command == L"make-three" && words.size() == 1) {
    MakeThree();
  } else if (command == L"snapshot" && words.size() == 2) {
    WriteSnapshot(words[1]);
  } else if (command == L"diff" && words.size() == 3) {
    for (const std::string& line :
         CompareSnapshots(ReadSnapshot(words[1]), ReadSnapshot(words[2]))) {
      Print(line + "\n");
    }
  } else if (command == L"show" && words.size() == 1) {
    ShowHosts();
  } else if (command == L"run" && words.size() == 4) {
    RunPhotographed(words[1], words[2], words[3]);
  } else if (command == L"time-install" && words.size() == 4) {
    TimeInstallation(static_cast<unsigned>(std::stoul(words[1])),
                     static_cast<unsigned>(std::stoul(words[2])), words[3]);
  } else if (command == L"clear" && words.size() == 1) {
    ClearBox();
  } else {
    return false;
  }
  return true;
}

int Run() {
  if (!ProfileIsDisposable()) {
    Print("This would change the user's profile; set KESTRUNE_DISPOSABLE_PROFILE=1 to allow it.\n");
    return 2;
  }
  int count = 0;
  const LocalMemory<wchar_t*> arguments(CommandLineToArgvW(GetCommandLineW(), &count));
  try {
    if (count == 3 && std::wstring_view(arguments.Get()[1]) == L"line") {
      return ExitCodeOfLine(arguments.Get()[2]);
    }
    if (Carry({arguments.Get() + 1, arguments.Get() + count})) {
      return 0;
    }
    Print(kUsage);
  } catch (const std::exception& error) {
    Print(std::string(error.what()) + "\n");
  }
  return 1;
}

}  // namespace
}  // namespace kestrune

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  return kestrune::Run();
}
