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
  SeeProblem();
  Append(L"Skipped: " + std::wstring(reason) + L"\n");
}

void InstallerReport::Fail(std::wstring_view text) {
  SeeProblem();
  Append(L"FAILED: " + std::wstring(text) + L"\n");
}

void InstallerReport::FailWithoutMemory() noexcept {
  SeeProblem();
  AppendWithoutMemory(kShortFailure);
}

void InstallerReport::SeeProblem() noexcept {
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
    // The code reports that something failed, and the text what was done before.
    return;
  }
}

std::wstring ShownError(std::wstring_view error) {
  constexpr std::size_t kMostCharacters = 200;
  std::wstring shown(error.substr(0, kMostCharacters));
  for (wchar_t& unit : shown) {
    // The bytes of a file are widened one by one, so the second set of control characters occurs
    // too.
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
