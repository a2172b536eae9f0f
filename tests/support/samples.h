#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune_tests {

/// A real file of the host, as its user had it.
struct Sample {
  std::string name;
  std::string bytes;
};

/// The folder with the real files, which are not part of the project: KESTRUNE_SAMPLES, or
/// shared/samples beside the checkout.
inline std::filesystem::path SamplesFolder() {
  const char* const folder = std::getenv("KESTRUNE_SAMPLES");
  return folder != nullptr ? std::filesystem::path(folder)
                           : std::filesystem::path(KESTRUNE_SOURCE_DIR) / "../shared/samples";
}

/// All files with this ending in a subfolder, by name; none when the folder is absent. A test that
/// gets none says so with GTEST_SKIP.
inline std::vector<Sample> ReadSamples(std::string_view subfolder, std::string_view ending) {
  std::vector<Sample> samples;
  std::error_code absent;
  for (const auto& entry :
       std::filesystem::directory_iterator(SamplesFolder() / subfolder, absent)) {
    const std::string name = entry.path().filename().string();
    if (name.ends_with(ending)) {
      std::ifstream file(entry.path(), std::ios::binary);
      samples.push_back({name, std::string(std::istreambuf_iterator<char>(file), {})});
    }
  }
  std::sort(samples.begin(), samples.end(),
            [](const Sample& a, const Sample& b) { return a.name < b.name; });
  return samples;
}

}  // namespace kestrune_tests
