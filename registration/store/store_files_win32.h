#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "common/system/owners_win32.h"
#include "common/system/system_calls_win32.h"

namespace altium_registration {

/// How often a call is made that a lock refuses, and the milliseconds between two tries.
inline constexpr int kTries = 10;
inline constexpr DWORD kPauseBetweenTries = 50;

/// Whether Windows refuses with this code what a scanner, an indexer or a synchronisation may hold
/// for a moment only.
bool MayBeALockOfAMoment(DWORD code);

/// Makes a call (true when it succeeded, else with the thread's last error) until it succeeds or
/// fails for another reason than a lock of a moment, kTries times at most. Returns the code of the
/// last try; ERROR_SUCCESS when it succeeded.
template <class Call>
DWORD TryPatiently(kestrune::SystemCalls& calls, Call call) {
  for (int tries = 1;; ++tries) {
    if (call()) {
      return ERROR_SUCCESS;
    }
    const DWORD code = GetLastError();
    if (tries == kTries || !MayBeALockOfAMoment(code)) {
      return code;
    }
    calls.Wait(kPauseBetweenTries);
  }
}

/// Opens an existing file, patiently. Owns nothing when `code` is not ERROR_SUCCESS.
kestrune::FileHandle OpenPatiently(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                                   const kestrune::FileOpening& opening, DWORD& code);

/// Moves a file, patiently. Returns ERROR_SUCCESS also for a move that took effect although Windows
/// refused it.
DWORD MovePatiently(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& source,
                    const kestrune::ExtendedPath& target, DWORD flags);

/// Whether there is nothing at a path; false also where that cannot be asked.
bool IsMissing(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path);

/// Reads a file of at most kMaxRcsBytes whole, sharing reading and deletion. Throws the failure of
/// "Open RCS", "Read RCS size" or "Read RCS", or "RCS exceeds limit.".
std::string ReadRcsBytes(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path);

/// What a failing step is called.
struct NewFileSteps {
  std::wstring_view create;
  std::wstring_view write;
  std::wstring_view flush;
};

/// Creates a file that must not exist. Throws the failure of the step.
kestrune::FileHandle CreateNewFile(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                                   SECURITY_ATTRIBUTES* security, std::wstring_view step);

/// Writes the bytes to a file that was just created and flushes them; one that cannot be completed
/// is deleted. Throws the failure of the step.
void FillNewFile(kestrune::SystemCalls& calls, kestrune::FileHandle file,
                 const kestrune::ExtendedPath& path, std::string_view bytes,
                 const NewFileSteps& steps);

/// Both of them, with the security that the folder gives.
void WriteNewFile(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                  std::string_view bytes, const NewFileSteps& steps);

/// The SHA-256 of the bytes. Throws "SHA256 unavailable." or the failure of "SHA provider".
std::string Digest(kestrune::SystemCalls& calls, std::string_view bytes);

}  // namespace altium_registration
