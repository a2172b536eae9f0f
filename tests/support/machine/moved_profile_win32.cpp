#include "tests/support/machine/moved_profile_win32.h"
#include "tests/support/real_calls_win32.h"

#include <sddl.h>

#include <gtest/gtest.h>

#include "common/places/process_user_win32.h"

namespace kestrune {
namespace {

constexpr wchar_t kValue[] = L"ProfileImagePath";

std::wstring EntryName() {
  ProcessUser user;
  LocalMemory<wchar_t> sid;
  if (!user.Read(RealCalls(), GetCurrentProcess()) ||
      !ConvertSidToStringSidW(user.Sid(), sid.Put())) {
    return {};
  }
  return std::wstring(L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\") +
         sid.Get();
}

}  // namespace

ProfileListEntry::ProfileListEntry() {
  std::vector<BYTE> bytes(4096);
  auto size = static_cast<DWORD>(bytes.size());
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, EntryName().c_str(), 0, KEY_READ | KEY_SET_VALUE,
                    key_.Put()) == ERROR_SUCCESS &&
      RegQueryValueExW(key_.Get(), kValue, nullptr, &old_type_, bytes.data(), &size) ==
          ERROR_SUCCESS) {
    bytes.resize(size);
    old_bytes_ = bytes;
  }
}

ProfileListEntry::~ProfileListEntry() {
  if (Writable()) {
    EXPECT_EQ(RegSetValueExW(key_.Get(), kValue, 0, old_type_, old_bytes_.data(),
                             static_cast<DWORD>(old_bytes_.size())),
              ERROR_SUCCESS);
  }
}

void ProfileListEntry::Set(DWORD type, std::wstring_view text, DWORD extra_bytes) const {
  const std::wstring terminated(text);
  EXPECT_EQ(
      RegSetValueExW(key_.Get(), kValue, 0, type, reinterpret_cast<const BYTE*>(terminated.c_str()),
                     static_cast<DWORD>(text.size() * sizeof(wchar_t)) + extra_bytes),
      ERROR_SUCCESS);
}

void ProfileListEntry::Remove() const {
  EXPECT_EQ(RegDeleteValueW(key_.Get(), kValue), ERROR_SUCCESS);
}

}  // namespace kestrune
