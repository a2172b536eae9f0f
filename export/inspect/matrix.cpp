#include "export/inspect/matrix.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/failure/failure.h"
#include "common/text/text.h"

namespace kestrune {
namespace {

enum class Block { None, Step, Layer, Other };

[[noreturn]] void Refuse(const wchar_t* reason) {
  throw Failure{reason};
}

std::string_view NextLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return Trim(line, " \t\r");
}

/// Collects rows and steps from the lines of a matrix.
class MatrixReader {
 public:
  void Take(std::string_view line) {
    if (line.empty() || line.front() == '#') {
      return;
    }
    if (line == "}") {
      Close();
    } else if (line.back() == '{') {
      Open(LowerAscii(Trim(line.substr(0, line.size() - 1), " \t")));
    } else {
      TakeValue(line);
    }
  }

  Matrix Finish() {
    if (block_ != Block::None) {
      Refuse(L"The matrix is truncated.");
    }
    return std::move(matrix_);
  }

 private:
  void Open(const std::string& keyword) {
    if (block_ != Block::None) {
      Refuse(L"The matrix is damaged.");
    }
    block_ = keyword == "step" ? Block::Step : keyword == "layer" ? Block::Layer : Block::Other;
    if (block_ == Block::Step) {
      ++matrix_.steps;
    } else if (block_ == Block::Layer) {
      matrix_.rows.emplace_back();
    }
    if (matrix_.steps > kMostMatrixRows || matrix_.rows.size() > kMostMatrixRows) {
      Refuse(L"The matrix has more than 4096 rows.");
    }
  }

  void Close() {
    if (block_ == Block::None) {
      Refuse(L"The matrix is damaged.");
    }
    block_ = Block::None;
  }

  void TakeValue(std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      Refuse(L"The matrix is damaged.");
    }
    if (block_ == Block::Layer) {
      Assign(LowerAscii(Trim(line.substr(0, equals), " \t")), Trim(line.substr(equals + 1), " \t"));
    }
  }

  void Assign(const std::string& key, std::string_view value) {
    constexpr std::array<std::pair<std::string_view, std::string MatrixRow::*>, 4> kFields = {
        {{"type", &MatrixRow::type},
         {"name", &MatrixRow::name},
         {"start_name", &MatrixRow::start_name},
         {"end_name", &MatrixRow::end_name}}};
    for (const auto& [name, field] : kFields) {
      if (key != name) {
        continue;
      }
      if (value.size() > kMostMatrixValue) {
        Refuse(L"The matrix has a name that is too long.");
      }
      matrix_.rows.back().*field = value;
    }
  }

  Matrix matrix_;
  Block block_ = Block::None;
};

}  // namespace

Matrix ParseMatrix(std::string_view text) {
  MatrixReader reader;
  while (!text.empty()) {
    reader.Take(NextLine(text));
  }
  return reader.Finish();
}

}  // namespace kestrune
