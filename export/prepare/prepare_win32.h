#pragma once

#include <string>

#include "common/known_folders_win32.h"

namespace kestrune {

/// The exit code of a preparation that failed while building.
inline constexpr int kPrepareFailed = 4;

/// Builds the throw-away project Bridge around a board in the temporary root: the board and its
/// embedded boards as copies, the output job with the board's layers switched on, the project file
/// and, last, `ready.txt`. The dependency list names the embedded boards, the manifest the layers.
/// A list above 64 MiB, which is far beyond any panel, fails the run before anything is touched.
///
/// Returns the exit code of `--prepare`: 0 complete, 2 no local application data, 3 no Public
/// Documents, 4 failed while building, 6 a dependency vanished, 7 two dependencies of one name,
/// 8 layer selection failed, 9 a source was rejected and nothing was touched.
int PrepareTemporaryProject(const std::wstring& source_pcb, const std::wstring& dependency_list,
                            const std::wstring& used_layer_manifest);

/// The same with the folders asked of `folders`.
int PrepareTemporaryProject(const std::wstring& source_pcb, const std::wstring& dependency_list,
                            const std::wstring& used_layer_manifest, FolderCalls& folders);

}  // namespace kestrune
