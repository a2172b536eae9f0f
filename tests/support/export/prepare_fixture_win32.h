#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {

/// Sets up a board, its lists and a deployed output job for `--prepare`.
class PrepareTest : public ExportTest {
 protected:
  void SetUp() override;

  /// Writes the dependency list as ANSI text with CR LF.
  void Depend(const std::vector<std::wstring>& paths) const;

  /// Runs `--prepare` with this test's board, list and manifest.
  RunOutcome Prepare() const;
  RunOutcome PrepareBoard(const std::wstring& board) const;
  /// Runs the same with a status file.
  RunOutcome PrepareWithStatus(const std::wstring& status) const;

  [[nodiscard]] std::wstring InTemporary(std::wstring_view name) const;

  /// Returns the log's first entry for a board with so many dependencies.
  [[nodiscard]] std::string BeginEntry(const std::wstring& board, int dependencies) const;

  std::wstring board_;
  std::wstring list_;
  std::wstring manifest_;
  std::wstring output_job_;
  std::string board_bytes_ = std::string("board\0bytes\r\n\x1A\xFF", 15);
};

/// Returns "Stage: <stage> | <detail>", as in the log.
std::string Entry(std::wstring_view stage, std::wstring_view detail);

}  // namespace kestrune
