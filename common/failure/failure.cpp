#include "common/failure/failure.h"

#include "common/text/text.h"

namespace kestrune {

std::wstring ErrorFields(const Failure& failure) {
  return L"Error=" + failure.text + L" GetLastError=" + Decimal(failure.code);
}

std::wstring PathField(const Failure& failure) {
  return failure.subject.empty() ? std::wstring() : L" Path=" + failure.subject;
}

}  // namespace kestrune
