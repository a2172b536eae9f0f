#include "common/files/file_win32.h"

#include <algorithm>
#include <new>
#include <variant>

#include "common/failure/failure.h"
#include "common/failure/failure_win32.h"
#include "common/files/file_time_win32.h"
#include "common/text/path.h"
#include "common/failure/windows_error_win32.h"

namespace kestrune {
namespace {

constexpr std::size_t kLargestTransfer = std::size_t{1} << 30;

FileKind KindOf(DWORD attributes) {
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileKind::Directory : FileKind::RegularFile;
}

bool IsLink(DWORD attributes) {
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

bool IsSymbolicLink(const WIN32_FIND_DATAW& listed) {
  return IsLink(listed.dwFileAttributes) && listed.dwReserved0 == IO_REPARSE_TAG_SYMLINK;
}

/// Holds the stat of a path, or the Windows code of the call that failed.
using Stat = std::variant<FileEntry, DWORD>;

/// Returns the stat of a symbolic link's target. Opens it without any access right, so that it
/// cannot fail with a sharing violation.
Stat StatOfTarget(SystemCalls& calls, const ExtendedPath& link) {
  const FileHandle target(
      calls.Create(link, {0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING,
                          FILE_FLAG_BACKUP_SEMANTICS}));
  BY_HANDLE_FILE_INFORMATION information{};
  if (!target || !calls.GetInformation(target.Get(), &information)) {
    return GetLastError();
  }
  return FileEntry{KindOf(information.dwFileAttributes),
                   JoinWords(information.nFileSizeHigh, information.nFileSizeLow)};
}

/// Returns the stat from the directory listing, which distinguishes the kinds of links and needs no
/// access to the file.
Stat StatFromListing(SystemCalls& calls, const ExtendedPath& path) {
  WIN32_FIND_DATAW listed{};
  const FindHandle find(calls.FindFirst(path, &listed));
  if (!find) {
    return GetLastError();
  }
  if (IsSymbolicLink(listed)) {
    return StatOfTarget(calls, path);
  }
  return FileEntry{KindOf(listed.dwFileAttributes),
                   JoinWords(listed.nFileSizeHigh, listed.nFileSizeLow)};
}

/// Returns whether the directory listing has a symbolic link at the path; false for other kinds of
/// links.
bool IsListedAsSymbolicLink(SystemCalls& calls, const ExtendedPath& path) {
  WIN32_FIND_DATAW listed{};
  const FindHandle find(calls.FindFirst(path, &listed));
  return find && IsSymbolicLink(listed);
}

/// Returns the stat of a path, from the file itself; from the directory listing only on a sharing
/// violation.
Stat StatOf(SystemCalls& calls, const ExtendedPath& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!calls.GetAttributes(path, &data)) {
    const DWORD code = GetLastError();
    return code == ERROR_SHARING_VIOLATION ? StatFromListing(calls, path) : Stat(code);
  }
  if (IsLink(data.dwFileAttributes) && IsListedAsSymbolicLink(calls, path)) {
    return StatOfTarget(calls, path);
  }
  return FileEntry{KindOf(data.dwFileAttributes), JoinWords(data.nFileSizeHigh, data.nFileSizeLow)};
}

/// Creates one directory. Returns ERROR_SUCCESS, also for one that exists already, or the code of
/// the call that creates it.
DWORD MakeDirectory(SystemCalls& calls, const ExtendedPath& path) {
  if (calls.MakeDirectory(path)) {
    return ERROR_SUCCESS;
  }
  const DWORD code = GetLastError();
  WIN32_FILE_ATTRIBUTE_DATA data{};
  const bool exists = calls.GetAttributes(path, &data) != FALSE &&
                      KindOf(data.dwFileAttributes) == FileKind::Directory;
  return exists ? ERROR_SUCCESS : code;
}

/// Creates a directory with its missing parents. Returns ERROR_SUCCESS, or the code of the first
/// call that failed for another reason than a missing parent.
DWORD MakeDirectories(SystemCalls& calls, const std::wstring& path) {
  const ExtendedPath extended(path);
  const DWORD code = MakeDirectory(calls, extended);
  const std::wstring parent(ParentPath(path));
  if (code != ERROR_PATH_NOT_FOUND || parent.size() >= path.size()) {
    return code;
  }
  const DWORD parent_code = MakeDirectories(calls, parent);
  return parent_code == ERROR_SUCCESS ? MakeDirectory(calls, extended) : parent_code;
}

}  // namespace

FileEntry QueryEntry(SystemCalls& calls, const std::wstring& path, const wchar_t* step) {
  const Stat stat = StatOf(calls, ExtendedPath(path));
  if (const DWORD* code = std::get_if<DWORD>(&stat)) {
    throw Failure{step, *code, path};
  }
  return std::get<FileEntry>(stat);
}

std::optional<FileEntry> QueryEntryQuietly(SystemCalls& calls, const std::wstring& path) {
  const Stat stat = StatOf(calls, ExtendedPath(path));
  const FileEntry* entry = std::get_if<FileEntry>(&stat);
  return entry != nullptr ? std::optional(*entry) : std::nullopt;
}

FileKind QueryFileKind(SystemCalls& calls, const std::wstring& path) {
  const Stat stat = StatOf(calls, ExtendedPath(path));
  if (const FileEntry* entry = std::get_if<FileEntry>(&stat)) {
    return entry->kind;
  }
  const DWORD code = std::get<DWORD>(stat);
  if (path.empty() || MeansAbsent(code)) {
    return FileKind::Absent;
  }
  throw Failure{L"status", code, path};
}

FileKind QueryFileKindQuietly(SystemCalls& calls, const std::wstring& path) {
  return QueryEntryQuietly(calls, path).value_or(FileEntry{}).kind;
}

std::string ReadWholeFile(SystemCalls& calls, const std::wstring& path, std::uint64_t limit) {
  constexpr const wchar_t* kStep = L"read";
  const ExtendedPath extended(path);
  const FileHandle file(calls.Create(
      extended, {GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE}));
  LARGE_INTEGER size{};
  if (!file || !calls.GetSize(file.Get(), &size)) {
    ThrowLastError(kStep, path);
  }
  if (static_cast<std::uint64_t>(size.QuadPart) > limit) {
    throw Failure{kStep, ERROR_FILE_TOO_LARGE, path};
  }
  std::string bytes;
  if (static_cast<std::uint64_t>(size.QuadPart) > bytes.max_size()) {
    throw std::bad_alloc();
  }
  bytes.resize(static_cast<std::size_t>(size.QuadPart));
  try {
    ReadAll(calls, file.Get(), bytes);
  } catch (Failure& failure) {
    failure.subject = path;
    throw;
  }
  return bytes;
}

std::optional<std::string> ReadFileIfPossible(SystemCalls& calls, const std::wstring& path,
                                              std::uint64_t limit) {
  try {
    return ReadWholeFile(calls, path, limit);
  } catch (const Failure&) {
    return std::nullopt;
  }
}

void ReadAll(SystemCalls& calls, HANDLE file, std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    DWORD read = 0;
    const auto chunk = static_cast<DWORD>(std::min(bytes.size() - done, kLargestTransfer));
    if (!calls.Read(file, bytes.data() + done, chunk, &read)) {
      ThrowLastError(L"read");
    }
    if (read == 0) {
      throw Failure{L"read", ERROR_HANDLE_EOF};
    }
    done += read;
  }
}

