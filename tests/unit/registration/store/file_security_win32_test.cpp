#include "registration/store/file_security_win32.h"

#include <gtest/gtest.h>

#include <sddl.h>

#include "common/system/owners_win32.h"

namespace altium_registration {
namespace {

FileSecurity FromText(const wchar_t* text) {
  kestrune::LocalMemory<void> descriptor;
  ULONG size = 0;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, descriptor.Put(),
                                                            &size)) {
    ADD_FAILURE() << GetLastError();
    return {};
  }
  const auto* bytes = static_cast<const std::byte*>(descriptor.Get());
  return FileSecurity({bytes, bytes + size});
}

TEST(FileSecurity, OwnerAndGroupDecideTogether) {
  const FileSecurity original = FromText(L"O:BAG:SYD:(A;;FA;;;BA)");
  EXPECT_TRUE(original.SameOwnerAndGroup(FromText(L"O:BAG:SYD:(A;;FR;;;WD)")));
  EXPECT_FALSE(original.SameOwnerAndGroup(FromText(L"O:SYG:SYD:(A;;FA;;;BA)")));
  EXPECT_FALSE(original.SameOwnerAndGroup(FromText(L"O:BAG:BAD:(A;;FA;;;BA)")));
}

TEST(FileSecurity, EveryEntryAndTheirOrderCount) {
  const FileSecurity original = FromText(L"O:BAG:SYD:(D;;FW;;;BG)(A;;FA;;;BA)");
  EXPECT_TRUE(original.SameDacl(FromText(L"O:SYG:BAD:(D;;FW;;;BG)(A;;FA;;;BA)")));
  EXPECT_FALSE(original.SameDacl(FromText(L"O:BAG:SYD:(A;;FA;;;BA)(D;;FW;;;BG)")));
  EXPECT_FALSE(original.SameDacl(FromText(L"O:BAG:SYD:(D;;FW;;;BG)")));
  EXPECT_FALSE(original.SameDacl(FromText(L"O:BAG:SYD:(D;;FW;;;BG)(A;;FR;;;BA)")));
}

TEST(FileSecurity, ProtectionCountsAutoInheritanceDoesNot) {
  const FileSecurity original = FromText(L"O:BAG:SYD:(A;;FA;;;BA)");
  EXPECT_FALSE(original.SameDacl(FromText(L"O:BAG:SYD:P(A;;FA;;;BA)")));
  EXPECT_TRUE(original.SameDacl(FromText(L"O:BAG:SYD:AI(A;;FA;;;BA)")));
}

TEST(FileSecurity, NoDaclAndEmptyDaclAreOpposites) {
  EXPECT_FALSE(FromText(L"O:BAG:SY").SameDacl(FromText(L"O:BAG:SYD:")));
  EXPECT_TRUE(FromText(L"O:BAG:SY").SameDacl(FromText(L"O:BAG:SY")));
  EXPECT_TRUE(FromText(L"O:BAG:SYD:").SameDacl(FromText(L"O:BAG:SYD:")));
}

/// Records the written descriptor.
class RecordingCalls final : public kestrune::SystemCalls {
 public:
  BOOL SetSecurity(const kestrune::ExtendedPath&, SECURITY_INFORMATION parts,
                   void* descriptor) override {
    parts_ = parts;
    DWORD revision = 0;
    return GetSecurityDescriptorControl(descriptor, &control_, &revision);
  }
  SECURITY_INFORMATION parts_ = 0;
  SECURITY_DESCRIPTOR_CONTROL control_ = 0;
};

TEST(FileSecurity, WritingADaclChangesNothingElse) {
  RecordingCalls calls;
  const FileSecurity inherited = FromText(L"O:BAG:SYD:AI(A;;FA;;;BA)");
  const std::vector<std::byte> before = inherited.Bytes();
  WriteDacl(calls, kestrune::ExtendedPath(L"file"), inherited);
  EXPECT_EQ(calls.parts_, SECURITY_INFORMATION{DACL_SECURITY_INFORMATION});
  EXPECT_NE(calls.control_ & SE_DACL_AUTO_INHERIT_REQ, 0);
  EXPECT_EQ(inherited.Bytes(), before);
  WriteDacl(calls, kestrune::ExtendedPath(L"file"), FromText(L"O:BAG:SYD:(A;;FA;;;BA)"));
  EXPECT_EQ(calls.control_ & SE_DACL_AUTO_INHERIT_REQ, 0);
}

}  // namespace
}  // namespace altium_registration
