#include "entry/dispatch_win32.h"

#include <windows.h>
#include <shellapi.h>

#include <exception>
#include <type_traits>
#include <variant>

#include "common/failure/failure.h"
#include "common/log/log_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/text.h"
#include "export/log_interface.h"

namespace kestrune {
namespace {

/// Returns a description of the current exception for the log. Throws std::bad_alloc.
std::wstring DescribeException() {
  try {
    throw;
  } catch (const Failure& failure) {
    return ErrorFields(failure);
  } catch (const std::exception& exception) {
    return L"Error=" + WidenBytes(exception.what());
  } catch (...) {
    return L"Error=unknown";
  }
}

/// Logs the current exception.
void LogUnhandledFailure(SystemCalls& calls) noexcept {
  try {
    WriteLogEntry(calls, kStageUnhandled, DescribeException());
  } catch (...) {
    WriteLogEntry(calls, kStageUnhandled);
  }
}

}  // namespace

std::optional<Command> ReadCommandLine(const wchar_t* command_line) noexcept {
  try {
    int count = 0;
    const LocalMemory<wchar_t*> arguments(CommandLineToArgvW(command_line, &count));
    if (!arguments) {
      return std::nullopt;
    }
    return ParseCommandLine({arguments.Get(), arguments.Get() + count});
  } catch (...) {
    return std::nullopt;
  }
}

// std::visit throws only for a variant without a value, which a Command always has.
// NOLINTNEXTLINE(bugprone-exception-escape)
int RunCommand(const Command& command, const Modes& modes, const Doors& doors) noexcept {
  const auto carry_out = [&](const auto& chosen) noexcept {
    const auto& mode = std::get<Mode<std::decay_t<decltype(chosen)>>>(modes);
    try {
      return mode.run(chosen, doors);
    } catch (...) {
      LogUnhandledFailure(doors.system);
    }
    try {
      return mode.report_failure != nullptr ? mode.report_failure(chosen, doors)
                                            : mode.failure_code;
    } catch (...) {
      // Reporting ran out of memory too; returning the code needs none.
      return mode.failure_code;
    }
  };
  return std::visit(carry_out, command);
}

}  // namespace kestrune
