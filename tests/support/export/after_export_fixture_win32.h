#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tests/support/export/finalize_fixture_win32.h"

namespace kestrune {

/// Holds how an application was started, as recorded by itself.
struct ChildRecord {
  std::wstring directory;
  std::wstring marker;
  std::wstring handle_path;
  std::wstring startup_flags;
  std::wstring command_line;
};

/// Sets up an export to an application that records its start: a copy of child_recorder.exe in a
/// folder with a blank in its name.
class AfterExportTest : public FinalizeTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Writes settings with the application enabled, its path, and more lines of the section.
  void Configure(std::wstring_view more) const;

  /// Returns the record of a start, when one came within ten seconds.
  std::optional<ChildRecord> Record() const;
  /// Returns whether no start came, after giving one the time to come.
  bool NoRecordComes() const;

  /// Returns the success message with the reason why the application was not started.
  [[nodiscard]] std::wstring NotStarted(std::wstring_view reason) const;

  std::wstring application_;
  std::wstring record_;
};

/// The two tokens that name this program and its version to the application.
inline constexpr std::wstring_view kIdentity =
    L"-bridge:\"AltiumDesigner\" -bridge-version:\"0.2.3\"";

}  // namespace kestrune
