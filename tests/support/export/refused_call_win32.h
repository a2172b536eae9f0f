#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tests/support/scripted_calls_win32.h"

namespace kestrune {

/// Returns a hook for ScriptedCalls that makes each call of this name fail with the code, for every
/// path with this end.
inline auto RefusedCall(std::string_view name, const std::wstring& path_end, DWORD code) {
  return [=](const SystemCall& call) {
    return call.name == name && call.path.ends_with(path_end) ? std::optional(code) : std::nullopt;
  };
}

}  // namespace kestrune
