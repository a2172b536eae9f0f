#pragma once

#include <string>

namespace kestrune {

/// Makes `link` a symbolic link to the file or directory `target`. Wine cannot create one through
/// Windows calls, so there a Unix command is used. Returns false when no link could be created.
bool MakeFileLink(const std::wstring& link, const std::wstring& target);
bool MakeDirectoryLink(const std::wstring& link, const std::wstring& target);

/// Removes the link itself, also where Windows calls cannot. Does nothing when it is absent.
void RemoveLink(const std::wstring& link);

}  // namespace kestrune

/// Skips a test on a system where a link cannot be made.
#define KESTRUNE_NEEDS_LINK(made) \
  if (!(made))                    \
  GTEST_SKIP() << "no link can be made here"
