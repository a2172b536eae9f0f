#include "export/deliver/delivery_message.h"

#include <charconv>

#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::uint64_t kKilobyte = 1024;
constexpr std::uint64_t kMegabyte = 1024 * kKilobyte;

/// Returns the number with six significant digits, as an output stream formats it by default,
/// independent of the locale.
std::wstring SixDigits(double value) {
  char digits[32];
  const auto end =
      std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, 6).ptr;
  return std::wstring(digits, end);
}

}  // namespace

std::wstring SizeText(std::uint64_t bytes) {
  if (bytes < kMegabyte) {
    return Decimal(bytes / kKilobyte) + L" KB";
  }
  return SixDigits(static_cast<double>(bytes) * (1.0 / static_cast<double>(kMegabyte))) + L" MB";
}

std::wstring DeliveryMessage(const Delivery& delivery) {
  std::wstring text = L"ODB++ export successful.\n\nZIP:\n" + delivery.zip_path + L"\n\nSize: " +
                      SizeText(delivery.size);
  if (delivery.clipboard_error.empty()) {
    text += L"\n\nThe ZIP file and its path were copied to the Clipboard.";
  } else {
    text += L"\n\nWarning: " + delivery.clipboard_error;
  }
  if (delivery.application_configured) {
    text += L"\n\nThe configured application was not started.\n" + delivery.application_error;
  }
  return text;
}

std::wstring OverwriteFailureMessage(const std::wstring& destination, const std::wstring& error) {
  return L"Cannot overwrite the destination ZIP.\n\n" + destination + L"\n\n" + error;
}

std::wstring FinalizeFailureMessage(const std::wstring& log_path) {
  return L"ODB++ export finalization failed.\nStage: Copying native output\nSee log: " + log_path;
}

}  // namespace kestrune
