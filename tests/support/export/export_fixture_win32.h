#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/machine/disposable_profile_win32.h"
#include "tests/support/process/program_run_win32.h"

namespace kestrune {

/// The folders that the program uses, found without the program's own code.
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

/// What a path holds, as bytes; empty with a failed expectation when it cannot be read.
std::string FileBytes(const std::wstring& path);

/// Writes a file, making its folders; a failed expectation when it cannot.
void PutFile(const std::wstring& path, std::string_view bytes);

/// A file of `size` bytes of which only the first are written; the rest takes no space where the
/// file system knows sparse files.
void PutSparseFile(const std::wstring& path, std::uint64_t size, std::string_view beginning = "PK");

bool Exists(const std::wstring& path);

/// The names in a folder, sorted; nothing for a folder that is not there.
std::vector<std::wstring> NamesIn(const std::wstring& folder);

/// Holds a file open with the given sharing until the end of the scope.
FileHandle HoldOpen(const std::wstring& path, DWORD access, DWORD sharing);

/// Text as UTF-16LE with its mark: the encoding of a settings file that holds any character.
std::string Utf16WithMark(std::wstring_view text);

/// Makes one user's Kestrune state disposable and clean: no log, no settings, no runtime, no
/// temporary root, an empty export folder, and a scratch folder of the test's own.
class ExportTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// The log's entries in order as "Stage: ..." without their times.
  std::vector<std::string> Log() const;

  /// A path in the scratch folder.
  std::wstring Scratch(std::wstring_view name) const;

  /// Writes the user's settings file; any character may stand in it.
  void Settings(std::wstring_view text) const;

  ProfileFolders folders_ = FindProfileFolders();

 private:
  std::wstring scratch_;
};

/// Whether KESTRUNE_QUICK=1.
bool QuickRunIsWanted();

/// A start that ended with the code and showed nothing.
::testing::AssertionResult EndsSilentlyWith(int code, const RunOutcome& outcome);

/// A start that ended with the code after exactly one box of that text and icon, titled "Kestrune",
/// without an owner and not on top of everything.
::testing::AssertionResult EndsWithBox(int code, std::wstring_view text, unsigned icon,
                                       const RunOutcome& outcome);

}  // namespace kestrune

/// Skips a test that takes minutes where KESTRUNE_QUICK=1 asks for a quick run.
#define KESTRUNE_NEEDS_TIME()       \
  if (kestrune::QuickRunIsWanted()) \
  GTEST_SKIP() << "takes minutes; left out of a quick run"
