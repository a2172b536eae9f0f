// registration_command.exe VERB RCS BRANCH GUID PROJECT [OPTION...]: registers or removes
// the script project PROJECT in a given DXP.RCS and in the Global Projects key below a given branch
// of HKEY_CURRENT_USER, without the installer's other steps. VERB is install or remove.
//
// A point is the moment before or after a call that changes something or reads security.
//
//   --report FILE     writes the outcome, UTF-8: the message, and then a line for every point that
//                     the run passed: the call's name in SystemCalls and "before" or "after"
//   --fail-at N       fails the call of the N-th point; a point after the call fails it
//                     although it took effect
//   --die-at N        ends the process at the N-th point
//   --die-half-way N  ends the process after the N-th replacement has renamed DXP.RCS and before
//                     it renames the new file
//
// Exit codes: 0 done or nothing to do, 1 failed, 2 wrong arguments, 99 ended on request.
#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/text.h"
#include "common/text/text_win32.h"
#include "registration/transaction/global_projects.h"
#include "registration/rcs/toolbar_edit.h"
#include "registration/transaction/transaction.h"
#include "registration/store/windows_store_win32.h"
#include "tests/support/files_win32.h"
#include "tests/support/scripted_calls_win32.h"

namespace altium_registration {
namespace {

using kestrune::ExtendedPath;
using kestrune::SystemCall;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongArguments = 2;
constexpr UINT kEndedOnRequest = 99;

struct Arguments {
  bool install = false;
  StoreTarget target;
  std::wstring project;
  std::wstring report;
  /// The numbers of points and of replacements; 0 for none.
  unsigned long fail_at = 0;
  unsigned long die_at = 0;
  unsigned long die_half_way = 0;
};

/// Ends the process without running anything else, not even a destructor.
[[noreturn]] void EndProcess() {
  TerminateProcess(GetCurrentProcess(), kEndedOnRequest);
  for (;;) {
    Sleep(INFINITE);
  }
}

/// Makes the real calls, with a point before and after each at which the call may fail or the
/// process end.
class MortalCalls final : public kestrune::ScriptedCalls {
 public:
  explicit MortalCalls(const Arguments& arguments) : arguments_(arguments) {
    before = [this](const SystemCall& call) { return Point(call.name, " before\n"); };
    after = [this](const SystemCall& call) { return Point(call.name, " after\n"); };
  }

  /// Returns the points passed so far, a line for each.
  [[nodiscard]] const std::string& Points() const { return points_; }

  BOOL Replace(const ExtendedPath& replaced, const ExtendedPath& replacement,
               const ExtendedPath& displaced) override {
    if (++replacements_ == arguments_.die_half_way) {
      MoveFileExW(replaced.Get(), displaced.Get(), 0);
      EndProcess();
    }
    return ScriptedCalls::Replace(replaced, replacement, displaced);
  }

 private:
  /// Returns whether the call changes something or reads security. Ending the process or failing at
  /// any other call has the same result as at one of these.
  static bool IsPoint(std::string_view call) {
    constexpr std::string_view kPoints[] = {
        "GetAttributes", "Create",    "Write",    "Flush",      "Copy",
        "MakeDirectory", "Replace",   "Move",     "Delete",     "GetSecurity",
        "SetSecurity",   "CreateKey", "SetValue", "DeleteValue"};
    return std::ranges::find(kPoints, call) != std::ranges::end(kPoints);
  }

  std::optional<DWORD> Point(std::string_view call, std::string_view when) {
    if (!IsPoint(call)) {
      return std::nullopt;
    }
    points_.append(call).append(when);
    if (++count_ == arguments_.die_at) {
      EndProcess();
    }
    // Not a sharing violation, which would be retried.
    return count_ == arguments_.fail_at ? std::optional<DWORD>(ERROR_IO_DEVICE) : std::nullopt;
  }

  const Arguments& arguments_;
  std::string points_;
  unsigned long count_ = 0;
  unsigned long replacements_ = 0;
};

bool ReadOption(const std::wstring& name, const std::wstring& value, Arguments& arguments) {
  if (name == L"--report") {
    arguments.report = value;
    return true;
  }
  unsigned long* const number = name == L"--fail-at"        ? &arguments.fail_at
                                : name == L"--die-at"       ? &arguments.die_at
                                : name == L"--die-half-way" ? &arguments.die_half_way
                                                            : nullptr;
  if (number == nullptr) {
    return false;
  }
  *number = wcstoul(value.c_str(), nullptr, 10);
  return *number != 0;
}

bool ReadArguments(Arguments& arguments) {
  int count = 0;
  const kestrune::LocalMemory<wchar_t*> words(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!words || count < 6) {
    return false;
  }
  const std::vector<std::wstring> given(words.Get() + 1, words.Get() + count);
  arguments.install = given[0] == L"install";
  arguments.target = {given[1], given[2], given[3]};
  arguments.project = given[4];
  for (std::size_t i = 5; i < given.size(); i += 2) {
    if (i + 1 == given.size() || !ReadOption(given[i], given[i + 1], arguments)) {
      return false;
    }
  }
  return arguments.install || given[0] == L"remove";
}

/// Returns the button as the installer describes it for a host of major version 17 or below.
Spec SpecFor(const std::wstring& project) {
  Spec spec;
  if (!kestrune::AnsiFromWide(project, spec.script_project_path)) {
    throw kestrune::Failure{L"The project's path does not survive the ANSI code page.", 0};
  }
  spec.image_path = spec.script_project_path + ".bmp";
  spec.description = "Export PCB through Kestrune";
  spec.anchor_target = kToolbarAnchors[0].target;
  spec.anchor_reference = kToolbarAnchors[0].reference;
  return spec;
}

bool Register(const Arguments& arguments, MortalCalls& calls, std::wstring& message) {
  WindowsStore store(arguments.target, calls);
  const Spec spec = SpecFor(arguments.project);
  RegistrationChange change;
  Rcs rcs;
  std::string text = store.ReadRcs();
  change.values_before = store.ReadGlobalProjects();
  if (!Rcs::Parse(std::move(text), {}, rcs, message) ||
      !EditRcs(rcs, spec, arguments.install, change.rcs_after, message) ||
      !PlanGlobalProjects(change.values_before, arguments.project, arguments.install,
                          change.values_after, message)) {
    return false;
  }
  change.rcs_before = std::move(rcs).TakeText();
  change.validate = [&](std::string_view judged) {
    Rcs parsed;
    std::wstring ignored;
    return Rcs::Parse(std::string(judged), {}, parsed, ignored) &&
           ValidateRcs(parsed, spec, arguments.install, ignored);
  };
  return RunTransaction(store, change, message);
}

int Run() {
  Arguments arguments;
  if (!ReadArguments(arguments)) {
    return kWrongArguments;
  }
  MortalCalls calls(arguments);
  std::wstring message;
  bool success = false;
  try {
    success = Register(arguments, calls, message);
  } catch (const kestrune::Failure& failure) {
    message = failure.text;
  }
  if (!arguments.report.empty() &&
      !kestrune::TryWriteFile(arguments.report,
                              kestrune::Utf8FromWide(message) + "\n" + calls.Points())) {
    return kFailed;
  }
  return success ? kDone : kFailed;
}

}  // namespace
}  // namespace altium_registration

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  return altium_registration::Run();
}
