#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/failure/failure.h"

namespace altium_registration {

/// A file, security or cryptographic step that Windows refused: "<step> (Win32 <code>)". A
/// comparison that came out wrong without a failing call has the code 0.
inline kestrune::Failure FileStepFailure(std::wstring_view step, std::uint32_t code) {
  return {std::wstring(step) + L" (Win32 " + std::to_wstring(code) + L")", code};
}

/// A registry step that Windows refused: "<step> (registry <code>)", with the code that the call
/// returned.
inline kestrune::Failure RegistryStepFailure(std::wstring_view step, std::uint32_t code) {
  return {std::wstring(step) + L" (registry " + std::to_wstring(code) + L")", code};
}

/// A refusal that no failing call stands behind: a fixed sentence without a code.
inline kestrune::Failure Refusal(std::wstring_view sentence) {
  return {std::wstring(sentence), 0};
}

}  // namespace altium_registration
