#include "common/places/program_path_win32.h"

#include <gtest/gtest.h>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

TEST(ProgramPath, IsWholeOrEmptyAndNeverCut) {
  const std::wstring path = ProgramPath(RealCalls());
  EXPECT_EQ(FileName(path), L"windows_tests.exe");
  EXPECT_EQ(QueryFileKind(RealCalls(), path), FileKind::RegularFile);
  const auto length = static_cast<DWORD>(path.size());
  EXPECT_EQ(ProgramPath(RealCalls(), length + 1), path);
  for (DWORD capacity = 0; capacity <= length; ++capacity) {
    EXPECT_EQ(ProgramPath(RealCalls(), capacity), L"") << capacity;
  }
}

}  // namespace
}  // namespace kestrune
