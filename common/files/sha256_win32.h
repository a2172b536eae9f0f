#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "common/system/system_calls_win32.h"

namespace kestrune {

// Computes SHA-256 digests with the system's cryptographic provider of type PROV_RSA_AES. A digest
// is 64 upper-case hexadecimal digits.
//
// All functions throw Failure: "SHA provider" with the Windows code when the provider cannot be
// acquired, "SHA256 unavailable." without a code when it lacks SHA-256 or fails.

/// Returns the digest of the bytes.
std::string Sha256(SystemCalls& calls, std::string_view bytes);

/// Returns the digest of the rest of an open file, from the handle's position to its end. Throws
/// Failure "Read file" with the Windows code when the file cannot be read.
std::string Sha256OfFile(SystemCalls& calls, HANDLE file);

/// Returns the digest of a whole file, opened for reading and sharing everything. Throws Failure
/// "Open file" with the Windows code when it cannot be opened.
std::string Sha256OfFile(SystemCalls& calls, const ExtendedPath& path);

}  // namespace kestrune
