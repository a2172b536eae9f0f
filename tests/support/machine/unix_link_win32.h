#pragma once

#include <string>

namespace kestrune {

/// Makes `link` a symbolic link to the file or directory `target`. Wine cannot make one through
/// Windows calls, so there the host system's own command is used. False where no link could be
/// made.
bool MakeFileLink(const std::wstring& link, const std::wstring& target);
bool MakeDirectoryLink(const std::wstring& link, const std::wstring& target);

/// Removes the link itself, also where Windows calls cannot. Does nothing when it is not there.
void RemoveLink(const std::wstring& link);

/// Puts something at `path` whose presence cannot be asked: a link to itself, until the end of the
/// scope. Its folder must exist. Where the system answers all the same, Works() is false and the
/// test has nothing to show.
class UnreadableFile {
 public:
  explicit UnreadableFile(const std::wstring& path);
  UnreadableFile(const UnreadableFile&) = delete;
  UnreadableFile& operator=(const UnreadableFile&) = delete;
  ~UnreadableFile();

  [[nodiscard]] bool Works() const;

 private:
  /// Waits until the system refuses to answer, or answers again.
  [[nodiscard]] bool WaitUntilRefused(bool refused) const;

  std::wstring path_;
  std::wstring unix_name_;
};

}  // namespace kestrune
