#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

#include "common/text/ordinal.h"
#include "common/places/product_files.h"

namespace kestrune {

/// The number of the first dependency's section; the board itself is number 1.
inline constexpr std::size_t kFirstDependency = 2;

/// Return the pieces of the project file in their order: the head, a section for each dependency, a
/// section with the next number for the output job. Lines end with a line feed.
std::wstring BridgeProjectHead();
std::wstring DependencySection(std::size_t number, std::wstring_view file_name);
std::wstring OutJobSection(std::size_t number);

/// Records the file names in use in the temporary root, which has no subfolders for boards. Two
/// embedded boards of one name cannot both be copied there, and none may overwrite a file of the
/// project.
class BridgeFileNames {
 public:
  /// Reserves a name, compared as Windows compares file names. Returns false when it is in use. The
  /// name of a stream ("Bridge.PcbDoc::$DATA") counts as that of its file.
  [[nodiscard]] bool Take(std::wstring_view file_name);

 private:
  std::set<std::wstring, OrdinalLess> taken_{
      std::wstring(kBridgeBoard), std::wstring(kBridgeOutJob), std::wstring(kBridgeProject),
      std::wstring(kReadyFile)};
};

}  // namespace kestrune
