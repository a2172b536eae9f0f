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

/// The pieces of the project file, in the order in which they are written: the head, one section
/// for each dependency, the output job with the next free number. Lines end with a line feed.
std::wstring BridgeProjectHead();
std::wstring DependencySection(std::size_t number, std::wstring_view file_name);
std::wstring OutJobSection(std::size_t number);

/// The file names that are in use in the flat temporary folder. Two embedded boards of one name
/// cannot both lie there, and none may take the place of a file of the project itself.
class BridgeFileNames {
 public:
  /// Claims a name; false when it was taken, compared as Windows compares file names. A stream
  /// ("Bridge.PcbDoc::$DATA") is a part of its file and has the file's name.
  [[nodiscard]] bool Take(std::wstring_view file_name);

 private:
  std::set<std::wstring, OrdinalLess> taken_{
      std::wstring(kBridgeBoard), std::wstring(kBridgeOutJob), std::wstring(kBridgeProject),
      std::wstring(kReadyFile)};
};

}  // namespace kestrune
