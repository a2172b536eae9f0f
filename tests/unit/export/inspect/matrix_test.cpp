#include "export/inspect/matrix.h"

#include <gtest/gtest.h>

#include "tests/support/refusal.h"

namespace kestrune {
namespace {

std::wstring MatrixRefusal(std::string_view text) {
  return RefusalOf([&] { static_cast<void>(ParseMatrix(text)); });
}

TEST(Matrix, StepsAndRowsAreRead) {
  const Matrix matrix = ParseMatrix(
      "\r\nSTEP {\r\n    COL=1\r\n    NAME=PCB\r\n}\r\n\r\n"
      "LAYER {\r\n    ROW=1\r\n    CONTEXT=BOARD\r\n    TYPE=SIGNAL\r\n    NAME=TOP_LAYER\r\n"
      "    POLARITY=POSITIVE\r\n    START_NAME=\r\n    END_NAME=\r\n    OLD_NAME=\r\n}\r\n"
      "LAYER {\r\n    TYPE=DRILL\r\n    NAME=DRILL\r\n    START_NAME=TOP_LAYER\r\n"
      "    END_NAME=BOTTOM_LAYER\r\n}\r\n");
  EXPECT_EQ(matrix.steps, 1U);
  EXPECT_EQ(matrix.rows, (std::vector<MatrixRow>{{"SIGNAL", "TOP_LAYER", "", ""},
                                                 {"DRILL", "DRILL", "TOP_LAYER", "BOTTOM_LAYER"}}));
}

TEST(Matrix, ARowMayLackEveryField) {
  EXPECT_EQ(ParseMatrix("LAYER {\n}\n").rows, std::vector<MatrixRow>{MatrixRow{}});
  EXPECT_TRUE(ParseMatrix("").rows.empty());
}

TEST(Matrix, KeywordsIgnoreCaseAndBlanks) {
  const Matrix matrix = ParseMatrix("step{\n}\n\tLayer\t{\n type = signal \nName=Top Layer\n}");
  EXPECT_EQ(matrix.steps, 1U);
  EXPECT_EQ(matrix.rows, (std::vector<MatrixRow>{{"signal", "Top Layer", "", ""}}));
}

TEST(Matrix, CommentsOtherBlocksAndKeysAreSkipped) {
  const Matrix matrix = ParseMatrix(
      "# a comment = {\nUNITS=MM\nEXTRA {\nTYPE=SIGNAL\n}\nSTEP {\nTYPE=X\n}\n"
      "LAYER {\n#NAME=no\nDIELECTRIC_TYPE=CORE\nNAME=a\nNAME=b\n}\n");
  EXPECT_EQ(matrix.steps, 1U);
  EXPECT_EQ(matrix.rows, (std::vector<MatrixRow>{{"", "b", "", ""}}));
}

TEST(Matrix, OtherLinesAreRefused) {
  const std::wstring damaged = L"The matrix is damaged.";
  EXPECT_EQ(MatrixRefusal("LAYER\n"), damaged);
  EXPECT_EQ(MatrixRefusal("}\n"), damaged);
  EXPECT_EQ(MatrixRefusal("LAYER {\nLAYER {\n}\n}\n"), damaged);
  EXPECT_EQ(MatrixRefusal("LAYER {\nNAME\n}\n"), damaged);
}

TEST(Matrix, EveryBlockMustEnd) {
  EXPECT_EQ(MatrixRefusal("LAYER {\nNAME=a\n"), L"The matrix is truncated.");
  EXPECT_EQ(MatrixRefusal("OTHER {\n"), L"The matrix is truncated.");
}

TEST(Matrix, AValueHasAtMost128Characters) {
  const std::string longest(128, 'x');
  EXPECT_EQ(ParseMatrix("LAYER {\nEND_NAME=" + longest + "\n}").rows[0].end_name, longest);
  EXPECT_EQ(MatrixRefusal("LAYER {\nTYPE=" + longest + "x\n}"),
            L"The matrix has a name that is too long.");
}

TEST(Matrix, AtMost4096RowsAndSteps) {
  std::string rows;
  std::string steps;
  for (int i = 0; i < 4096; ++i) {
    rows += "LAYER {\n}\n";
    steps += "STEP {\n}\n";
  }
  const Matrix matrix = ParseMatrix(rows + steps);
  EXPECT_EQ(matrix.rows.size(), 4096U);
  EXPECT_EQ(matrix.steps, 4096U);
  EXPECT_EQ(MatrixRefusal(rows + "LAYER {\n}\n"), L"The matrix has more than 4096 rows.");
  EXPECT_EQ(MatrixRefusal(steps + "STEP {\n}\n"), L"The matrix has more than 4096 rows.");
}

}  // namespace
}  // namespace kestrune
