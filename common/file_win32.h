#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "common/extended_path_win32.h"
#include "common/owners_win32.h"

namespace kestrune {

/// What stands at a path.
enum class FileKind { Absent, RegularFile, Directory };

/// A file or directory as a program that opens it finds it.
struct FileEntry {
  FileKind kind = FileKind::Absent;
  /// In bytes; nothing to rely on for a directory.
  std::uint64_t size = 0;
};

/// Asks what stands at `path`, past symbolic links: a link is what it leads to, and one that leads
/// nowhere is not found. A file that another program holds without sharing is answered from its
/// directory entry, any other one from the file itself. False with the code of the failing call.
[[nodiscard]] bool QueryEntry(const std::wstring& path, FileEntry& entry, DWORD& code);

/// The kind alone, past symbolic links. Absent are file not found (2), path not found (3), bad
/// network path (53), invalid name (123) and no directory on the way (267); any other error throws
/// Failure "status" with the path and the Windows code.
FileKind QueryFileKind(const std::wstring& path);

/// QueryFileKind for callers to whom an error means the same as an absent file.
FileKind QueryFileKindQuietly(const std::wstring& path) noexcept;

/// Opens an existing file for reading. Owns nothing, with the thread's last error, when Windows
/// refuses.
FileHandle OpenForReading(const std::wstring& path,
                          DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);

/// Reads a whole file of at most `limit` bytes. False with the thread's last error when it cannot
/// be opened, sized or read whole; a larger file answers ERROR_FILE_TOO_LARGE before any byte is
/// read. Throws std::bad_alloc for one that memory cannot hold.
[[nodiscard]] bool ReadWholeFile(const std::wstring& path, std::uint64_t limit, std::string& bytes);

/// Reads as many bytes as `bytes` has from the handle's position. False with the thread's last
/// error; ERROR_HANDLE_EOF when there are fewer.
[[nodiscard]] bool ReadAll(HANDLE file, std::string& bytes);

/// A file that is written anew, from its creation to its checked close. The first failure is kept:
/// what is written after it is dropped, and Finish tells it.
class FileWriter {
 public:
  /// Creates or truncates the file.
  explicit FileWriter(const std::wstring& path, DWORD sharing = FILE_SHARE_READ);

  void Write(std::string_view bytes);

  /// Fails the file for a reason of the caller's, unless it failed before.
  void Fail(DWORD code);

  /// Closes the file. False with the thread's last error when anything failed; the file then stays
  /// as far as it got.
  [[nodiscard]] bool Finish();

 private:
  FileHandle file_;
  DWORD code_ = ERROR_SUCCESS;
};

/// Creates or truncates the file and writes the bytes. False with the thread's last error.
[[nodiscard]] bool WriteWholeFile(const std::wstring& path, std::string_view bytes);

/// Writes all bytes at the handle's position. False with the thread's last error;
/// ERROR_WRITE_FAULT when a call succeeded and wrote nothing.
[[nodiscard]] bool WriteAll(HANDLE file, std::string_view bytes);

/// WriteFile on a file that the caller knows.
using WriteCall = std::function<BOOL(const void* bytes, DWORD size, DWORD* written)>;

/// The same through a call of the caller's.
[[nodiscard]] bool WriteAll(std::string_view bytes, const WriteCall& write);

/// Copies a file over an existing one, with its times and streams. False with the thread's last
/// error.
[[nodiscard]] bool CopyOver(const std::wstring& source, const std::wstring& target);

/// Renames a file over an existing one. False with the thread's last error.
[[nodiscard]] bool RenameOver(const std::wstring& source, const std::wstring& target);

/// Takes the read-only attribute off. Does nothing where it is not set.
void ClearReadOnly(const std::wstring& path);

/// Creates a directory with all missing parents; one that exists already is success. False with the
/// thread's last error.
[[nodiscard]] bool CreateDirectories(const std::wstring& path);

/// Expands %NAME% with the process environment; a name that is not defined stays as written. False
/// when Windows refuses.
[[nodiscard]] bool ExpandEnvironment(const std::wstring& text, std::wstring& expanded);

}  // namespace kestrune
