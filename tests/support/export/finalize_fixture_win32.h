#pragma once

#include <string>
#include <string_view>

#include "tests/support/export/clipboard_win32.h"
#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {

/// Sets up an archive of the host for `--finalize`, and a clipboard with known content.
class FinalizeFixture : public ExportTest {
 protected:
  void SetUp() override;

  /// Runs `--finalize` for this test's archive and board, as the script does.
  RunOutcome Finalize() const;

  /// Returns the message about a delivery to the clipboard.
  static std::wstring Delivered(const std::wstring& destination, std::wstring_view size = L"0 KB");
  /// Returns the message about a destination that could not be overwritten.
  static std::wstring NotOverwritten(const std::wstring& destination, DWORD code);
  /// Returns the message of a failure that names the log.
  [[nodiscard]] std::wstring SeeLog() const;

  /// Returns the log's entries about the begin of a delivery and about the copy.
  [[nodiscard]] std::string BeginEntry(const std::wstring& destination) const;
  [[nodiscard]] std::string CopiedEntry(const std::wstring& destination) const;

  /// Expects exactly the archive on the clipboard, as a file and as text.
  static void ExpectOnClipboard(const std::wstring& destination);
  /// Expects the clipboard's former content.
  static void ExpectClipboardUntouched();

  std::wstring native_ = Scratch(L"native\\Bridge.zip");
  std::wstring board_ = L"C:\\boards\\Main.PcbDoc";
  std::wstring default_destination_ = folders_.default_export + L"\\Main.zip";
  std::string native_bytes_ = std::string("PK\3\4archive\0\xFF", 13);
};

/// Returns the system's text for a code without its line end, read without the program's own code.
std::wstring SystemText(DWORD code);

/// Keeps the clipboard open in another process until the end of the scope.
class HeldClipboard {
 public:
  /// Uses `marker` as a file for the communication with that process.
  explicit HeldClipboard(const std::wstring& marker);
  HeldClipboard(const HeldClipboard&) = delete;
  HeldClipboard& operator=(const HeldClipboard&) = delete;
  ~HeldClipboard();

 private:
  std::wstring marker_;
  ProgramRun holder_;
};

}  // namespace kestrune
