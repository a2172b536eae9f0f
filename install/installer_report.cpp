#include "install/installer_report.h"

#include "common/failure/failure.h"

namespace kestrune {
namespace {

constexpr std::wstring_view kShortFailure = L"FAILED: Not enough memory.\n";

}  // namespace

void InstallerReport::Append(std::wstring_view text) {
  text_.reserve(text_.size() + text.size() + kShortFailure.size());
  text_ += text;
}

void InstallerReport::Skip(std::wstring_view reason) {
  SetFailureCode();
  Append(L"Skipped: " + std::wstring(reason) + L"\n");
}

void InstallerReport::Fail(std::wstring_view text) {
  SetFailureCode();
  Append(L"FAILED: " + std::wstring(text) + L"\n");
}

void InstallerReport::FailWithoutMemory() noexcept {
  SetFailureCode();
  AppendWithoutMemory(kShortFailure);
}

void InstallerReport::SetFailureCode() noexcept {
  code_ = command_ == InstallerCommand::Status ? kStatusProblem : kInstallerFailed;
}

void InstallerReport::End(std::int32_t code, std::wstring_view text) {
  code_ = code;
  Append(text);
}

void InstallerReport::EndWithoutMemory() noexcept {
  code_ = kInstallerFailed;
  AppendWithoutMemory(kNotEnoughMemory);
}

void InstallerReport::AppendWithoutMemory(std::wstring_view text) noexcept {
  try {
    text_ += text;
  } catch (...) {
    // The exit code reports the failure; the text so far is kept.
    return;
  }
}

std::wstring ShownError(std::wstring_view error) {
  constexpr std::size_t kMostCharacters = 200;
  std::wstring shown(error.substr(0, kMostCharacters));
  for (wchar_t& unit : shown) {
    // A file's bytes are widened one by one, so the control characters from 0x7F to 0x9F occur too.
    if (unit < L' ' || (unit >= L'\x7F' && unit <= L'\x9F')) {
      unit = L'?';
    }
  }
  return error.size() > kMostCharacters ? shown + L"..." : shown;
}

std::wstring InstanceHeader(const HostInstance& instance) {
  return instance.display_name + L" " + instance.version_text + L"\nGUID: " + instance.guid +
         L"\nProfile: " + instance.profile_directory + L"\nHKCU: " + instance.registry_branch +
         L"\n";
}

std::wstring IdentityLine(const HostInstance& instance) {
  return L"Product=" + instance.display_name + L" Version=" + instance.version_text + L" GUID=" +
         instance.guid;
}

}  // namespace kestrune
