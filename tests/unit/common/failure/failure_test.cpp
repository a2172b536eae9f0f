#include "common/failure/failure.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

TEST(Failure, HasNoCodeUnlessACallFailed) {
  EXPECT_EQ(ErrorFields({L"No file."}), L"Error=No file. GetLastError=0");
  EXPECT_EQ(ErrorFields({L"copy", 5, L"C:\\a"}), L"Error=copy GetLastError=5");
}

TEST(Failure, ShowsItsSubjectAsPath) {
  EXPECT_EQ(PathField({L"copy", 5, L"C:\\a b"}), L" Path=C:\\a b");
  EXPECT_EQ(PathField({L"copy", 5}), L"");
}

}  // namespace
}  // namespace kestrune
