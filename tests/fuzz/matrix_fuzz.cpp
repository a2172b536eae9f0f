#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/failure/failure.h"
#include "export/inspect/layer_list.h"
#include "export/inspect/matrix.h"
#include "tests/support/require_law.h"

namespace {

using kestrune::LayerList;
using kestrune::Matrix;
using kestrune::MatrixRow;

std::string Rewritten(const Matrix& matrix) {
  std::string text;
  for (std::size_t i = 0; i < matrix.steps; ++i) {
    text += "STEP {\n}\n";
  }
  for (const MatrixRow& row : matrix.rows) {
    text += "LAYER {\nTYPE=" + row.type + "\nNAME=" + row.name + "\nSTART_NAME=" + row.start_name +
            "\nEND_NAME=" + row.end_name + "\n}\n";
  }
  return text;
}

bool StandsIn(std::string_view value, std::string_view text) {
  return value.size() <= kestrune::kMostMatrixValue && text.find(value) != std::string_view::npos;
}

}  // namespace

/// Parses the input as a matrix. All values must occur in the input; written and parsed again they
/// must be equal; the list must have one line per row, without line breaks in its fields.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Matrix matrix;
  try {
    matrix = kestrune::ParseMatrix(text);
  } catch (const kestrune::Failure&) {
    return 0;
  }
  LayerList list{matrix.steps, {}};
  for (const MatrixRow& row : matrix.rows) {
    Require(StandsIn(row.type, text) && StandsIn(row.name, text) &&
            StandsIn(row.start_name, text) && StandsIn(row.end_name, text));
    list.layers.push_back({row});
  }
  const Matrix again = kestrune::ParseMatrix(Rewritten(matrix));
  Require(again.steps == matrix.steps && again.rows == matrix.rows);

  const std::string written = kestrune::WriteLayerList(list);
  const auto rows = static_cast<std::ptrdiff_t>(matrix.rows.size());
  Require(std::count(written.begin(), written.end(), '\n') == rows + 3);
  Require(std::count(written.begin(), written.end(), '\r') == rows + 3);
  Require(std::count(written.begin(), written.end(), '|') == rows * 5);
  Require(written.ends_with("\r\nEND\r\n"));
  return 0;
}
