#include "common/places/process_user_win32.h"

#include "common/system/owners_win32.h"

namespace kestrune {
namespace {

constexpr DWORD kLargestTokenUser = 65536;

}  // namespace

bool ProcessUser::Read(SystemCalls& calls, HANDLE process) {
  KernelHandle token;
  if (!calls.OpenToken(process, TOKEN_QUERY, token.Put())) {
    return false;
  }
  DWORD size = 0;
  calls.GetTokenData(token.Get(), TokenUser, nullptr, 0, &size);
  if (size == 0 || size > kLargestTokenUser) {
    return false;
  }
  buffer_.resize(size);
  return calls.GetTokenData(token.Get(), TokenUser, buffer_.data(), size, &size) != FALSE;
}

PSID ProcessUser::Sid() const {
  return reinterpret_cast<const TOKEN_USER*>(buffer_.data())->User.Sid;
}

}  // namespace kestrune
