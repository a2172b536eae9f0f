#pragma once

#include <cstdlib>

/// Ends the process if a law is broken, which a fuzzer reports together with its input.
inline void Require(bool law) {
  if (!law) {
    std::abort();
  }
}
