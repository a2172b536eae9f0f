#include "tests/support/samples.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace kestrune_tests {

std::filesystem::path SamplesFolder() {
  const char* const folder = std::getenv("KESTRUNE_SAMPLES");
  return folder != nullptr ? std::filesystem::path(folder)
                           : std::filesystem::path(KESTRUNE_SOURCE_DIR) / "../shared/samples";
}

std::vector<Sample> ReadSamples(std::string_view subfolder, std::string_view ending) {
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
