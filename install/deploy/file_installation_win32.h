#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// Lists the decisions of the timestamp policy about a file. The values are fixed; 3 is not used,
/// since a refusal is thrown.
enum class InstallVerdict : std::int32_t { UpToDate = 0, Install = 1, Update = 2 };

/// Lists what decides whether the origin of a source is proven.
enum class OriginProof {
  /// The source's own folder and manifest.
  Source,
  /// The file of the package that the source was made from.
  Template
};

/// Decides whether to install `target`, without changing anything. A target that is as new as the
/// package's file, or newer, is up to date. Throws Refusal when the time of the source or of an
/// existing target is unknown, or when the target exists and the origin of the source is not
/// proven.
InstallVerdict DecideInstall(SystemCalls& calls, const std::wstring& source,
                             const std::wstring& target, OriginProof proof = OriginProof::Source);

/// Copies one file of the package to its target if the policy allows it. Other programs cannot
/// write to either file meanwhile. The target gets the package's time.
///
/// Throws Refusal; an existing target is then restored. A new target is written as
/// "<target>.incoming" and renamed when it is complete; the next run overwrites the temporary file
/// of a killed one. An existing target has kUnfinishedTime while it is being written, so that the
/// next run replaces an incomplete one.
void InstallFile(SystemCalls& calls, const std::wstring& source, const std::wstring& target,
                 OriginProof proof = OriginProof::Source);

/// Replaces the content and the last-write time of the open file `target` with those of `source`.
/// Throws Failure with the code of the call that failed.
void CopyFileContent(SystemCalls& calls, HANDLE source, HANDLE target);

/// The last-write time of a file that is being written, in units of 100 nanoseconds since 1601: the
/// beginning of 1980-01-02, UTC. Every package is newer. A file system that stores local times
/// since 1980 can represent it in every time zone; it could not represent 1980-01-01 UTC in zones
/// west of Greenwich.
inline constexpr std::uint64_t kUnfinishedTime = 119'600'928'000'000'000;

}  // namespace kestrune
