#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// The folder of real files that stand beside the checkout: $KESTRUNE_SAMPLES, else
/// <source>/../shared/samples. Empty when it is not there.
std::wstring SamplesFolder();

/// The full paths of the files of one kind in it, sorted.
std::vector<std::wstring> SampleFiles(std::wstring_view kind);

}  // namespace kestrune

/// Skips the test, with a line that says why, where the real files are not there.
#define KESTRUNE_NEEDS_SAMPLES()         \
  if (kestrune::SamplesFolder().empty()) \
  GTEST_SKIP() << "needs the real files in $KESTRUNE_SAMPLES or ../shared/samples"
