#pragma once

#include <string>

#include "common/system/owners_win32.h"
#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Opens a directory so that it cannot be replaced or renamed while the handle is open. Throws
/// Failure with the path: "The folder is a link" when it is a link to another place, "open" with
/// the Windows code when it cannot be opened.
FileHandle HoldRealDirectory(SystemCalls& calls, const std::wstring& path);

/// Removes the file, link or directory tree at `path`; an absent path is success. Each directory is
/// kept open while its entries are removed, and a link to another place is removed without being
/// followed. Read-only entries are removed too. Waits for pending deletions for up to a second.
/// Throws Failure "remove" with the code and the path that could not be removed.
void RemoveTree(SystemCalls& calls, const std::wstring& path);

}  // namespace kestrune
