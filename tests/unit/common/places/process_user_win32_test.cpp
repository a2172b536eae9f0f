#include "common/places/process_user_win32.h"

#include <sddl.h>

#include <gtest/gtest.h>

#include <string>

#include "common/system/owners_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

TEST(ProcessUser, OfThisProcessHasAName) {
  ProcessUser user;
  ASSERT_TRUE(user.Read(RealCalls(), GetCurrentProcess()));
  ASSERT_TRUE(IsValidSid(user.Sid()));
  LocalMemory<wchar_t> text;
  ASSERT_TRUE(ConvertSidToStringSidW(user.Sid(), text.Put()));
  EXPECT_TRUE(std::wstring(text.Get()).starts_with(L"S-1-5-"));
}

TEST(ProcessUser, IsSameThroughAnyHandleOfProcess) {
  ProcessUser through_pseudo_handle;
  ProcessUser through_handle;
  const KernelHandle process(
      OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, GetCurrentProcessId()));
  ASSERT_TRUE(through_pseudo_handle.Read(RealCalls(), GetCurrentProcess()));
  ASSERT_TRUE(through_handle.Read(RealCalls(), process.Get()));
  EXPECT_TRUE(EqualSid(through_pseudo_handle.Sid(), through_handle.Sid()));
}

TEST(ProcessUser, StaysValidWhenItIsMoved) {
  ProcessUser first;
  ASSERT_TRUE(first.Read(RealCalls(), GetCurrentProcess()));
  const ProcessUser second = std::move(first);
  EXPECT_TRUE(IsValidSid(second.Sid()));
}

TEST(ProcessUser, NeedsAProcess) {
  ProcessUser user;
  EXPECT_FALSE(user.Read(RealCalls(), nullptr));
  const KernelHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  EXPECT_FALSE(user.Read(RealCalls(), event.Get()));
}

}  // namespace
}  // namespace kestrune
