#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/machine/disposable_profile_win32.h"
#include "tests/support/process/program_run_win32.h"

namespace kestrune {

/// Holds the folders that the program uses, found without the program's own code.
struct ProfileFolders {
  std::wstring local;           // <profile>\AppData\Local
  std::wstring common;          // all users' application data
  std::wstring log;             // the diagnostic log's file
  std::wstring runtime;         // <local>\Kestrune\Runtime
  std::wstring temporary;       // <Public Documents>\Kestrune\Temp
  std::wstring native_zip;      // where the host writes its archive below `temporary`
  std::wstring default_export;  // <local>\Kestrune\ODBpp
  std::wstring settings;        // <local>\Kestrune\settings.ini
  std::wstring common_settings;
  std::wstring registration;  // <local>\Kestrune\registration.ini
};

ProfileFolders FindProfileFolders();

/// Returns a file's bytes; empty, with a failed expectation, when it cannot be read.
std::string FileBytes(const std::wstring& path);

/// Writes a file and creates its folders; fails an expectation when it cannot.
void PutFile(const std::wstring& path, std::string_view bytes);

/// Writes a file of `size` bytes, of which only `beginning` takes space if the file system supports
/// sparse files.
void PutSparseFile(const std::wstring& path, std::uint64_t size, std::string_view beginning = "PK");

bool Exists(const std::wstring& path);

/// Returns the names in a folder, sorted; none when the folder is absent.
std::vector<std::wstring> NamesIn(const std::wstring& folder);

/// Returns "Stage: <stage> | <detail>", as in the log.
std::string Entry(std::wstring_view stage, std::wstring_view detail);

/// Opens a file with the given sharing; it stays open as long as the handle lives.
FileHandle HoldOpen(const std::wstring& path, DWORD access, DWORD sharing);

/// Returns text as UTF-16LE with byte order mark, the encoding in which a settings file can contain
/// any character.
std::string Utf16WithMark(std::wstring_view text);

/// Returns the folder of the running test's own files.
std::wstring ScratchFolder();

/// Clears one user's Kestrune state: no log, no settings, no runtime, no temporary root, an empty
/// export folder, and a scratch folder of the test's own.
class ExportTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Returns the log's entries in order as "Stage: ..." without their times.
  std::vector<std::string> Log() const;

  /// Returns a path in the scratch folder.
  std::wstring Scratch(std::wstring_view name) const;

  /// Writes the user's settings file, which may contain any character.
  void Settings(std::wstring_view text) const;

  ProfileFolders folders_ = FindProfileFolders();

 private:
  const std::wstring scratch_ = ScratchFolder();
  bool owns_scratch_ = false;
};

/// Returns whether KESTRUNE_QUICK is 1.
bool QuickRunIsWanted();

/// Returns whether the run ended with the code and showed no box.
::testing::AssertionResult EndsSilentlyWith(int code, const RunOutcome& outcome);

/// Returns whether the run ended with the code after exactly one box with that text and icon,
/// titled "Kestrune", without an owner and not topmost.
::testing::AssertionResult EndsWithBox(int code, std::wstring_view text, unsigned icon,
                                       const RunOutcome& outcome);

}  // namespace kestrune

/// Skips a test that takes minutes when KESTRUNE_QUICK is 1.
#define KESTRUNE_NEEDS_TIME()       \
  if (kestrune::QuickRunIsWanted()) \
  GTEST_SKIP() << "takes minutes; left out of a quick run"
