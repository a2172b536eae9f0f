#pragma once

#include <string>
#include <string_view>

#include "tests/support/export/clipboard_win32.h"
#include "tests/support/export/prepare_fixture_win32.h"

namespace kestrune {

/// An archive of the host, ready for `--finalize`, and a clipboard with known content.
class FinalizeTest : public ExportTest {
 protected:
  void SetUp() override;

  /// `--finalize` of this test's archive for this test's board, as a script writes it.
  RunOutcome Finalize() const;
  RunOutcome FinalizeBoard(const std::wstring& board) const;

  /// The message of a delivery to the clipboard; more of it may follow.
  static std::wstring Delivered(const std::wstring& destination, std::wstring_view size);
  /// The message of a failure that names the log.
  [[nodiscard]] std::wstring SeeLog() const;

  /// The clipboard holds the archive as a file and as text, and nothing else of either.
  static void ExpectOnClipboard(const std::wstring& destination);
  /// The clipboard holds what it held before.
  static void ExpectClipboardUntouched();

  std::wstring native_;
  std::wstring board_ = L"C:\\boards\\Main.PcbDoc";
  std::wstring default_destination_;
  std::string native_bytes_ = std::string("PK\3\4archive\0\xFF", 13);
};

/// The system's text for a code without its line end, asked here and not through the program's own
/// code.
std::wstring SystemText(DWORD code);

}  // namespace kestrune
