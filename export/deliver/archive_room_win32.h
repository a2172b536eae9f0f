#pragma once

#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Whether a local disk certainly cannot take the archive in place of the one that the destination
/// holds. Copying would empty that one first, and the user would be left without either. Wherever
/// the answer is not certain (nothing to lose at the destination, a link, a share, a compressed
/// file, a file system that does not say), it is false, and the copy is to be tried.
bool CertainlyLacksRoom(const std::wstring& native_zip, const std::wstring& destination,
                        SystemCalls& calls);

}  // namespace kestrune
