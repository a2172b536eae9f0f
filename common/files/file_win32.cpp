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

/// The stat of a path, or the code of the call that failed.
using Status = std::variant<FileEntry, DWORD>;

/// Returns the stat of a symbolic link's target. Opens it without any access right, so that it
/// cannot fail with a sharing violation.
Status StatusOfTarget(const std::wstring& link) {
  const FileHandle target(CreateFileW(link.c_str(), 0,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  BY_HANDLE_FILE_INFORMATION information{};
  if (!target || !GetFileInformationByHandle(target.Get(), &information)) {
    return GetLastError();
  }
  return FileEntry{KindOf(information.dwFileAttributes),
                   JoinWords(information.nFileSizeHigh, information.nFileSizeLow)};
}

/// Returns the stat from the directory listing, which distinguishes the kinds of links and needs no
/// access to the file.
Status StatusByListing(const std::wstring& extended) {
  WIN32_FIND_DATAW listed{};
  const FindHandle find(FindFirstFileW(extended.c_str(), &listed));
  if (!find) {
    return GetLastError();
  }
  if (IsSymbolicLink(listed)) {
    return StatusOfTarget(extended);
  }
  return FileEntry{KindOf(listed.dwFileAttributes),
                   JoinWords(listed.nFileSizeHigh, listed.nFileSizeLow)};
}

/// Returns whether the directory listing has a symbolic link at the path; false for other kinds of
/// links.
bool IsListedAsSymbolicLink(const std::wstring& extended) {
  WIN32_FIND_DATAW listed{};
  const FindHandle find(FindFirstFileW(extended.c_str(), &listed));
  return find && IsSymbolicLink(listed);
}

/// Returns the stat of a path, from the file itself; from the directory listing only on a sharing
/// violation.
Status StatusOf(const std::wstring& path) {
  const std::wstring extended = ExtendedPath(path).Text();
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!GetFileAttributesExW(extended.c_str(), GetFileExInfoStandard, &data)) {
    const DWORD code = GetLastError();
    return code == ERROR_SHARING_VIOLATION ? StatusByListing(extended) : Status(code);
  }
  if (IsLink(data.dwFileAttributes) && IsListedAsSymbolicLink(extended)) {
    return StatusOfTarget(extended);
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

FileEntry QueryEntry(const std::wstring& path, const wchar_t* step) {
  const Status status = StatusOf(path);
  if (const DWORD* code = std::get_if<DWORD>(&status)) {
    throw Failure{step, *code, path};
  }
  return std::get<FileEntry>(status);
}

std::optional<FileEntry> QueryEntryQuietly(const std::wstring& path) {
  const Status status = StatusOf(path);
  const FileEntry* entry = std::get_if<FileEntry>(&status);
  return entry != nullptr ? std::optional(*entry) : std::nullopt;
}

FileKind QueryFileKind(const std::wstring& path) {
  const Status status = StatusOf(path);
  if (const FileEntry* entry = std::get_if<FileEntry>(&status)) {
    return entry->kind;
  }
  const DWORD code = std::get<DWORD>(status);
  if (path.empty() || MeansAbsent(code)) {
    return FileKind::Absent;
  }
  throw Failure{L"status", code, path};
}

FileKind QueryFileKindQuietly(const std::wstring& path) noexcept {
  try {
    return QueryEntryQuietly(path).value_or(FileEntry{}).kind;
  } catch (...) {
    return FileKind::Absent;
  }
}

std::string ReadWholeFile(const std::wstring& path, std::uint64_t limit) {
  constexpr const wchar_t* kStep = L"read";
  SystemCalls calls;
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

std::optional<std::string> ReadFileIfPossible(const std::wstring& path, std::uint64_t limit) {
  try {
    return ReadWholeFile(path, limit);
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

FileWriter::FileWriter(const std::wstring& path, DWORD sharing) : path_(path) {
  const ExtendedPath extended(path);
  file_.Reset(CreateFileW(extended.Get(), GENERIC_WRITE, sharing, nullptr, CREATE_ALWAYS,
                          FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file_) {
    code_ = GetLastError();
  }
}

void FileWriter::Write(std::string_view bytes) {
  if (code_ != ERROR_SUCCESS) {
    return;
  }
  try {
    SystemCalls calls;
    WriteAll(calls, file_.Get(), bytes);
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
  if (file_ && !CloseHandle(file_.Release())) {
    Fail(GetLastError());
  }
  if (code_ != ERROR_SUCCESS) {
    throw Failure{step, code_, path_};
  }
}

void WriteWholeFile(const std::wstring& path, std::string_view bytes) {
  FileWriter file(path, FILE_SHARE_READ | FILE_SHARE_WRITE);
  file.Write(bytes);
  file.Finish(L"write");
}

void RenameFile(const std::wstring& source, const std::wstring& target, DWORD flags) {
  const ExtendedPath from(source);
  const ExtendedPath to(target);
  if (!MoveFileExW(from.Get(), to.Get(), flags)) {
    ThrowLastError(L"rename", target);
  }
}

void ClearReadOnly(const std::wstring& path) {
  const std::wstring extended = ExtendedPath(path).Text();
  const DWORD attributes = GetFileAttributesW(extended.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    SetFileAttributesW(extended.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
  }
}

void CreateDirectories(SystemCalls& calls, const std::wstring& path) {
  const DWORD code = MakeDirectories(calls, FullPath(path));
  if (code != ERROR_SUCCESS) {
    throw Failure{L"create_directories", code, path};
  }
}

bool ExpandEnvironment(const std::wstring& text, std::wstring& expanded) {
  const DWORD size = ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
  if (size == 0) {
    return false;
  }
  expanded.resize(size);
  const DWORD written = ExpandEnvironmentStringsW(text.c_str(), expanded.data(), size);
  if (written == 0 || written > size) {
    expanded.clear();
    return false;
  }
  expanded.resize(written - 1);
  return true;
}

}  // namespace kestrune
