#pragma once

#include <string>
#include <string_view>

#include "tests/support/export/clipboard_win32.h"
#include "tests/support/export/prepare_fixture_win32.h"

namespace kestrune {

/// Sets up an archive of the host for `--finalize`, and a clipboard with known content.
class FinalizeTest : public ExportTest {
 protected:
  void SetUp() override;

  /// Runs `--finalize` for this test's archive and board, as the script does.
  RunOutcome Finalize() const;
  RunOutcome FinalizeBoard(const std::wstring& board) const;

  /// Returns the beginning of the message about a delivery to the clipboard.
  static std::wstring Delivered(const std::wstring& destination, std::wstring_view size);
  /// Returns the message of a failure that names the log.
  [[nodiscard]] std::wstring SeeLog() const;

  /// Expects exactly the archive on the clipboard, as a file and as text.
  static void ExpectOnClipboard(const std::wstring& destination);
  /// Expects the clipboard's former content.
  static void ExpectClipboardUntouched();

  std::wstring native_;
  std::wstring board_ = L"C:\\boards\\Main.PcbDoc";
  std::wstring default_destination_;
  std::string native_bytes_ = std::string("PK\3\4archive\0\xFF", 13);
};

/// Returns the system's text for a code without its line end, read without the program's own code.
std::wstring SystemText(DWORD code);

}  // namespace kestrune
