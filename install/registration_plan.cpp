#include "install/registration_plan.h"

namespace kestrune {

using altium_registration::HasAnchor;
using altium_registration::ToolbarAnchor;
using altium_registration::ToolbarKind;

namespace {

/// The last host version with the older toolbar.
constexpr std::int32_t kLastLegacyMajor = 17;

}  // namespace

std::optional<ToolbarAnchor> ChooseAnchor(std::string_view resource, std::int32_t major,
                                          const std::vector<std::string>& extra_record_kinds,
                                          std::span<const ToolbarAnchor> places) {
  const ToolbarKind wanted =
      major > kLastLegacyMajor ? ToolbarKind::ActiveBar : ToolbarKind::Legacy;
  std::optional<ToolbarAnchor> found;
  std::optional<ToolbarAnchor> last_fitting;
  int count = 0;
  for (const ToolbarAnchor& anchor : places) {
    if (!HasAnchor(resource, anchor.target, anchor.reference, extra_record_kinds)) {
      continue;
    }
    ++count;
    found = anchor;
    if (major > 0 && anchor.kind == wanted) {
      last_fitting = anchor;
    }
  }
  return count > 1 ? last_fitting : found;
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
