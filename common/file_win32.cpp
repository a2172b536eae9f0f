#include "common/file_win32.h"

#include <algorithm>
#include <new>

#include "common/failure.h"
#include "common/file_time_win32.h"
#include "common/path.h"
#include "common/windows_error_win32.h"

namespace kestrune {
namespace {

constexpr std::size_t kLargestTransfer = std::size_t{1} << 30;

FileKind KindOf(DWORD attributes) {
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileKind::Directory : FileKind::RegularFile;
}

bool IsLink(DWORD attributes) {
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

/// What the directory listing says. Besides the entry it alone tells one kind of link from another.
bool ReadListing(const std::wstring& extended, WIN32_FIND_DATAW& listed, DWORD& code) {
  const FindHandle find(FindFirstFileW(extended.c_str(), &listed));
  if (!find) {
    code = GetLastError();
  }
  return static_cast<bool>(find);
}

/// What a symbolic link leads to. Opened without any right, so nobody's sharing stands against it.
bool ReadLinkTarget(const std::wstring& extended, FileEntry& entry, DWORD& code) {
  const FileHandle target(CreateFileW(extended.c_str(), 0,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  BY_HANDLE_FILE_INFORMATION information{};
  if (!target || !GetFileInformationByHandle(target.Get(), &information)) {
    code = GetLastError();
    return false;
  }
  entry = {KindOf(information.dwFileAttributes),
           JoinWords(information.nFileSizeHigh, information.nFileSizeLow)};
  return true;
}

}  // namespace

bool QueryEntry(const std::wstring& path, FileEntry& entry, DWORD& code) {
  const std::wstring extended = ExtendedPath(path).Text();
  WIN32_FILE_ATTRIBUTE_DATA data{};
  const bool answered =
      GetFileAttributesExW(extended.c_str(), GetFileExInfoStandard, &data) != FALSE;
  code = answered ? ERROR_SUCCESS : GetLastError();
  if (answered) {
    entry = {KindOf(data.dwFileAttributes), JoinWords(data.nFileSizeHigh, data.nFileSizeLow)};
  }
  if (answered ? !IsLink(data.dwFileAttributes) : code != ERROR_SHARING_VIOLATION) {
    return answered;
  }
  WIN32_FIND_DATAW listed{};
  if (!ReadListing(extended, listed, code)) {
    return answered;
  }
  if (IsLink(listed.dwFileAttributes) && listed.dwReserved0 == IO_REPARSE_TAG_SYMLINK) {
    return ReadLinkTarget(extended, entry, code);
  }
  if (!answered) {
    entry = {KindOf(listed.dwFileAttributes), JoinWords(listed.nFileSizeHigh, listed.nFileSizeLow)};
  }
  return true;
}

FileKind QueryFileKind(const std::wstring& path) {
  FileEntry entry;
  DWORD code = 0;
  if (QueryEntry(path, entry, code)) {
    return entry.kind;
  }
  if (path.empty() || MeansAbsent(code)) {
    return FileKind::Absent;
  }
  throw Failure{L"status", code, path};
}

FileKind QueryFileKindQuietly(const std::wstring& path) noexcept {
  try {
    FileEntry entry;
    DWORD code = 0;
    return QueryEntry(path, entry, code) ? entry.kind : FileKind::Absent;
  } catch (...) {
    return FileKind::Absent;
  }
}

FileHandle OpenForReading(const std::wstring& path, DWORD sharing) {
  return FileHandle(CreateFileW(ExtendedPath(path).Get(), GENERIC_READ, sharing, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool ReadWholeFile(const std::wstring& path, std::uint64_t limit, std::string& bytes) {
  bytes.clear();
  const FileHandle file = OpenForReading(path);
  LARGE_INTEGER size{};
  if (!file || !GetFileSizeEx(file.Get(), &size)) {
    return false;
  }
  if (static_cast<std::uint64_t>(size.QuadPart) > limit) {
    SetLastError(ERROR_FILE_TOO_LARGE);
    return false;
  }
  if (static_cast<std::uint64_t>(size.QuadPart) > bytes.max_size()) {
    throw std::bad_alloc();
  }
  bytes.resize(static_cast<std::size_t>(size.QuadPart));
  return ReadAll(file.Get(), bytes);
}

bool ReadAll(HANDLE file, std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    DWORD read = 0;
    const auto chunk = static_cast<DWORD>(std::min(bytes.size() - done, kLargestTransfer));
    if (!ReadFile(file, bytes.data() + done, chunk, &read, nullptr)) {
      return false;
    }
    if (read == 0) {
      SetLastError(ERROR_HANDLE_EOF);
      return false;
    }
    done += read;
  }
  return true;
}

bool WriteAll(HANDLE file, std::string_view bytes) {
  return WriteAll(bytes, [&](const void* chunk, DWORD size, DWORD* written) {
    return WriteFile(file, chunk, size, written, nullptr);
  });
}

bool WriteAll(std::string_view bytes, const WriteCall& write) {
  while (!bytes.empty()) {
    DWORD written = 0;
    if (!write(bytes.data(), static_cast<DWORD>(std::min(bytes.size(), kLargestTransfer)),
               &written)) {
      return false;
    }
    if (written == 0) {
      SetLastError(ERROR_WRITE_FAULT);
      return false;
    }
    bytes.remove_prefix(written);
  }
  return true;
}

FileWriter::FileWriter(const std::wstring& path, DWORD sharing)
    : file_(CreateFileW(ExtendedPath(path).Get(), GENERIC_WRITE, sharing, nullptr, CREATE_ALWAYS,
                        FILE_ATTRIBUTE_NORMAL, nullptr)) {
  if (!file_) {
    code_ = GetLastError();
  }
}

void FileWriter::Write(std::string_view bytes) {
  if (code_ == ERROR_SUCCESS && !WriteAll(file_.Get(), bytes)) {
    code_ = GetLastError();
  }
}

void FileWriter::Fail(DWORD code) {
  if (code_ == ERROR_SUCCESS) {
    code_ = code;
  }
}

bool FileWriter::Finish() {
  if (file_ && !CloseHandle(file_.Release())) {
    Fail(GetLastError());
  }
  SetLastError(code_);
  return code_ == ERROR_SUCCESS;
}

bool WriteWholeFile(const std::wstring& path, std::string_view bytes) {
  FileWriter file(path, FILE_SHARE_READ | FILE_SHARE_WRITE);
  file.Write(bytes);
  return file.Finish();
}

bool CopyOver(const std::wstring& source, const std::wstring& target) {
  return CopyFileW(ExtendedPath(source).Get(), ExtendedPath(target).Get(), FALSE) != FALSE;
}

bool RenameOver(const std::wstring& source, const std::wstring& target) {
  return MoveFileExW(ExtendedPath(source).Get(), ExtendedPath(target).Get(),
                     MOVEFILE_REPLACE_EXISTING) != FALSE;
}

void ClearReadOnly(const std::wstring& path) {
  const std::wstring extended = ExtendedPath(path).Text();
  const DWORD attributes = GetFileAttributesW(extended.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    SetFileAttributesW(extended.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
  }
}

bool CreateDirectories(const std::wstring& path) {
  const std::wstring extended = ExtendedPath(path).Text();
  if (CreateDirectoryW(extended.c_str(), nullptr)) {
    return true;
  }
  DWORD code = GetLastError();
  if (code == ERROR_PATH_NOT_FOUND) {
    const std::wstring parent(ParentPath(FullPath(path)));
    if (parent.size() < FullPath(path).size() && CreateDirectories(parent)) {
      if (CreateDirectoryW(extended.c_str(), nullptr)) {
        return true;
      }
      code = GetLastError();
    } else {
      code = GetLastError();
    }
  }
  const DWORD attributes = GetFileAttributesW(extended.c_str());
  const bool exists =
      attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  SetLastError(code);
  return exists;
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
