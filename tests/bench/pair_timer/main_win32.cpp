// pair_timer.exe COUNT PAUSE_MS CODE_A LINE_A CODE_B LINE_B: starts two command lines in turn,
// COUNT times each, and times each from its start to its exit. Which of the two is first alternates
// from pair to pair. The measurement fails when a start ends with another code.
//
// Prints one line: median of A and of B in milliseconds, then median, lower and upper quartile of
// the ratios A/B of the pairs.
#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

#include "common/system/owners_win32.h"

namespace {

struct Program {
  DWORD code = 0;
  std::wstring line;
};

/// Returns the milliseconds from start to exit; nothing when the exit code is another one.
std::optional<double> Time(const Program& program) {
  std::wstring line = program.line;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  LARGE_INTEGER frequency = {};
  LARGE_INTEGER begin = {};
  LARGE_INTEGER end = {};
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&begin);
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    return std::nullopt;
  }
  const kestrune::KernelHandle thread(process.hThread);
  const kestrune::KernelHandle owner(process.hProcess);
  DWORD code = 0;
  if (WaitForSingleObject(owner.Get(), 120'000) != WAIT_OBJECT_0) {
    TerminateProcess(owner.Get(), 1);
    return std::nullopt;
  }
  QueryPerformanceCounter(&end);
  if (!GetExitCodeProcess(owner.Get(), &code) || code != program.code) {
    return std::nullopt;
  }
  return 1000.0 * static_cast<double>(end.QuadPart - begin.QuadPart) /
         static_cast<double>(frequency.QuadPart);
}

double Quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1) + 0.5)];
}

int Measure(const Program& a, const Program& b, unsigned long count, DWORD pause) {
  std::vector<double> times_a;
  std::vector<double> times_b;
  std::vector<double> ratios;
  for (unsigned long i = 0; i < count + 1; ++i) {
    double sum_a = 0;
    double sum_b = 0;
    for (const bool is_a : {true, false, false, true}) {
      const std::optional<double> time = Time(is_a ? a : b);
      if (!time) {
        std::fprintf(stderr, "a program did not end as expected\n");
        return 1;
      }
      Sleep(pause);
      (is_a ? sum_a : sum_b) += *time;
      if (i > 0) {
        (is_a ? times_a : times_b).push_back(*time);
      }
    }
    if (i > 0) {  // the first round warms caches
      ratios.push_back(sum_a / sum_b);
    }
  }
  std::printf("%.1f %.1f %.3f %.3f %.3f\n", Quantile(times_a, 0.5), Quantile(times_b, 0.5),
              Quantile(ratios, 0.5), Quantile(ratios, 0.25), Quantile(ratios, 0.75));
  return 0;
}

}  // namespace

int main() {
  int count = 0;
  const kestrune::LocalMemory<wchar_t*> owner(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!owner || count != 7) {
    std::fprintf(stderr, "pair_timer COUNT PAUSE_MS CODE_A LINE_A CODE_B LINE_B\n");
    return 2;
  }
  wchar_t* const* const arguments = owner.Get();
  const auto number = [&](int i) { return std::wcstoul(arguments[i], nullptr, 10); };
  return Measure({number(3), arguments[4]}, {number(5), arguments[6]}, number(1), number(2));
}
