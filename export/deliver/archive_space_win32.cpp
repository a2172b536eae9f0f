#include "export/deliver/archive_space_win32.h"

#include <cstdint>
#include <optional>

#include "common/files/file_time_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"

namespace kestrune {
namespace {

/// Returns the root of the drive that holds the folder, after links are resolved; empty for a share
/// or a volume without a drive letter.
std::wstring DriveOf(SystemCalls& calls, const ExtendedPath& folder) {
  constexpr std::wstring_view prefix = L"\\\\?\\";
  const FileHandle handle(
      calls.Create(folder, {0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr}));
  std::wstring path(std::size_t{32768}, L'\0');
  const DWORD size =
      handle ? calls.GetFinalPath(handle.Get(), path.data(), static_cast<DWORD>(path.size()), 0)
             : 0;
  path.resize(size < path.size() ? size : 0);
  const bool has_drive = path.starts_with(prefix) && path.size() > prefix.size() + 1 &&
                         path[prefix.size() + 1] == L':';
  return has_drive ? path.substr(prefix.size(), 2) + L"\\" : std::wstring();
}

bool IsLocal(SystemCalls& calls, const ExtendedPath& folder) {
  const std::wstring drive = DriveOf(calls, folder);
  const UINT kind = drive.empty() ? DRIVE_UNKNOWN : calls.GetDriveKind(drive);
  return kind == DRIVE_FIXED || kind == DRIVE_REMOVABLE || kind == DRIVE_RAMDISK;
}

/// Returns the size of a plain file; nothing for a directory, a link, or a compressed or sparse
/// file.
std::optional<std::uint64_t> PlainSize(SystemCalls& calls, const std::wstring& path) {
  constexpr DWORD others = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT |
                           FILE_ATTRIBUTE_COMPRESSED | FILE_ATTRIBUTE_SPARSE_FILE;
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!calls.GetAttributes(ExtendedPath(path), &data) || (data.dwFileAttributes & others) != 0) {
    return std::nullopt;
  }
  return JoinWords(data.nFileSizeHigh, data.nFileSizeLow);
}

}  // namespace

bool LacksSpaceToOverwrite(SystemCalls& calls, const std::wstring& native_zip,
                           const std::wstring& destination) {
  const std::optional<std::uint64_t> former = PlainSize(calls, destination);
  const std::optional<std::uint64_t> size = PlainSize(calls, native_zip);
  const ExtendedPath folder(JoinPath(ParentPath(destination), L""));
  ULARGE_INTEGER available{};
  ULARGE_INTEGER total{};
  DWORD cluster = 0;
  if (!former || !size || !IsLocal(calls, folder) || !calls.GetSpace(folder, &available, &total) ||
      total.QuadPart == 0 || !calls.GetClusterSize(folder, &cluster) || cluster == 0) {
    return false;
  }
  const std::uint64_t freed = (*former + cluster - 1) / cluster * cluster;
  return *size > freed && *size - freed > available.QuadPart;
}

}  // namespace kestrune
