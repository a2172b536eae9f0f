#include "common/places/program_path_win32.h"

#include <gtest/gtest.h>

#include "common/files/file_win32.h"
#include "common/text/path.h"

namespace kestrune {
namespace {

TEST(ProgramPath, IsWholeOrEmptyAndNeverCut) {
  const std::wstring path = ProgramPath();
  EXPECT_EQ(FileName(path), L"windows_tests.exe");
  EXPECT_EQ(QueryFileKind(path), FileKind::RegularFile);
  const auto length = static_cast<DWORD>(path.size());
  EXPECT_EQ(ProgramPath(length + 1), path);
  for (DWORD capacity = 0; capacity <= length; ++capacity) {
    EXPECT_EQ(ProgramPath(capacity), L"") << capacity;
  }
}

}  // namespace
}  // namespace kestrune
