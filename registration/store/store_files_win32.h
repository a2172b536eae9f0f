#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "common/system/owners_win32.h"
#include "common/system/system_calls_win32.h"

namespace altium_registration {

/// The number of tries of a call that fails with a sharing violation, and the milliseconds between
/// two tries.
inline constexpr int kTries = 10;
inline constexpr DWORD kPauseBetweenTries = 50;

/// Returns whether the code, such as that of a sharing violation, may come from a handle that a
/// virus scanner, indexer or synchronisation keeps open only for a moment.
bool MayBeTransient(DWORD code);

/// Makes a call (which returns true, or false with the thread's last error) until it succeeds or
/// fails with a code that is not transient, at most kTries times. Returns ERROR_SUCCESS or the code
/// of the last try.
template <class Call>
DWORD TryWithRetries(kestrune::SystemCalls& calls, Call call) {
  for (int tries = 1;; ++tries) {
    if (call()) {
      return ERROR_SUCCESS;
    }
    const DWORD code = GetLastError();
    if (tries == kTries || !MayBeTransient(code)) {
      return code;
    }
    calls.Wait(kPauseBetweenTries);
  }
}

/// Opens a file with retries. Sets `code` to ERROR_SUCCESS, or returns an empty handle and sets it
/// to the code of the last try.
kestrune::FileHandle OpenWithRetries(kestrune::SystemCalls& calls,
                                     const kestrune::ExtendedPath& path,
                                     const kestrune::FileOpening& opening, DWORD& code);

/// Moves a file with retries. Returns ERROR_SUCCESS, also when a failed call has moved the file, or
/// the code of the last try.
DWORD MoveWithRetries(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& source,
                      const kestrune::ExtendedPath& target, DWORD flags);

/// Returns whether a path is known to be absent; false also when its stat fails for another reason.
bool IsMissing(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path);

/// Reads a file of at most kMaxRcsBytes. Opens it with retries, shared for reading and deletion.
/// Throws Failure of the step "Open RCS", "Read RCS size" or "Read RCS", or "RCS exceeds limit.".
std::string ReadRcsBytes(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path);

/// Holds the names of the steps for failures.
struct NewFileSteps {
  std::wstring_view create;
  std::wstring_view write;
  std::wstring_view flush;
};

/// Creates a file that must not exist. Throws Failure of the step.
kestrune::FileHandle CreateNewFile(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                                   SECURITY_ATTRIBUTES* security, std::wstring_view step);

/// Writes the bytes to a newly created file and flushes them; deletes the file on failure. Throws
/// Failure of the step.
void FillNewFile(kestrune::SystemCalls& calls, kestrune::FileHandle file,
                 const kestrune::ExtendedPath& path, std::string_view bytes,
                 const NewFileSteps& steps);

/// Creates a file with CreateNewFile, with the security that it inherits, and fills it with
/// FillNewFile.
void WriteNewFile(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                  std::string_view bytes, const NewFileSteps& steps);

/// Returns the SHA-256 of the bytes. Throws Failure "SHA256 unavailable." or of the step "SHA
/// provider".
std::string Digest(kestrune::SystemCalls& calls, std::string_view bytes);

}  // namespace altium_registration
