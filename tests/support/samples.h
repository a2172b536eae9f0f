#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune_tests {

/// Holds a real file of the host.
struct Sample {
  std::string name;
  std::string bytes;
};

/// Returns the folder with the real files, which are not part of the project: KESTRUNE_SAMPLES, or
/// shared/samples beside the checkout.
std::filesystem::path SamplesFolder();

/// Returns all files with this ending in a subfolder, by name; none when the folder is absent. A
/// test that gets none must use GTEST_SKIP.
std::vector<Sample> ReadSamples(std::string_view subfolder, std::string_view ending);

}  // namespace kestrune_tests
