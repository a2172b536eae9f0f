#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/system/system_calls_win32.h"

namespace altium_registration {

/// Owner, group and DACL of a file, as one self-relative security descriptor.
class FileSecurity {
 public:
  FileSecurity() = default;
  explicit FileSecurity(std::vector<std::byte> descriptor) : descriptor_(std::move(descriptor)) {}

  /// The descriptor's bytes as Windows gave them.
  [[nodiscard]] const std::vector<std::byte>& Bytes() const { return descriptor_; }

  /// For the calls of Windows, which take no constant descriptor even where they only read it.
  [[nodiscard]] void* Descriptor() const { return const_cast<std::byte*>(descriptor_.data()); }

  [[nodiscard]] bool SameOwnerAndGroup(const FileSecurity& other) const;

  /// The same access control entries in the same order and the same protection from inheritance.
  /// Whether Windows computed inherited entries itself makes no difference to what they allow, and
  /// the mark of it does not survive being written; so that mark is left out of account.
  [[nodiscard]] bool SameDacl(const FileSecurity& other) const;

  [[nodiscard]] bool operator==(const FileSecurity& other) const {
    return SameOwnerAndGroup(other) && SameDacl(other);
  }

 private:
  std::vector<std::byte> descriptor_;
};

/// Reads a file's security. Throws the failure of `size_step` or `read_step`.
FileSecurity ReadFileSecurity(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
                              std::wstring_view size_step, std::wstring_view read_step);

/// Writes the DACL of `security` to the file. Throws the failure of "Restore exact RCS DACL".
void WriteDacl(kestrune::SystemCalls& calls, const kestrune::ExtendedPath& path,
               const FileSecurity& security);

/// A descriptor that gives a new file the owner and group of another and nothing else; it refers to
/// `original`, which must outlive it.
class IdentityDescriptor {
 public:
  /// Throws the failure of the step that Windows refused.
  IdentityDescriptor(kestrune::SystemCalls& calls, const FileSecurity& original);
  IdentityDescriptor(const IdentityDescriptor&) = delete;
  IdentityDescriptor& operator=(const IdentityDescriptor&) = delete;

  [[nodiscard]] SECURITY_ATTRIBUTES* Attributes() { return &attributes_; }

 private:
  SECURITY_DESCRIPTOR descriptor_{};
  SECURITY_ATTRIBUTES attributes_{};
};

}  // namespace altium_registration
