#pragma once

#include <functional>
#include <string>

#include "common/failure/failure.h"

namespace kestrune {

/// Returns the text of the Failure that `action` throws; empty when it throws none.
inline std::wstring RefusalOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Failure& failure) {
    return failure.text;
  }
  return {};
}

}  // namespace kestrune
