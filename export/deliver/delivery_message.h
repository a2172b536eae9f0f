#pragma once

#include <cstdint>
#include <string>

namespace kestrune {

/// Returns a file's size for display: below 1 MiB in whole KiB, rounded down, as "<n> KB"; from 1
/// MiB on in MiB with at most six significant digits, as "<n> MB" ("1.5 MB", "11.7737 MB", "1e+06
/// MB").
std::wstring SizeText(std::uint64_t bytes);

/// Holds the outcome for an archive that was copied and that no application accepted.
struct Delivery {
  std::wstring zip_path;
  std::uint64_t size = 0;
  /// Why the archive is not on the clipboard; empty when it is.
  std::wstring clipboard_error;
  /// Whether an application was to receive it, and why that failed.
  bool application_configured = false;
  std::wstring application_error;
};

/// Returns the message for the user about a delivery.
std::wstring DeliveryMessage(const Delivery& delivery);

/// Returns the message for an archive that could not be copied to `destination`; `error` is the
/// system's text.
std::wstring OverwriteFailureMessage(const std::wstring& destination, const std::wstring& error);

/// Returns the message for any other failure. It names the log.
std::wstring FinalizeFailureMessage(const std::wstring& log_path);

}  // namespace kestrune
