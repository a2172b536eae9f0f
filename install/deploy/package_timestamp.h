#pragma once

#include <cstdint>
#include <string_view>

namespace kestrune {

/// Holds the time of a package's file, and whether its origin is proven.
struct PackageTimestamp {
  /// Units of 100 nanoseconds since 1601, UTC; never 0.
  std::uint64_t time = 0;
  /// Whether the time proves enough to replace an existing file.
  bool origin_proven = false;
};

/// Holds a manifest's entry for one file.
struct ManifestEntry {
  std::uint64_t time = 0;
  /// The SHA-256 of the content: 64 characters within the parsed value, which must outlive it.
  std::wstring_view digest;
};

/// Parses a manifest's value: the time as two numbers of eight hexadecimal digits (0-9 and A-F)
/// separated by ":", then "|" and the 64 characters of the digest. Returns false for any other form
/// and for the time 0.
[[nodiscard]] bool ParseManifestValue(std::wstring_view value, ManifestEntry& entry);

/// Returns whether a file name is that of a manifest: "BFM_", anything, ".ini", in any case. A
/// search by Windows also matches short names, so its results must be checked.
bool IsManifestName(std::wstring_view name);

/// Returns whether the own time of a file without a manifest is trusted. Returns false for a path
/// that contains "kestrunes" in any case, the name of the product family's folder: copies in it may
/// have any time.
bool IsTrustedWithoutManifest(std::wstring_view source_path);

}  // namespace kestrune
