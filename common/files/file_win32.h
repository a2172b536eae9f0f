#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/system/extended_path_win32.h"
#include "common/system/owners_win32.h"
#include "common/system/system_calls_win32.h"

namespace kestrune {

/// What stands at a path.
enum class FileKind { Absent, RegularFile, Directory };

/// A file or directory as a program that opens it finds it.
struct FileEntry {
  FileKind kind = FileKind::Absent;
  /// In bytes; nothing to rely on for a directory.
  std::uint64_t size = 0;
};

/// Returns what is at `path`, past symbolic links: a link is what it leads to, and one that leads
/// nowhere is not found. A file that another program holds without sharing is described by its
/// directory entry, any other one by the file itself. Throws Failure `step` with the path and the
/// Windows code, also where nothing is.
FileEntry QueryEntry(const std::wstring& path, const wchar_t* step);

/// Returns the same; nothing where QueryEntry throws.
std::optional<FileEntry> QueryEntryQuietly(const std::wstring& path);

/// The kind alone, past symbolic links. Absent are file not found (2), path not found (3), bad
/// network path (53), invalid name (123) and no directory on the way (267); any other error throws
/// Failure "status" with the path and the Windows code.
FileKind QueryFileKind(const std::wstring& path);

/// QueryFileKind for callers to whom an error means the same as an absent file.
FileKind QueryFileKindQuietly(const std::wstring& path) noexcept;

/// Reads a whole file of at most `limit` bytes. Throws Failure "read" with the path and the Windows
/// code when it cannot be opened, sized or read whole; a larger file is ERROR_FILE_TOO_LARGE before
/// any byte is read. Throws std::bad_alloc for one that memory cannot hold.
std::string ReadWholeFile(const std::wstring& path, std::uint64_t limit);

/// Returns the same; nothing where ReadWholeFile throws Failure.
std::optional<std::string> ReadFileIfPossible(const std::wstring& path, std::uint64_t limit);

/// Reads as many bytes as `bytes` has from the handle's position. Throws Failure "read" with the
/// Windows code; ERROR_HANDLE_EOF when there are fewer.
void ReadAll(SystemCalls& calls, HANDLE file, std::string& bytes);

/// Writes all bytes at the handle's position. Throws Failure "write" with the Windows code;
/// ERROR_WRITE_FAULT when a call succeeded and wrote nothing.
void WriteAll(SystemCalls& calls, HANDLE file, std::string_view bytes);

/// A file that is written anew, from its creation to its checked close. The first failure is kept:
/// what is written after it is dropped, and Finish throws it.
class FileWriter {
 public:
  /// Creates or truncates the file.
  explicit FileWriter(const std::wstring& path, DWORD sharing = FILE_SHARE_READ);

  void Write(std::string_view bytes);

  /// Fails the file for a reason of the caller's, unless it failed before.
  void Fail(DWORD code);

  /// Closes the file. Throws Failure `step` with the path and the code of the first failure; the
  /// file then stays as far as it got.
  void Finish(const wchar_t* step);

 private:
  std::wstring path_;
  FileHandle file_;
  DWORD code_ = ERROR_SUCCESS;
};

/// Creates or truncates the file and writes the bytes. Throws Failure "write" with the path and the
/// Windows code.
void WriteWholeFile(const std::wstring& path, std::string_view bytes);

/// Renames a file, over an existing one where `flags` (those of MoveFileExW) say so. Throws Failure
/// "rename" with the target's path and the Windows code.
void RenameFile(const std::wstring& source, const std::wstring& target, DWORD flags);

/// Takes the read-only attribute off. Does nothing where it is not set.
void ClearReadOnly(const std::wstring& path);

/// Creates a directory with all missing parents; one that exists already is success. Throws Failure
/// "create_directories" with `path` and the code of the call that failed first.
void CreateDirectories(SystemCalls& calls, const std::wstring& path);

/// Expands %NAME% with the process environment; a name that is not defined stays as written. False
/// when Windows refuses.
[[nodiscard]] bool ExpandEnvironment(const std::wstring& text, std::wstring& expanded);

}  // namespace kestrune
