#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "install/deploy/package_timestamp.h"

namespace kestrune {

/// What the timestamp policy says about one file. The values are fixed.
enum class InstallVerdict : std::int32_t { UpToDate = 0, Install = 1, Update = 2, Refused = 3 };

/// The calls by which files are copied and put in place, one to one. Tests derive from it to fail
/// at any of them; the program uses it as it is. All answer false when Windows refused, Open
/// INVALID_HANDLE_VALUE.
class InstallCalls {
 public:
  virtual ~InstallCalls() = default;
  virtual HANDLE Open(const std::wstring& path, DWORD access, DWORD sharing, DWORD disposition,
                      DWORD flags);
  /// Makes sure that a file which was created to vanish with its handle can be kept later.
  virtual bool VanishFromTheStart(HANDLE file);
  /// Lets a file vanish with its handle that was created to stay.
  virtual bool VanishFromNowOn(HANDLE file);
  virtual bool ReadPackageTime(const std::wstring& source, PackageTimestamp& timestamp);
  virtual bool GoToBeginning(HANDLE file);
  virtual bool Read(HANDLE file, void* bytes, DWORD size, DWORD& done);
  virtual bool Write(HANDLE file, const void* bytes, DWORD size, DWORD& done);
  virtual bool Truncate(HANDLE file);
  virtual bool Flush(HANDLE file);
  virtual bool GetTime(HANDLE file, std::uint64_t& time);
  virtual bool SetTime(HANDLE file, std::uint64_t time);
  /// Lets a file that would vanish with its handle stay.
  virtual bool Keep(HANDLE file);
};

/// Says what is to be done with `target`; nothing is changed. A target that is as new as or newer
/// than the package's file is never replaced, nor any target whose or whose source's age cannot be
/// proven: Refused, with a message that ends in the path.
InstallVerdict DecideInstall(const std::wstring& source, const std::wstring& target,
                             std::wstring& message);

/// Brings one file of the package to its target under the policy, both locked against other
/// programs meanwhile. The target takes the package's time.
///
/// False with a message (one of a fixed set, ending in the path) or, when a backup could not be
/// opened, without one. A new target is then gone again, an existing one restored. A process that
/// ends at any moment leaves no half target: a new one vanishes with it, and one that was being
/// updated is older than any package, so that the next run repairs it.
[[nodiscard]] bool InstallFile(const std::wstring& source, const std::wstring& target,
                               std::wstring& message);
[[nodiscard]] bool InstallFile(const std::wstring& source, const std::wstring& target,
                               std::wstring& message, InstallCalls& calls);

/// Copies the whole content of one open file over another's and gives it the last-write time of the
/// first.
[[nodiscard]] bool CopyFileContent(HANDLE source, HANDLE target, InstallCalls& calls);

/// The last-write time of a file that is being overwritten: the beginning of 1980-01-02, UTC. No
/// package is older, and a file system that keeps local times from 1980 on can hold it in every
/// time zone; the day before it could not, west of Greenwich.
inline constexpr std::uint64_t kUnfinishedTime = 119'600'928'000'000'000;

}  // namespace kestrune
