#pragma once

#include "common/known_folders_win32.h"
#include "export/prepare/prepare_command.h"

namespace kestrune {

/// Builds the throw-away project Bridge around a board in the temporary root: the board and its
/// embedded boards as copies, the output job with the board's layers switched on, the project file
/// and, last, `ready.txt`. The dependency list names the embedded boards, the manifest the layers.
/// A list above 64 MiB, which is far beyond any panel, fails the run before anything is touched.
///
/// Returns the exit code (PrepareCode). The status is published by PublishPrepareStatus.
int PrepareTemporaryProject(const PrepareCommand& command);

/// The same with the folders asked of `folders`.
int PrepareTemporaryProject(const PrepareCommand& command, FolderCalls& folders);

}  // namespace kestrune