void WriteAll(SystemCalls& calls, HANDLE file, std::string_view bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    const auto chunk = static_cast<DWORD>(std::min(bytes.size(), kLargestTransfer));
    if (!calls.Write(file, bytes.data(), chunk, &written)) {
      ThrowLastError(L"write");
    }
    if (written == 0) {
      throw Failure{L"write", ERROR_WRITE_FAULT};
    }
    bytes.remove_prefix(written);
  }
}

FileWriter::FileWriter(SystemCalls& calls, const std::wstring& path, DWORD sharing)
    : calls_(calls), path_(path) {
  const ExtendedPath extended(path);
  file_.Reset(calls_.Create(extended, {GENERIC_WRITE, sharing, CREATE_ALWAYS}));
  if (!file_) {
    code_ = GetLastError();
  }
}

void FileWriter::Write(std::string_view bytes) {
  if (code_ != ERROR_SUCCESS) {
    return;
  }
  try {
    WriteAll(calls_, file_.Get(), bytes);
  } catch (const Failure& failure) {
    code_ = failure.code;
  }
}

void FileWriter::Fail(DWORD code) {
  if (code_ == ERROR_SUCCESS) {
    code_ = code;
  }
}

void FileWriter::Finish(const wchar_t* step) {
  if (file_ && !calls_.Close(file_.Release())) {
    Fail(GetLastError());
  }
  if (code_ != ERROR_SUCCESS) {
    throw Failure{step, code_, path_};
  }
}

void WriteWholeFile(SystemCalls& calls, const std::wstring& path, std::string_view bytes) {
  FileWriter file(calls, path, FILE_SHARE_READ | FILE_SHARE_WRITE);
  file.Write(bytes);
  file.Finish(L"write");
}

void RenameFile(SystemCalls& calls, const std::wstring& source, const std::wstring& target,
                DWORD flags) {
  const ExtendedPath from(source);
  const ExtendedPath to(target);
  if (!calls.Move(from, to, flags)) {
    ThrowLastError(L"rename", target);
  }
}

void ClearReadOnly(SystemCalls& calls, const std::wstring& path) {
  constexpr DWORD kReadOnly = FILE_ATTRIBUTE_READONLY;
  const ExtendedPath extended(path);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (calls.GetAttributes(extended, &data) && (data.dwFileAttributes & kReadOnly) != 0) {
    calls.SetAttributes(extended, data.dwFileAttributes & ~kReadOnly);
  }
}

void CreateDirectories(SystemCalls& calls, const std::wstring& path) {
  const DWORD code = MakeDirectories(calls, FullPath(path));
  if (code != ERROR_SUCCESS) {
    throw Failure{L"create_directories", code, path};
  }
}

std::wstring ReadProfileText(SystemCalls& calls, const std::wstring& path, const wchar_t* section,
                             const wchar_t* key) {
  constexpr DWORD kSize = 32768;  // UTF-16 units, including the terminating null
  std::wstring text(kSize, L'\0');
  text.resize(calls.ReadProfileText(section, key, L"", text.data(), kSize, path));
  return text;
}

bool ExpandEnvironment(SystemCalls& calls, const std::wstring& text, std::wstring& expanded) {
  const DWORD size = calls.ExpandText(text, nullptr, 0);
  if (size == 0) {
    return false;
  }
  expanded.resize(size);
  const DWORD written = calls.ExpandText(text, expanded.data(), size);
  if (written == 0 || written > size) {
    expanded.clear();
    return false;
  }
  expanded.resize(written - 1);
  return true;
}

}  // namespace kestrune
