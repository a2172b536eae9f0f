#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// The decision of the timestamp policy about one file. The values are fixed; 3 is a Refusal, which
/// is thrown.
enum class InstallVerdict : std::int32_t { UpToDate = 0, Install = 1, Update = 2 };

/// What proves the origin of a source.
enum class OriginProof {
  /// Its own place and manifest.
  Source,
  /// The file of the package that it was made from.
  Template
};

/// Decides what is to be done with `target`; nothing is changed. Throws Refusal where a target must
/// be kept: one whose or whose source's age cannot be proven. A target that is as new as or newer
/// than the package's file is never replaced.
InstallVerdict DecideInstall(SystemCalls& calls, const std::wstring& source,
                             const std::wstring& target, OriginProof proof = OriginProof::Source);

/// Brings one file of the package to its target under the policy, both locked against other
/// programs meanwhile. The target takes the package's time.
///
/// Throws Refusal; an existing target is then restored. A new target gets its name when it is
/// whole: until then it is "<target>.incoming", which a killed process leaves and the next run
/// overwrites. An existing one has kUnfinishedTime while it is being written, so that the run after
/// a killed one replaces it.
void InstallFile(SystemCalls& calls, const std::wstring& source, const std::wstring& target,
                 OriginProof proof = OriginProof::Source);

/// Copies the whole content of one open file over another's and gives it the last-write time of the
/// first. Throws Failure with the code of the call that failed.
void CopyFileContent(SystemCalls& calls, HANDLE source, HANDLE target);

/// The last-write time of a file that is being written: the beginning of 1980-01-02, UTC. No
/// package is older, and a file system that keeps local times from 1980 on can hold it in every
/// time zone; the day before it could not, west of Greenwich.
inline constexpr std::uint64_t kUnfinishedTime = 119'600'928'000'000'000;

}  // namespace kestrune
