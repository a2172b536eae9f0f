// Every exit code by its number, on which the script and setup programs rely.
#include <gmock/gmock.h>

#include <vector>

#include "export/deliver/finalize_command.h"
#include "export/inspect/inspect_command.h"
#include "export/prepare/prepare_command.h"
#include "export/wait/native_wait_command.h"
#include "export/wait/window_position_command.h"
#include "install/installer_options.h"

namespace kestrune {
namespace {

using testing::ElementsAre;
using Codes = std::vector<int>;

TEST(ExitCodes, OfAnExportAreFixed) {
  EXPECT_THAT((Codes{kPrepared, kPrepareNoLocalAppData, kPrepareNoPublicDocuments, kPrepareFailed,
                     kPrepareMissingDependency, kPrepareNameCollision, kPrepareLayerSelectionFailed,
                     kPrepareRejected, kPrepareStatusNotPublished}),
              ElementsAre(0, 2, 3, 4, 6, 7, 8, 9, 10));
  EXPECT_THAT((Codes{kNativeOutputComplete, kNativeWaitFailed}), ElementsAre(0, 5));
  EXPECT_THAT((Codes{kWindowMoved, kPositionNoTarget, kPositionUnreadable, kPositionCannotMove}),
              ElementsAre(0, 2, 3, 4));
  EXPECT_THAT((Codes{kInspected, kInspectArchiveMissing, kInspectArchiveUnreadable,
                     kInspectResultNotWritten}),
              ElementsAre(0, 2, 3, 4));
  EXPECT_THAT((Codes{kDelivered, kFinalizeNoFolder, kNotOnClipboard, kFinalizeFailed}),
              ElementsAre(0, 2, 3, 4));
}

TEST(ExitCodes, OfTheInstallerAreFixed) {
  EXPECT_THAT((Codes{kInstallerDone, kStatusProblem, kNoInstance, kHostRuns, kInstallerFailed}),
              ElementsAre(0, 10, 20, 30, 40));
}

}  // namespace
}  // namespace kestrune
