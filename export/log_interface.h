#pragma once

#include <string_view>

#include "common/failure/failure.h"

namespace kestrune {

// The stages and text fragments that the script searches for in the log. The script has the same
// constants, with names that begin with Ks; tests/checks/log_interface compares them.

inline constexpr std::wstring_view kStageRejected = L"Prepare rejected";
inline constexpr std::wstring_view kStageFailed = L"Prepare failed";
inline constexpr std::wstring_view kStageLayers = L"Prepare layer selection failed";
inline constexpr std::wstring_view kStageMissing = L"Prepare missing dependency";
inline constexpr std::wstring_view kStageCollision = L"Prepare dependency name collision";
inline constexpr std::wstring_view kStageDelivered = L"Finalize copied";
inline constexpr std::wstring_view kStageUndelivered = L"Finalize failed";
inline constexpr std::wstring_view kStageUnhandled = L"Unhandled failure";

inline constexpr std::wstring_view kFragmentCode = kErrorCodeField;
inline constexpr std::wstring_view kFragmentInside = L"temporary folder";
inline constexpr std::wstring_view kFragmentGone = L"is missing";

}  // namespace kestrune
