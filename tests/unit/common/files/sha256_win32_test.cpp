#include "common/files/sha256_win32.h"

#include <gtest/gtest.h>

#include <string>

#include "common/files/file_win32.h"
#include "common/text/path.h"
#include "tests/support/files_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

std::wstring ScratchFile(const wchar_t* name) {
  wchar_t folder[MAX_PATH + 1] = {};
  GetTempPathW(MAX_PATH, folder);
  return JoinPath(folder, std::to_wstring(GetCurrentProcessId()) + L"-" + name);
}

// Reference digests of the algorithm's own standard.
TEST(Sha256, KnownTextsHaveTheirPublishedDigests) {
  EXPECT_EQ(Sha256(RealCalls(), ""),
            "E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855");
  EXPECT_EQ(Sha256(RealCalls(), "abc"),
            "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");
  EXPECT_EQ(Sha256(RealCalls(), std::string(1'000'000, 'a')),
            "CDC76E5C9914FB9281A1C7E284D73E67F1809A48A497200E046D39CCC7112CD0");
}

TEST(Sha256, FileDigestSpansChunks) {
  const std::wstring path = ScratchFile(L"sha256.bin");
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, (std::size_t{1} << 20) - 1,
                                 std::size_t{1} << 20, (std::size_t{1} << 20) + 1}) {
    const std::string bytes(size, '\xA5');
    ASSERT_TRUE(TryWriteFile(path, bytes));
    EXPECT_EQ(Sha256OfFile(RealCalls(), ExtendedPath(path)), Sha256(RealCalls(), bytes)) << size;
  }
  DeleteFileW(path.c_str());
}

TEST(Sha256, FileThatCannotBeOpenedNamesCode) {
  try {
    static_cast<void>(Sha256OfFile(RealCalls(), ExtendedPath(ScratchFile(L"no-such-file"))));
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.text, L"Open file");
    EXPECT_EQ(failure.code, DWORD{ERROR_FILE_NOT_FOUND});
  }
}

}  // namespace
}  // namespace kestrune
