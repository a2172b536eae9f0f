#include "export/deliver/archive_space_win32.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {
namespace {

/// Uses the real files, with a simulated disk.
class MadeDisk final : public SystemCalls {
 public:
  std::uint64_t available = 0;
  std::uint64_t total = std::uint64_t{1} << 20;
  DWORD cluster = 4096;
  UINT kind = DRIVE_FIXED;
  std::wstring final_path = L"\\\\?\\C:\\out";
  DWORD more_attributes = 0;

  BOOL GetSpace(const ExtendedPath&, ULARGE_INTEGER* free, ULARGE_INTEGER* all) override {
    free->QuadPart = available;
    all->QuadPart = total;
    return TRUE;
  }
  BOOL GetClusterSize(const ExtendedPath&, DWORD* bytes) override {
    *bytes = cluster;
    return TRUE;
  }
  UINT GetDriveKind(const std::wstring& root) override {
    EXPECT_EQ(root, L"C:\\");
    return kind;
  }
  DWORD GetFinalPath(HANDLE, wchar_t* path, DWORD, DWORD) override {
    std::ranges::copy(final_path, path);
    return static_cast<DWORD>(final_path.size());
  }
  BOOL GetAttributes(const ExtendedPath& path, WIN32_FILE_ATTRIBUTE_DATA* data) override {
    const BOOL answered = SystemCalls::GetAttributes(path, data);
    data->dwFileAttributes |= more_attributes;
    return answered;
  }
};

class ArchiveSpaceTest : public ExportTest {
 protected:
  void SetUp() override {
    ExportTest::SetUp();
    PutFile(Scratch(L"out\\Main.zip"), std::string(50'000, 'f'));
  }

  bool LacksSpace(std::size_t size) {
    PutFile(Scratch(L"native.zip"), std::string(size, 'z'));
    return LacksSpaceToOverwrite(disk_, Scratch(L"native.zip"), Scratch(L"out\\Main.zip"));
  }

  MadeDisk disk_;
};

TEST_F(ArchiveSpaceTest, FormerArchiveFreesItsClusters) {
  EXPECT_FALSE(LacksSpace(53'000));
  EXPECT_FALSE(LacksSpace(53'248));
  for (const UINT kind : {UINT{DRIVE_FIXED}, UINT{DRIVE_REMOVABLE}, UINT{DRIVE_RAMDISK}}) {
    disk_.kind = kind;
    disk_.available = 0;
    EXPECT_TRUE(LacksSpace(53'249));
    disk_.available = 1;
    EXPECT_FALSE(LacksSpace(53'249));
    EXPECT_TRUE(LacksSpace(53'250));
  }
}

TEST_F(ArchiveSpaceTest, FullClustersFreeNoMore) {
  PutFile(Scratch(L"out\\Main.zip"), std::string(53'248, 'f'));
  disk_.available = 0;
  EXPECT_FALSE(LacksSpace(53'248));
  EXPECT_TRUE(LacksSpace(53'249));
}

TEST_F(ArchiveSpaceTest, WithoutFormerArchiveCopyIsTried) {
  ASSERT_TRUE(DeleteFileW(Scratch(L"out\\Main.zip").c_str()));
  EXPECT_FALSE(LacksSpace(100'000));
}

TEST_F(ArchiveSpaceTest, AShareIsTried) {
  disk_.final_path = L"\\\\?\\UNC\\server\\share";
  EXPECT_FALSE(LacksSpace(100'000));
  disk_.final_path = L"\\\\?\\C:\\out";
  disk_.kind = DRIVE_REMOTE;
  EXPECT_FALSE(LacksSpace(100'000));
}

TEST_F(ArchiveSpaceTest, FolderWithTooLongPathIsTried) {
  constexpr std::size_t kBuffer = 32768;
  disk_.final_path = L"\\\\?\\C:\\";
  disk_.final_path.resize(kBuffer - 1, L'x');
  EXPECT_TRUE(LacksSpace(100'000));
  disk_.final_path.resize(kBuffer, L'x');
  EXPECT_FALSE(LacksSpace(100'000));
}

TEST_F(ArchiveSpaceTest, DiskOfUnknownSizeIsTried) {
  disk_.total = 0;
  EXPECT_FALSE(LacksSpace(100'000));
  disk_.total = 1;
  disk_.cluster = 0;
  EXPECT_FALSE(LacksSpace(100'000));
}

TEST_F(ArchiveSpaceTest, ArchiveThatIsNotPlainIsTried) {
  for (const DWORD attribute :
       {DWORD{FILE_ATTRIBUTE_REPARSE_POINT}, DWORD{FILE_ATTRIBUTE_COMPRESSED},
        DWORD{FILE_ATTRIBUTE_SPARSE_FILE}, DWORD{FILE_ATTRIBUTE_DIRECTORY}}) {
    disk_.more_attributes = attribute;
    EXPECT_FALSE(LacksSpace(100'000));
  }
}

}  // namespace
}  // namespace kestrune
