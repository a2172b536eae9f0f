#include "install/deploy/package_directories.h"

#include <gmock/gmock.h>

namespace kestrune {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(PackageDirectories, AreTheProgramsOwnAndFiveAbove) {
  EXPECT_THAT(PackageDirectories(L"C:\\1\\2\\3\\4\\5\\6\\Kestrune.exe"),
              ElementsAre(L"C:\\1\\2\\3\\4\\5\\6", L"C:\\1\\2\\3\\4\\5", L"C:\\1\\2\\3\\4",
                          L"C:\\1\\2\\3", L"C:\\1\\2", L"C:\\1"));
}

TEST(PackageDirectories, EndAtTheRoot) {
  EXPECT_THAT(PackageDirectories(L"C:\\a\\Kestrune.exe"), ElementsAre(L"C:\\a", L"C:\\"));
  EXPECT_THAT(PackageDirectories(L"\\\\server\\share\\a\\Kestrune.exe"),
              ElementsAre(L"\\\\server\\share\\a", L"\\\\server\\share"));
  EXPECT_THAT(PackageDirectories(L"\\\\?\\C:\\a\\Kestrune.exe"),
              ElementsAre(L"\\\\?\\C:\\a", L"\\\\?\\C:\\"));
  EXPECT_THAT(PackageDirectories(L"\\\\?\\UNC\\server\\share\\Kestrune.exe"),
              ElementsAre(L"\\\\?\\UNC\\server\\share"));
}

TEST(PackageDirectories, AreNoneWithoutAPath) {
  EXPECT_THAT(PackageDirectories(L""), IsEmpty());
  EXPECT_THAT(PackageDirectories(L"Kestrune.exe"), IsEmpty());
}

}  // namespace
}  // namespace kestrune
