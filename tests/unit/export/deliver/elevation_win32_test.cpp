// A program that demands administrator rights, started by a user without them.
#include <gtest/gtest.h>

#include <string>

#include "export/deliver/application/after_export_win32.h"
#include "tests/support/machine/disposable_profile_win32.h"
#include "tests/support/process/program_run_win32.h"

namespace kestrune {
namespace {

constexpr DWORD kElevationRequired = 740;

/// Makes the real calls except the last one, for which the shell would show the consent prompt.
class AskedThroughShell final : public Desktop {
 public:
  BOOL CreateSuspended(const wchar_t* application, wchar_t* command_line, const wchar_t* directory,
                       PROCESS_INFORMATION& process) override {
    const BOOL created = Desktop::CreateSuspended(application, command_line, directory, process);
    code = created ? ERROR_SUCCESS : GetLastError();
    return created;
  }
  BOOL Execute(SHELLEXECUTEINFOW& execution) override {
    asked = execution.lpFile;
    SetLastError(ERROR_CANCELLED);
    return FALSE;
  }

  DWORD code = ERROR_SUCCESS;
  std::wstring asked;
};

TEST(Elevation, ProgramThatDemandsItGoesThroughShell) {
  const std::wstring program = TestProgramPath(L"needs_elevation");
  AskedThroughShell calls;
  std::wstring error_text;
  const bool started = StartApplication(program, L"", calls, error_text);
  if (started) {
    GTEST_SKIP() << "this system starts it without asking: Wine, an administrator, or no user "
                    "account control";
  }
  EXPECT_EQ(calls.code, kElevationRequired);
  EXPECT_EQ(calls.asked, program);
  EXPECT_EQ(error_text,
            L"The configured after-export application requires elevation and could not be started. "
            L"Windows error: 1223");
}

}  // namespace
}  // namespace kestrune
