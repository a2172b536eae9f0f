#pragma once

#include <string>

namespace kestrune {

/// Publishes the outcome of `--prepare` for the script: "OK" or "ERROR" with a line end, written
/// beside `status_path` and then renamed to it, so that the script never reads half a file.
///
/// A status file that exists already is never replaced, for it would belong to another run: that is
/// a failure, and so is any other failing step. The file beside it then stays.
[[nodiscard]] bool PublishPrepareStatus(const std::wstring& status_path, int prepare_code);

}  // namespace kestrune
