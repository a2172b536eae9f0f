#pragma once

#include <windows.h>

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "common/system/system_calls_win32.h"

namespace altium_registration {

/// Holds owner, group and DACL of a file as a self-relative security descriptor.
class FileSecurity {
 public:
  FileSecurity() = default;
  explicit FileSecurity(std::vector<std::byte> descriptor) : descriptor_(std::move(descriptor)) {}

  /// Returns the descriptor's bytes as read from Windows.
  [[nodiscard]] const std::vector<std::byte>& Bytes() const { return descriptor_; }

  /// Returns the descriptor for calls to Windows, which take a non-const pointer even when they
  /// only read it.
  [[nodiscard]] void* Descriptor() const { return const_cast<std::byte*>(descriptor_.data()); }

  [[nodiscard]] bool SameOwnerAndGroup(const FileSecurity& other) const;

  /// Returns whether both have the same access control entries in the same order and the same
  /// protection from inheritance. Ignores SE_DACL_AUTO_INHERITED, which does not affect access and
  /// which Windows may clear when the DACL is written.
  [[nodiscard]] bool SameDacl(const FileSecurity& other) const;

  [[nodiscard]] bool operator==(const FileSecurity& other) const {
    return SameOwnerAndGroup(other) && SameDacl(other);
  }

 private:
  std::vector<std::byte> descriptor_;
};

/// Reads a file's security with retries. Throws Failure of the step `size_step` or `read_step`.
FileSecurity ReadFileSecurity(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                              std::wstring_view size_step, std::wstring_view read_step);

/// Writes the DACL of `security` to the file with retries. Throws Failure of the step "Restore
/// exact RCS DACL".
void WriteDacl(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
               const FileSecurity& security);

/// Holds a descriptor with only the owner and group of another file, for creating a new one. Refers
/// to `original`, which must outlive it.
class IdentityDescriptor {
 public:
  /// Throws Failure of the step that failed.
  IdentityDescriptor(kestrune::SystemCalls& calls, const FileSecurity& original);
  IdentityDescriptor(const IdentityDescriptor&) = delete;
  IdentityDescriptor& operator=(const IdentityDescriptor&) = delete;

  [[nodiscard]] SECURITY_ATTRIBUTES* Attributes() { return &attributes_; }

 private:
  SECURITY_DESCRIPTOR descriptor_{};
  SECURITY_ATTRIBUTES attributes_{};
};

}  // namespace altium_registration
