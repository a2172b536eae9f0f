#include "install/button.h"

#include "common/places/product_files.h"
#include "common/text/text.h"
#include "install/discovery/host_product.h"

namespace kestrune {

using altium_registration::HasAnchor;
using altium_registration::ToolbarAnchor;
using altium_registration::ToolbarKind;

namespace {

/// The last major version of the host with the older toolbar.
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

std::wstring ChooseToolbarImage(std::wstring_view version_text, bool active_bar,
                                std::wstring_view display_name) {
  if (!active_bar) {
    return std::wstring(kLegacyImageFile);
  }
  // Only this build of this edition draws the button from a small image.
  if (version_text == L"26.9.1.9" && IsHostProductName(display_name) &&
      LowerAscii(display_name).starts_with(L"altium designer develop")) {
    return std::wstring(kFlatImageFile);
  }
  return std::wstring(kActiveBarImageFile);
}

}  // namespace kestrune
