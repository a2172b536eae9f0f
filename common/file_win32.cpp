#include "common/file_win32.h"

#include <algorithm>

#include "common/failure.h"
#include "common/path.h"

namespace kestrune {
namespace {

constexpr std::size_t kLargestTransfer = std::size_t{1} << 30;

bool IsNotFound(DWORD code) {
  return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND ||
         code == ERROR_BAD_NETPATH || code == ERROR_INVALID_NAME;
}

/// Attributes from the directory listing: the answer for a file that is open without sharing.
bool AttributesFromListing(const std::wstring& extended, DWORD& attributes) {
  WIN32_FIND_DATAW entry{};
  const FindHandle find(FindFirstFileW(extended.c_str(), &entry));
  if (!find) {
    return false;
  }
  attributes = entry.dwFileAttributes;
  return true;
}

/// False with the code of the failing call.
bool QueryAttributes(const std::wstring& path, DWORD& attributes, DWORD& code) {
  const std::wstring extended = ExtendedPath(path);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (GetFileAttributesExW(extended.c_str(), GetFileExInfoStandard, &data)) {
    attributes = data.dwFileAttributes;
    return true;
  }
  code = GetLastError();
  return code == ERROR_SHARING_VIOLATION && AttributesFromListing(extended, attributes);
}

FileKind KindOf(DWORD attributes) {
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileKind::Directory : FileKind::RegularFile;
}

bool IsDots(const wchar_t* name) {
  return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

bool IsLink(DWORD attributes) {
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

/// Removes a file, a link or an empty directory. `path` is in extended form.
bool RemoveEntry(const std::wstring& path, DWORD attributes) {
  if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    SetFileAttributesW(path.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
  }
  return ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? RemoveDirectoryW(path.c_str())
                                                       : DeleteFileW(path.c_str())) != FALSE;
}

/// Removes files and links up to the first real subdirectory, which is named; empty when there is
/// none.
bool RemoveUpToSubdirectory(const std::wstring& directory, std::wstring& subdirectory) {
  subdirectory.clear();
  WIN32_FIND_DATAW entry{};
  const FindHandle find(FindFirstFileExW(JoinPath(directory, L"*").c_str(), FindExInfoBasic, &entry,
                                         FindExSearchNameMatch, nullptr, 0));
  if (!find) {
    return GetLastError() == ERROR_FILE_NOT_FOUND;
  }
  do {
    if (IsDots(entry.cFileName)) {
      continue;
    }
    if (KindOf(entry.dwFileAttributes) == FileKind::Directory && !IsLink(entry.dwFileAttributes)) {
      subdirectory = entry.cFileName;
      return true;
    }
    if (!RemoveEntry(JoinPath(directory, entry.cFileName), entry.dwFileAttributes)) {
      return false;
    }
  } while (FindNextFileW(find.Get(), &entry));
  return GetLastError() == ERROR_NO_MORE_FILES;
}

/// Goes down to the first directory without subdirectories, removes it, and goes on in its parent:
/// no recursion, for anybody may have made the tree as deep as a path can be.
bool RemoveRealDirectory(const std::wstring& root) {
  std::wstring directory = root;
  for (;;) {
    std::wstring subdirectory;
    if (!RemoveUpToSubdirectory(directory, subdirectory)) {
      return false;
    }
    if (!subdirectory.empty()) {
      directory = JoinPath(directory, subdirectory);
      continue;
    }
    if (!RemoveEntry(directory, GetFileAttributesW(directory.c_str()))) {
      return false;
    }
    // Not "equal": a root that was given with a trailing separator comes back without it.
    if (directory.size() <= root.size()) {
      return true;
    }
    directory = ParentPath(directory);
  }
}

}  // namespace

std::wstring ExtendedPath(const std::wstring& path) {
  if (path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\")) {
    return path;
  }
  std::wstring full = FullPath(path);
  if (full.starts_with(L"\\\\.\\") || full.starts_with(L"\\\\?\\")) {
    return full;
  }
  if (full.starts_with(L"\\\\")) {
    return L"\\\\?\\UNC\\" + full.substr(2);
  }
  return full.empty() ? path : L"\\\\?\\" + full;
}

std::wstring FullPath(const std::wstring& path) {
  std::wstring full;
  for (DWORD size = MAX_PATH; size > full.size();) {
    full.resize(size);
    size = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (size < full.size()) {
      full.resize(size);
      return full;
    }
  }
  return {};
}

FileKind QueryFileKind(const std::wstring& path) {
  DWORD attributes = 0;
  DWORD code = 0;
  if (QueryAttributes(path, attributes, code)) {
    return KindOf(attributes);
  }
  if (path.empty() || IsNotFound(code)) {
    return FileKind::Absent;
  }
  throw Failure{L"status", code};
}

FileKind QueryFileKindQuietly(const std::wstring& path) noexcept {
  try {
    DWORD attributes = 0;
    DWORD code = 0;
    return QueryAttributes(path, attributes, code) ? KindOf(attributes) : FileKind::Absent;
  } catch (...) {
    return FileKind::Absent;
  }
}

bool QueryFileSize(const std::wstring& path, std::uint64_t& size) {
  const std::wstring extended = ExtendedPath(path);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  DWORD high = 0;
  DWORD low = 0;
  if (GetFileAttributesExW(extended.c_str(), GetFileExInfoStandard, &data)) {
    high = data.nFileSizeHigh;
    low = data.nFileSizeLow;
  } else if (GetLastError() == ERROR_SHARING_VIOLATION) {
    WIN32_FIND_DATAW entry{};
    const FindHandle find(FindFirstFileW(extended.c_str(), &entry));
    if (!find) {
      return false;
    }
    high = entry.nFileSizeHigh;
    low = entry.nFileSizeLow;
  } else {
    return false;
  }
  size = (std::uint64_t{high} << 32) | low;
  return true;
}

FileHandle OpenForReading(const std::wstring& path, DWORD sharing) {
  return FileHandle(CreateFileW(ExtendedPath(path).c_str(), GENERIC_READ, sharing, nullptr,
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
  while (!bytes.empty()) {
    DWORD written = 0;
    const auto chunk = static_cast<DWORD>(std::min(bytes.size(), kLargestTransfer));
    if (!WriteFile(file, bytes.data(), chunk, &written, nullptr)) {
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

bool WriteWholeFile(const std::wstring& path, std::string_view bytes) {
  FileHandle file(CreateFileW(ExtendedPath(path).c_str(), GENERIC_WRITE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
  return file && WriteAll(file.Get(), bytes) && CloseHandle(file.Release()) != FALSE;
}

bool CopyOver(const std::wstring& source, const std::wstring& target) {
  return CopyFileW(ExtendedPath(source).c_str(), ExtendedPath(target).c_str(), FALSE) != FALSE;
}

bool RenameOver(const std::wstring& source, const std::wstring& target) {
  return MoveFileExW(ExtendedPath(source).c_str(), ExtendedPath(target).c_str(),
                     MOVEFILE_REPLACE_EXISTING) != FALSE;
}

void ClearReadOnly(const std::wstring& path) {
  const std::wstring extended = ExtendedPath(path);
  const DWORD attributes = GetFileAttributesW(extended.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    SetFileAttributesW(extended.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
  }
}

bool CreateDirectories(const std::wstring& path) {
  const std::wstring extended = ExtendedPath(path);
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

bool RemoveTree(const std::wstring& path) {
  const std::wstring extended = ExtendedPath(path);
  const DWORD attributes = GetFileAttributesW(extended.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    return IsNotFound(GetLastError());
  }
  return KindOf(attributes) == FileKind::Directory && !IsLink(attributes)
             ? RemoveRealDirectory(extended)
             : RemoveEntry(extended, attributes);
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
