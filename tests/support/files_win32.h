#pragma once

#include <string>
#include <string_view>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {

/// Runs an action on a file. Returns false and sets the thread's last error when the action throws
/// Failure.
template <class Action>
bool TryOnFile(const Action& action) {
  try {
    action();
    return true;
  } catch (const Failure& failure) {
    SetLastError(failure.code);
    return false;
  }
}

[[nodiscard]] inline bool TryReadFile(const std::wstring& path, std::uint64_t limit,
                                      std::string& bytes) {
  return TryOnFile([&] { bytes = ReadWholeFile(RealCalls(), path, limit); });
}

[[nodiscard]] inline bool TryWriteFile(const std::wstring& path, std::string_view bytes) {
  return TryOnFile([&] { WriteWholeFile(RealCalls(), path, bytes); });
}

[[nodiscard]] inline bool TryWriteAll(HANDLE file, std::string_view bytes) {
  return TryOnFile([&] {
    SystemCalls calls;
    WriteAll(calls, file, bytes);
  });
}

/// Copies a file over an existing one, with its times.
[[nodiscard]] inline bool TryCopyOver(const std::wstring& source, const std::wstring& target) {
  return CopyFileW(ExtendedPath(source).Get(), ExtendedPath(target).Get(), FALSE) != FALSE;
}

[[nodiscard]] inline bool TryRenameOver(const std::wstring& source, const std::wstring& target) {
  return TryOnFile([&] { RenameFile(RealCalls(), source, target, MOVEFILE_REPLACE_EXISTING); });
}

/// Writes a file that another process waits for, so that it appears whole.
[[nodiscard]] inline bool TryPublishFile(const std::wstring& path, std::string_view bytes) {
  return TryWriteFile(path + L".part", bytes) && TryRenameOver(path + L".part", path);
}

[[nodiscard]] inline bool TryCreateDirectories(const std::wstring& path) {
  return TryOnFile([&] {
    SystemCalls calls;
    CreateDirectories(calls, path);
  });
}

}  // namespace kestrune
