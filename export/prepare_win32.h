#pragma once

#include <string>

namespace kestrune {

/// Builds the throw-away project Bridge around a board in the temporary root: the board and its
/// embedded boards as copies, the output job with the board's layers switched on, the project file
/// and, last, `ready.txt`. The dependency list names the embedded boards, the manifest the layers.
///
/// Returns the exit code of `--prepare`: 0 complete, 2 no local application data, 3 no Public
/// Documents, 4 failed while building, 6 a dependency vanished, 7 two dependencies of one name,
/// 8 layer selection failed, 9 a source was rejected and nothing was touched.
int PrepareTemporaryProject(const std::wstring& source_pcb, const std::wstring& dependency_list,
                            const std::wstring& used_layer_manifest);

}  // namespace kestrune
