#include "common/failure/failure.h"

#include "common/text/text.h"

namespace kestrune {

std::wstring CodeField(const Failure& failure) {
  return std::wstring(L" ").append(kErrorCodeField).append(Decimal(failure.code));
}

std::wstring ErrorFields(const Failure& failure) {
  return L"Error=" + failure.text + CodeField(failure);
}

std::wstring PathField(const Failure& failure) {
  return failure.subject.empty() ? std::wstring() : L" Path=" + failure.subject;
}

}  // namespace kestrune
