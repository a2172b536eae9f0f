#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {

/// Sets up a board, its lists and a deployed output job: what `--prepare` needs to succeed.
class PrepareFixture : public ExportTest {
 protected:
  void SetUp() override;

  /// Writes the dependency list as ANSI text with CR LF.
  void Depend(const std::vector<std::wstring>& paths) const;
  /// Writes a file into the scratch folder and returns its path.
  [[nodiscard]] std::wstring PutScratch(std::wstring_view name, std::string_view bytes) const;

  /// Runs `--prepare` with this test's board, list and manifest, and a status file if one is given.
  RunOutcome RunPrepare(const std::wstring& status = {}) const;

  [[nodiscard]] std::wstring InTemporary(std::wstring_view name) const;

  /// Returns the log's first entry for this test's board with so many dependencies.
  [[nodiscard]] std::string BeginEntry(int dependencies) const;

  std::wstring board_;
  std::wstring list_;
  std::wstring manifest_;
  std::wstring output_job_;
  std::string board_bytes_ = std::string("board\0bytes\r\n\x1A\xFF", 15);
};

}  // namespace kestrune
