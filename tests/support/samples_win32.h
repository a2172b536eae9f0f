#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// Returns the folder of real files: $KESTRUNE_SAMPLES, else <source>/../shared/samples. Empty when
/// it is absent.
std::wstring SamplesFolder();

/// Returns the full paths of the files of one kind in it, sorted.
std::vector<std::wstring> SampleFiles(std::wstring_view kind);

}  // namespace kestrune

/// Skips the test, with the reason, when the real files are absent.
#define KESTRUNE_NEEDS_SAMPLES()         \
  if (kestrune::SamplesFolder().empty()) \
  GTEST_SKIP() << "needs the real files in $KESTRUNE_SAMPLES or ../shared/samples"
