#include "registration/transaction/attempt.h"

#include <new>

#include "common/failure/failure.h"

namespace altium_registration {

std::wstring TextOf(const std::exception_ptr& thrown) {
  try {
    std::rethrow_exception(thrown);
  } catch (const kestrune::Failure& failure) {
    return failure.text;
  } catch (const std::bad_alloc&) {
    return kestrune::kNotEnoughMemory;
  } catch (...) {
    return L"Unexpected failure.";
  }
}

}  // namespace altium_registration
