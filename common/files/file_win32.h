#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/system/owners_win32.h"
#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Lists what can exist at a path.
enum class FileKind { Absent, RegularFile, Directory };

/// Holds the kind and size of a file or directory, with symbolic links followed.
struct FileEntry {
  FileKind kind = FileKind::Absent;
  /// In bytes; undefined for a directory.
  std::uint64_t size = 0;
};

/// Returns the stat of `path`. Symbolic links are followed; one without a target is not found. The
/// values come from the file itself, or from its directory entry when another program has it open
/// without sharing. Throws Failure `step` with the path and the Windows code, also when nothing
/// exists there.
FileEntry QueryEntry(SystemCalls& calls, const std::wstring& path, const wchar_t* step);

/// Returns the stat like QueryEntry, or nothing where QueryEntry throws.
std::optional<FileEntry> QueryEntryQuietly(SystemCalls& calls, const std::wstring& path);

/// Returns only the kind, with symbolic links followed. It is Absent for file not found (2), path
/// not found (3), bad network path (53), invalid name (123) and a parent that is not a directory
/// (267). Throws Failure "status" with the path and the Windows code for any other error.
FileKind QueryFileKind(SystemCalls& calls, const std::wstring& path);

/// Returns the kind like QueryFileKind, or Absent for every error.
FileKind QueryFileKindQuietly(SystemCalls& calls, const std::wstring& path);

/// Reads a whole file of at most `limit` bytes. Throws Failure "read" with the path and the Windows
/// code when it cannot be opened or read completely; a larger file fails with ERROR_FILE_TOO_LARGE
/// before any byte is read. Throws std::bad_alloc when the file does not fit into memory.
std::string ReadWholeFile(SystemCalls& calls, const std::wstring& path, std::uint64_t limit);

/// Returns the bytes like ReadWholeFile, or nothing where ReadWholeFile throws Failure.
std::optional<std::string> ReadFileIfPossible(SystemCalls& calls, const std::wstring& path,
                                              std::uint64_t limit);

/// Fills `bytes`, at its present size, from the handle's position. Throws Failure "read" with the
/// Windows code; ERROR_HANDLE_EOF when there are fewer.
void ReadAll(SystemCalls& calls, HANDLE file, std::string& bytes);

/// Writes all bytes at the handle's position. Throws Failure "write" with the Windows code;
/// ERROR_WRITE_FAULT when a call succeeded without writing a byte.
void WriteAll(SystemCalls& calls, HANDLE file, std::string_view bytes);

/// Writes a new file and checks every call up to the close. After the first failure nothing more is
/// written, and Finish throws that failure.
class FileWriter {
 public:
  /// Creates or truncates the file.
  FileWriter(SystemCalls& calls, const std::wstring& path, DWORD sharing = FILE_SHARE_READ);

  /// Writes at the end of what was written so far.
  void Write(std::string_view bytes);

  /// Records a failure of the caller, unless one is recorded already.
  void Fail(DWORD code);

  /// Closes the file. Throws Failure `step` with the path and the code of the first failure; the
  /// incomplete file is then left.
  void Finish(const wchar_t* step);

 private:
  SystemCalls& calls_;
  std::wstring path_;
  FileHandle file_;
  DWORD code_ = ERROR_SUCCESS;
};

/// Creates or truncates the file and writes the bytes. Throws Failure "write" with the path and the
/// Windows code.
void WriteWholeFile(SystemCalls& calls, const std::wstring& path, std::string_view bytes);

/// Renames a file; `flags` are those of MoveFileExW and decide whether it replaces an existing one.
/// Throws Failure "rename" with the target's path and the Windows code.
void RenameFile(SystemCalls& calls, const std::wstring& source, const std::wstring& target,
                DWORD flags);

/// Clears the read-only attribute if it is set. Ignores failures.
void ClearReadOnly(SystemCalls& calls, const std::wstring& path);

/// Creates a directory with all missing parents, unless it exists. Throws Failure
/// "create_directories" with `path` and the code of the call that failed first.
void CreateDirectories(SystemCalls& calls, const std::wstring& path);

/// Reads a text of a profile file ("INI"), at most 32,767 characters of it. Returns an empty text
/// when the file, the section or the key is absent or unreadable. `path` must be a full path:
/// Windows searches for a file name without a folder in its own directory.
std::wstring ReadProfileText(SystemCalls& calls, const std::wstring& path, const wchar_t* section,
                             const wchar_t* key);

/// Expands %NAME% from the process environment; an undefined name is kept as written. Returns false
/// when Windows cannot expand the text.
[[nodiscard]] bool ExpandEnvironment(SystemCalls& calls, const std::wstring& text,
                                     std::wstring& expanded);

}  // namespace kestrune
