#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "common/failure.h"

namespace kestrune {

/// SHA-256 through the system's provider for AES-capable RSA keys. A digest is 64 upper-case
/// hexadecimal digits.
///
/// All throw Failure: "SHA provider" with the Windows code when the provider cannot be had,
/// "SHA256 unavailable." when it has no SHA-256 or cannot finish.

std::string Sha256(std::string_view bytes);

/// The digest of the rest of an open file, from the handle's position to its end. Throws Failure
/// "Read file" with the Windows code when the file cannot be read.
std::string Sha256OfFile(HANDLE file);

/// The digest of a whole file, opened for reading and sharing everything. Throws Failure "Open
/// file" with the Windows code when it cannot be opened.
std::string Sha256OfFile(const std::wstring& path);

}  // namespace kestrune
