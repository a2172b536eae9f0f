#pragma once

#include <cstdint>
#include <string>

namespace kestrune {

/// A file's size for the user: below 1 MiB whole KiB, the rest dropped, as "<n> KB"; from there on
/// MiB with at most six significant digits as "<n> MB" ("1.5 MB", "11.7737 MB", "1e+06 MB").
std::wstring SizeText(std::uint64_t bytes);

/// What became of an archive that was copied and that no application took over.
struct Delivery {
  std::wstring zip_path;
  std::uint64_t size = 0;
  /// Why the archive is not on the clipboard; empty when it is.
  std::wstring clipboard_error;
  /// Whether an application was to receive it, and why it could not.
  bool application_configured = false;
  std::wstring application_error;
};

/// The message that tells the user about it.
std::wstring DeliveryMessage(const Delivery& delivery);

/// The message for an archive that could not be copied to `destination`; `error` is the system's
/// text.
std::wstring OverwriteFailureMessage(const std::wstring& destination, const std::wstring& error);

/// The message for any other failure, naming the log.
std::wstring FinalizeFailureMessage(const std::wstring& log_path);

}  // namespace kestrune
