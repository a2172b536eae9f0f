#include "export/inspect/inspection.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/text/text.h"
#include "export/inspect/matrix.h"
#include "export/inspect/zip/zip_content.h"
#include "export/inspect/zip/zip_directory.h"

namespace kestrune {
namespace {

/// A larger file `features` certainly has an object and is not read.
constexpr std::size_t kMostHeadings = 4096;
/// Limits the time that an archive with many small files takes.
constexpr std::size_t kMostFilesRead = 1024;
constexpr std::size_t kLongestPath = 1024;

/// Returns the parts of an entry's path, in lower case; none when the path is not a plain relative
/// one.
std::vector<std::string> SplitPath(std::string_view name) {
  std::vector<std::string> parts;
  if (name.size() > kLongestPath || name.find(':') != std::string_view::npos) {
    return parts;
  }
  for (;;) {
    const std::size_t end = name.find_first_of("/\\");
    parts.push_back(LowerAscii(name.substr(0, end)));
    const std::string& part = parts.back();
    if (part == "." || part == ".." || (part.empty() && end != std::string_view::npos)) {
      return {};
    }
    if (end == std::string_view::npos) {
      return parts;
    }
    name.remove_prefix(end + 1);
  }
}

bool EndsWith(const std::vector<std::string>& parts, std::size_t root,
              std::initializer_list<std::string_view> names) {
  return parts.size() == root + names.size() &&
         std::equal(names.begin(), names.end(), parts.begin() + static_cast<std::ptrdiff_t>(root));
}

/// Holds the entry of the matrix, and the top-level folder of the archive.
struct MatrixEntry {
  ZipEntry entry;
  /// Empty when there is none.
  std::vector<std::string> root;
};

MatrixEntry FindMatrix(const ByteSource& archive, const ZipDirectory& directory) {
  std::optional<MatrixEntry> found;
  ForEachZipEntry(archive, directory, [&](const ZipEntry& entry) {
    std::vector<std::string> parts = SplitPath(entry.name);
    if (!EndsWith(parts, 0, {"matrix", "matrix"}) && !EndsWith(parts, 1, {"matrix", "matrix"})) {
      return;
    }
    if (found) {
      throw Failure{L"The archive has two ODB++ matrices."};
    }
    parts.resize(parts.size() - 2);
    found = {entry, std::move(parts)};
  });
  if (!found) {
    throw Failure{L"The archive has no ODB++ matrix (matrix/matrix)."};
  }
  return std::move(*found);
}

/// Returns whether a file `features` holds an object: a line, pad, arc, text, barcode or surface.
bool HoldsObject(std::string_view features) {
  while (!features.empty()) {
    const std::size_t end = std::min(features.find('\n'), features.size());
    const std::string_view line = Trim(features.substr(0, end), " \t\r");
    if (line.size() > 1 && line[1] == ' ' &&
        std::string_view("LPATBS").find(line[0]) != std::string_view::npos) {
      return true;
    }
    features.remove_prefix(std::min(end + 1, features.size()));
  }
  return false;
}

/// Collects the size and content of each layer of the matrix from the entries of the archive.
class LayerCollector {
 public:
  LayerCollector(const ByteSource& archive, const ZipDirectory& directory,
                 std::vector<std::string> root, Matrix matrix)
      : archive_(archive), directory_(directory), root_(std::move(root)) {
    list_.steps = matrix.steps;
    list_.layers = std::vector<InspectedLayer>(matrix.rows.size());
    std::size_t number = 0;
    for (MatrixRow& row : matrix.rows) {
      if (!row.name.empty() && !by_name_.emplace(LowerAscii(row.name), number).second) {
        throw Failure{L"Two layers have the same name."};
      }
      list_.layers[number++].row = std::move(row);
    }
  }

  void Take(const ZipEntry& entry) {
    const std::vector<std::string> parts = SplitPath(entry.name);
    const std::size_t at = root_.size();
    if (parts.size() < at + 5 || !std::equal(root_.begin(), root_.end(), parts.begin()) ||
        parts[at] != "steps" || parts[at + 2] != "layers") {
      return;
    }
    const auto found = by_name_.find(parts[at + 3]);
    if (found == by_name_.end()) {
      return;
    }
    TakeFile(entry, parts.size() == at + 5 ? parts.back() : std::string(),
             list_.layers[found->second]);
  }

  LayerList Finish() { return std::move(list_); }

 private:
  void TakeFile(const ZipEntry& entry, const std::string& file, InspectedLayer& layer) {
    if (file == "features.z" && entry.size != 0) {
      layer.features = FeaturesSize::PackedTwice;
      AddContent(layer, LayerContent::Unknown);
      return;
    }
    if (layer.features == FeaturesSize::FolderAbsent) {
      layer.features = FeaturesSize::Known;
    }
    if (file == "features") {
      layer.size += std::min(entry.size, std::numeric_limits<std::uint64_t>::max() - layer.size);
      AddContent(layer, ContentOf(entry));
    }
  }

  /// Adds the content in one step: the layer has Some if any step has, else Unknown if any step
  /// has.
  static void AddContent(InspectedLayer& layer, LayerContent content) {
    if (layer.content == LayerContent::None || content == LayerContent::Some) {
      layer.content = content;
    }
  }

  LayerContent ContentOf(const ZipEntry& entry) {
    if (entry.size == 0) {
      return LayerContent::None;
    }
    if (entry.size > kMostHeadings) {
      return LayerContent::Some;
    }
    if (!IsReadable(entry) || files_read_ == kMostFilesRead) {
      return LayerContent::Unknown;
    }
    ++files_read_;
    return HoldsObject(ReadZipContent(archive_, directory_, entry, kMostHeadings))
               ? LayerContent::Some
               : LayerContent::None;
  }

  const ByteSource& archive_;
  const ZipDirectory& directory_;
  const std::vector<std::string> root_;
  LayerList list_;
  std::map<std::string, std::size_t> by_name_;
  std::size_t files_read_ = 0;
};

}  // namespace

LayerList InspectArchive(const ByteSource& archive) {
  const ZipDirectory directory = FindZipDirectory(archive);
  MatrixEntry matrix = FindMatrix(archive, directory);
  LayerCollector collector(
      archive, directory, std::move(matrix.root),
      ParseMatrix(ReadZipContent(archive, directory, matrix.entry, kMostMatrixBytes)));
  ForEachZipEntry(archive, directory, [&](const ZipEntry& entry) { collector.Take(entry); });
  return collector.Finish();
}

}  // namespace kestrune
