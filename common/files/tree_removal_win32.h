#pragma once

#include <string>

#include "common/system/owners_win32.h"
#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Opens a directory so that nobody can put something else in its place while the handle is open.
/// Throws Failure with the path as subject: "A link is in the place of a folder" when the path is a
/// link to somewhere else, "open" with the code when it cannot be opened.
FileHandle HoldRealDirectory(const std::wstring& path, SystemCalls& calls);

/// Removes what is at `path`; an absent path is success. A directory goes at once when it is empty,
/// else with all that it holds. Each directory is held open while its entries go, and links to
/// somewhere else are removed themselves and never entered. Read-only marks do not stop it, and
/// names that are still being deleted are waited for up to a second. Throws Failure "remove" with
/// the code and the path that stays.
void RemoveTree(const std::wstring& path, SystemCalls& calls);

}  // namespace kestrune
