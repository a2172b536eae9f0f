#include "registration/store/file_security_win32.h"

#include <algorithm>

#include "registration/store/store_files_win32.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

constexpr SECURITY_INFORMATION kParts =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

PSID OwnerOf(const FileSecurity& security) {
  PSID owner = nullptr;
  BOOL defaulted = FALSE;
  return GetSecurityDescriptorOwner(security.Descriptor(), &owner, &defaulted) ? owner : nullptr;
}

PSID GroupOf(const FileSecurity& security) {
  PSID group = nullptr;
  BOOL defaulted = FALSE;
  return GetSecurityDescriptorGroup(security.Descriptor(), &group, &defaulted) ? group : nullptr;
}

bool SameSid(PSID left, PSID right) {
  return left == nullptr || right == nullptr ? left == right : EqualSid(left, right) != FALSE;
}

/// Holds a DACL. Without a DACL, or with a null DACL, a file is open to everyone; with an empty
/// DACL to no one.
struct Dacl {
  bool present = false;
  bool is_protected = false;
  ACL* list = nullptr;
};

Dacl DaclOf(const FileSecurity& security) {
  Dacl dacl;
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  if (GetSecurityDescriptorDacl(security.Descriptor(), &present, &dacl.list, &defaulted)) {
    dacl.present = present != FALSE;
  }
  if (GetSecurityDescriptorControl(security.Descriptor(), &control, &revision)) {
    dacl.is_protected = (control & SE_DACL_PROTECTED) != 0;
  }
  return dacl;
}

bool SameEntry(ACL* left, ACL* right, DWORD index) {
  void* left_entry = nullptr;
  void* right_entry = nullptr;
  if (!GetAce(left, index, &left_entry) || !GetAce(right, index, &right_entry)) {
    return false;
  }
  const WORD size = static_cast<const ACE_HEADER*>(left_entry)->AceSize;
  return size == static_cast<const ACE_HEADER*>(right_entry)->AceSize &&
         std::equal(static_cast<const std::byte*>(left_entry),
                    static_cast<const std::byte*>(left_entry) + size,
                    static_cast<const std::byte*>(right_entry));
}

bool SameEntries(ACL* left, ACL* right) {
  if (left == nullptr || right == nullptr) {
    return left == right;
  }
  if (left->AceCount != right->AceCount) {
    return false;
  }
  for (DWORD i = 0; i < left->AceCount; ++i) {
    if (!SameEntry(left, right, i)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool FileSecurity::SameOwnerAndGroup(const FileSecurity& other) const {
  return SameSid(OwnerOf(*this), OwnerOf(other)) && SameSid(GroupOf(*this), GroupOf(other));
}

bool FileSecurity::SameDacl(const FileSecurity& other) const {
  const Dacl left = DaclOf(*this);
  const Dacl right = DaclOf(other);
  return left.present == right.present && left.is_protected == right.is_protected &&
         (!left.present || SameEntries(left.list, right.list));
}

FileSecurity ReadFileSecurity(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                              std::wstring_view size_step, std::wstring_view read_step) {
  DWORD size = 0;
  DWORD code =
      TryWithRetries(calls, [&] { return calls.GetSecurity(path, kParts, nullptr, 0, &size); });
  if (code != ERROR_SUCCESS && code != ERROR_INSUFFICIENT_BUFFER) {
    throw FileStepFailure(size_step, code);
  }
  std::vector<std::byte> descriptor(size);
  code = TryWithRetries(
      calls, [&] { return calls.GetSecurity(path, kParts, descriptor.data(), size, &size); });
  if (code != ERROR_SUCCESS) {
    throw FileStepFailure(read_step, code);
  }
  if (size != 0 && size < descriptor.size()) {
    descriptor.resize(size);
  }
  return FileSecurity(std::move(descriptor));
}

void WriteDacl(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
               const FileSecurity& security) {
  constexpr std::wstring_view kStep = L"Restore exact RCS DACL";
  const FileSecurity written(security.Bytes());
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  if (!GetSecurityDescriptorControl(written.Descriptor(), &control, &revision)) {
    throw FileStepFailure(kStep, GetLastError());
  }
  // Windows clears SE_DACL_AUTO_INHERITED unless the written descriptor requests it.
  if ((control & SE_DACL_AUTO_INHERITED) != 0 &&
      !SetSecurityDescriptorControl(written.Descriptor(), SE_DACL_AUTO_INHERIT_REQ,
                                    SE_DACL_AUTO_INHERIT_REQ)) {
    throw FileStepFailure(kStep, GetLastError());
  }
  const DWORD code = TryWithRetries(calls, [&] {
    return calls.SetSecurity(path, DACL_SECURITY_INFORMATION, written.Descriptor());
  });
  if (code != ERROR_SUCCESS) {
    throw FileStepFailure(kStep, code);
  }
}

IdentityDescriptor::IdentityDescriptor(kestrune::SystemCalls& calls, const FileSecurity& original) {
  PSID owner = nullptr;
  PSID group = nullptr;
  if (!calls.InitializeDescriptor(&descriptor_)) {
    throw FileStepFailure(L"Initialize replacement identity", GetLastError());
  }
  if (!calls.GetOwner(original.Descriptor(), &owner)) {
    throw FileStepFailure(L"Read original owner", GetLastError());
  }
  if (!calls.GetGroup(original.Descriptor(), &group)) {
    throw FileStepFailure(L"Read original group", GetLastError());
  }
  if (!calls.SetOwner(&descriptor_, owner)) {
    throw FileStepFailure(L"Set replacement owner", GetLastError());
  }
  if (!calls.SetGroup(&descriptor_, group)) {
    throw FileStepFailure(L"Set replacement group", GetLastError());
  }
  attributes_ = {sizeof attributes_, &descriptor_, FALSE};
}

}  // namespace altium_registration
