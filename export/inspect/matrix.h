#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// A matrix that is larger, or has more rows or steps, is refused.
inline constexpr std::size_t kMostMatrixBytes = std::size_t{4} * 1024 * 1024;
inline constexpr std::size_t kMostMatrixRows = 4096;
/// A value of the matrix that is longer is refused; names of layers have at most 64 characters.
inline constexpr std::size_t kMostMatrixValue = 128;

/// Holds a row of the matrix, which is one layer. Values are as written; an absent one is empty.
struct MatrixRow {
  std::string type;
  std::string name;
  /// The first and the last layer of a drill span.
  std::string start_name;
  std::string end_name;

  friend bool operator==(const MatrixRow&, const MatrixRow&) = default;
};

/// Holds the table of layers of an ODB++ archive.
struct Matrix {
  std::size_t steps = 0;
  std::vector<MatrixRow> rows;
};

/// Reads the structured text `matrix/matrix`: blocks "STEP {" and "LAYER {" with lines "KEY=value"
/// up to "}". Keywords are compared without regard to case; other blocks and keys are ignored; the
/// last value of a repeated key counts. Throws Failure for any other line, an unclosed block, too
/// many rows or steps, or a value that is too long.
Matrix ParseMatrix(std::string_view text);

}  // namespace kestrune
