#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "common/failure/failure.h"

namespace kestrune {

/// Returns the text of the refusal that `action` throws, which has no Windows code; empty when it
/// throws none.
inline std::wstring RefusalOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code, 0U);
    return failure.text;
  }
  return {};
}

}  // namespace kestrune
