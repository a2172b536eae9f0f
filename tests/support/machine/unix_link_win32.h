#pragma once

#include <string>

namespace kestrune {

/// Makes `link` a symbolic link to the file or directory `target`. Wine cannot create one through
/// Windows calls, so there a Unix command is used. Returns false when no link could be created.
bool MakeFileLink(const std::wstring& link, const std::wstring& target);
bool MakeDirectoryLink(const std::wstring& link, const std::wstring& target);

/// Removes the link itself, also where Windows calls cannot. Does nothing when it is absent.
void RemoveLink(const std::wstring& link);

/// Creates an entry at `path` whose stat fails, a link to itself, until the end of the scope. Its
/// folder must exist. Works() is false when the stat succeeds nevertheless, so that the test proves
/// nothing.
class UnreadableFile {
 public:
  explicit UnreadableFile(const std::wstring& path);
  UnreadableFile(const UnreadableFile&) = delete;
  UnreadableFile& operator=(const UnreadableFile&) = delete;
  ~UnreadableFile();

  [[nodiscard]] bool Works() const;

 private:
  /// Waits until the stat fails, or succeeds again.
  [[nodiscard]] bool WaitUntilRefused(bool refused) const;

  std::wstring path_;
  std::wstring unix_name_;
};

}  // namespace kestrune
