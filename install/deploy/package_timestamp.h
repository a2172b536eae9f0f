#pragma once

#include <cstdint>
#include <string_view>

namespace kestrune {

/// When a package's file was made, and whether the package can vouch for it.
struct PackageTimestamp {
  /// Units of 100 nanoseconds since 1601, UTC; never 0.
  std::uint64_t time = 0;
  /// Whether a file that is there already may be replaced on the strength of this time.
  bool origin_proven = false;
};

/// What a manifest says about one file.
struct ManifestEntry {
  std::uint64_t time = 0;
  /// SHA-256 of the content, 64 characters of the value that was parsed.
  std::wstring_view digest;
};

/// Reads a manifest's value: the time as two numbers of eight hexadecimal digits (0-9 and capitals)
/// separated by ":", then "|" and the 64 characters of the digest. False for any other form and for
/// the time 0.
[[nodiscard]] bool ParseManifestValue(std::wstring_view value, ManifestEntry& entry);

/// Whether a file name is that of a manifest: "BFM_", anything, ".ini", in any case. The system's
/// own search also finds files by their short names, which say nothing.
bool IsManifestName(std::wstring_view name);

/// Whether a package without a manifest is trusted by its file times. A copy inside the product
/// family's own folder is not: whoever copied it there may have given it any time.
bool IsTrustedWithoutManifest(std::wstring_view source_path);

}  // namespace kestrune
