#pragma once

#include <exception>
#include <string>

namespace altium_registration {

/// Runs an action and returns its exception, if any. Allocates no memory.
template <class Action>
std::exception_ptr Attempt(Action action) noexcept {
  try {
    action();
    return nullptr;
  } catch (...) {
    return std::current_exception();
  }
}

/// Returns the text of an exception: that of a Failure, or a general sentence. Throws
/// std::bad_alloc.
std::wstring TextOf(const std::exception_ptr& thrown);

}  // namespace altium_registration
