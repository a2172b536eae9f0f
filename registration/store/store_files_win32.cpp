#include "registration/store/store_files_win32.h"

#include <algorithm>
#include <utility>

#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/files/sha256_win32.h"
#include "registration/rcs_size.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

using kestrune::ExtendedPath;
using kestrune::Failure;
using kestrune::FileHandle;
using kestrune::SystemCalls;

void ReadRcsInto(SystemCalls& calls, HANDLE file, std::string& bytes) {
  try {
    kestrune::ReadAll(calls, file, bytes);
  } catch (const Failure& failure) {
    throw FileStepFailure(L"Read RCS", failure.code);
  }
}

/// Writes the bytes. Returns ERROR_SUCCESS or the code of the failed write.
DWORD TryToWrite(SystemCalls& calls, HANDLE file, std::string_view bytes) {
  try {
    kestrune::WriteAll(calls, file, bytes);
    return ERROR_SUCCESS;
  } catch (const Failure& failure) {
    return failure.code;
  }
}

}  // namespace

bool MayBeTransient(DWORD code) {
  constexpr DWORD kLocks[] = {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION,
                              ERROR_UNABLE_TO_REMOVE_REPLACED, ERROR_UNABLE_TO_MOVE_REPLACEMENT};
  return std::ranges::find(kLocks, code) != std::ranges::end(kLocks);
}

FileHandle OpenWithRetries(SystemCalls& calls, const ExtendedPath& path,
                           const kestrune::FileOpening& opening, DWORD& code) {
  FileHandle file;
  code = TryWithRetries(calls, [&] {
    file.Reset(calls.Create(path, opening));
    return static_cast<bool>(file);
  });
  return file;
}

DWORD MoveWithRetries(SystemCalls& calls, const ExtendedPath& source, const ExtendedPath& target,
                      DWORD flags) {
  bool is_first = true;
  return TryWithRetries(calls, [&] {
    const bool took_effect =
        !std::exchange(is_first, false) && IsMissing(calls, source) && !IsMissing(calls, target);
    return took_effect || calls.Move(source, target, flags) != FALSE;
  });
}

bool IsMissing(SystemCalls& calls, const ExtendedPath& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (calls.GetAttributes(path, &data)) {
    return false;
  }
  const DWORD code = GetLastError();
  return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

std::string ReadRcsBytes(SystemCalls& calls, const ExtendedPath& path) {
  DWORD code = 0;
  const FileHandle file = OpenWithRetries(
      calls, path, {.access = GENERIC_READ, .sharing = FILE_SHARE_READ | FILE_SHARE_DELETE}, code);
  if (!file) {
    throw FileStepFailure(L"Open RCS", code);
  }
  LARGE_INTEGER size{};
  if (!calls.GetSize(file.Get(), &size)) {
    throw FileStepFailure(L"Read RCS size", GetLastError());
  }
  if (static_cast<std::uint64_t>(size.QuadPart) > kMaxRcsBytes) {
    throw Refusal(L"RCS exceeds limit.");
  }
  std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
  ReadRcsInto(calls, file.Get(), bytes);
  return bytes;
}

FileHandle CreateNewFile(SystemCalls& calls, const ExtendedPath& path,
                         SECURITY_ATTRIBUTES* security, std::wstring_view step) {
  FileHandle file(calls.Create(
      path, {.access = GENERIC_WRITE, .disposition = CREATE_NEW, .security = security}));
  if (!file) {
    throw FileStepFailure(step, GetLastError());
  }
  return file;
}

void FillNewFile(SystemCalls& calls, FileHandle file, const ExtendedPath& path,
                 std::string_view bytes, const NewFileSteps& steps) {
  std::wstring_view failed_step = steps.write;
  DWORD code = TryToWrite(calls, file.Get(), bytes);
  if (code == ERROR_SUCCESS && !calls.Flush(file.Get())) {
    code = GetLastError();
    failed_step = steps.flush;
  }
  if (code != ERROR_SUCCESS) {
    file.Reset();
    calls.Delete(path);
    throw FileStepFailure(failed_step, code);
  }
}

void WriteNewFile(SystemCalls& calls, const ExtendedPath& path, std::string_view bytes,
                  const NewFileSteps& steps) {
  FillNewFile(calls, CreateNewFile(calls, path, nullptr, steps.create), path, bytes, steps);
}

std::string Digest(SystemCalls& calls, std::string_view bytes) {
  try {
    return kestrune::Sha256(calls, bytes);
  } catch (const Failure& failure) {
    // Only the failure of a call has a code; a sentence without one is complete.
    if (failure.code != 0) {
      throw FileStepFailure(failure.text, failure.code);
    }
    throw;
  }
}

}  // namespace altium_registration
