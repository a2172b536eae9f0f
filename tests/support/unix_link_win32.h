#pragma once

#include <string>

namespace kestrune {

/// Makes `link` a symbolic link to the directory `target`. Wine cannot make one through Windows
/// calls, so there the host system's own command is used. False where no link could be made.
bool MakeDirectoryLink(const std::wstring& link, const std::wstring& target);

/// Removes the link itself, also where Windows calls cannot. Does nothing when it is not there.
void RemoveDirectoryLink(const std::wstring& link);

}  // namespace kestrune
