#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/failure/failure.h"

namespace altium_registration {

/// Returns the failure of a file, security or cryptographic step: "<step> (Win32 <code>)". A failed
/// comparison has the code 0.
inline kestrune::Failure FileStepFailure(std::wstring_view step, std::uint32_t code) {
  return {std::wstring(step) + L" (Win32 " + std::to_wstring(code) + L")", code};
}

/// Returns the failure of a registry step: "<step> (registry <code>)", with the code that the call
/// returned.
inline kestrune::Failure RegistryStepFailure(std::wstring_view step, std::uint32_t code) {
  return {std::wstring(step) + L" (registry " + std::to_wstring(code) + L")", code};
}

/// Returns a failure without a failed call: a fixed sentence without a code.
inline kestrune::Failure Refusal(std::wstring_view sentence) {
  return {std::wstring(sentence), 0};
}

}  // namespace altium_registration
