#pragma once

#include <string>
#include <string_view>
#include <type_traits>

#include "common/owners_win32.h"
#include "registration/transaction/system_calls_win32.h"

namespace altium_registration {

/// The real calls, each announced before and after it is made, by its name in SystemCalls. Whoever
/// observes may answer false: before, then the call is not made; after, then it has taken effect.
/// In both cases its caller sees ERROR_ACCESS_DENIED.
class ObservedCalls : public SystemCalls {
 public:
  BOOL GetAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA* data) override {
    return Around("GetAttributes", FALSE, [&] { return SystemCalls::GetAttributes(path, data); });
  }
  HANDLE Create(const std::wstring& path, DWORD access, DWORD sharing,
                SECURITY_ATTRIBUTES* security, DWORD disposition) override {
    return Around("Create", INVALID_HANDLE_VALUE, [&] {
      return SystemCalls::Create(path, access, sharing, security, disposition);
    });
  }
  BOOL Write(HANDLE file, const void* bytes, DWORD size, DWORD* written) override {
    return Around("Write", FALSE, [&] { return SystemCalls::Write(file, bytes, size, written); });
  }
  BOOL Flush(HANDLE file) override {
    return Around("Flush", FALSE, [&] { return SystemCalls::Flush(file); });
  }
  BOOL CopyNew(const std::wstring& source, const std::wstring& target) override {
    return Around("CopyNew", FALSE, [&] { return SystemCalls::CopyNew(source, target); });
  }
  BOOL MakeDirectory(const std::wstring& path) override {
    return Around("MakeDirectory", FALSE, [&] { return SystemCalls::MakeDirectory(path); });
  }
  BOOL Replace(const std::wstring& replaced, const std::wstring& replacement,
               const std::wstring& displaced) override {
    return Around("Replace", FALSE,
                  [&] { return SystemCalls::Replace(replaced, replacement, displaced); });
  }
  BOOL Move(const std::wstring& source, const std::wstring& target, DWORD flags) override {
    return Around("Move", FALSE, [&] { return SystemCalls::Move(source, target, flags); });
  }
  BOOL Delete(const std::wstring& path) override {
    return Around("Delete", FALSE, [&] { return SystemCalls::Delete(path); });
  }
  BOOL GetSecurity(const std::wstring& path, SECURITY_INFORMATION parts, void* descriptor,
                   DWORD size, DWORD* needed) override {
    return Around("GetSecurity", FALSE,
                  [&] { return SystemCalls::GetSecurity(path, parts, descriptor, size, needed); });
  }
  BOOL SetSecurity(const std::wstring& path, SECURITY_INFORMATION parts,
                   void* descriptor) override {
    return Around("SetSecurity", FALSE,
                  [&] { return SystemCalls::SetSecurity(path, parts, descriptor); });
  }
  BOOL InitializeDescriptor(SECURITY_DESCRIPTOR* descriptor) override {
    return Around("InitializeDescriptor", FALSE,
                  [&] { return SystemCalls::InitializeDescriptor(descriptor); });
  }
  BOOL GetOwner(void* descriptor, PSID* owner) override {
    return Around("GetOwner", FALSE, [&] { return SystemCalls::GetOwner(descriptor, owner); });
  }
  BOOL GetGroup(void* descriptor, PSID* group) override {
    return Around("GetGroup", FALSE, [&] { return SystemCalls::GetGroup(descriptor, group); });
  }
  BOOL SetOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner) override {
    return Around("SetOwner", FALSE, [&] { return SystemCalls::SetOwner(descriptor, owner); });
  }
  BOOL SetGroup(SECURITY_DESCRIPTOR* descriptor, PSID group) override {
    return Around("SetGroup", FALSE, [&] { return SystemCalls::SetGroup(descriptor, group); });
  }
  LSTATUS CreateKey(const std::wstring& path, HKEY* key) override {
    return Around("CreateKey", LSTATUS{ERROR_ACCESS_DENIED},
                  [&] { return SystemCalls::CreateKey(path, key); });
  }
  LSTATUS SetValue(HKEY key, const std::wstring& name, DWORD type, const void* data,
                   DWORD size) override {
    return Around("SetValue", LSTATUS{ERROR_ACCESS_DENIED},
                  [&] { return SystemCalls::SetValue(key, name, type, data, size); });
  }
  LSTATUS DeleteValue(HKEY key, const std::wstring& name) override {
    return Around("DeleteValue", LSTATUS{ERROR_ACCESS_DENIED},
                  [&] { return SystemCalls::DeleteValue(key, name); });
  }

 protected:
  virtual bool Before(std::string_view call) = 0;
  virtual bool After(std::string_view call) = 0;

 private:
  template <class Answer, class Call>
  Answer Around(std::string_view name, Answer refusal, Call call) {
    if (!Before(name)) {
      SetLastError(ERROR_ACCESS_DENIED);
      return refusal;
    }
    const Answer answer = call();
    const DWORD code = GetLastError();
    const bool is_told = After(name);
    if constexpr (std::is_same_v<Answer, HANDLE>) {
      if (!is_told) {
        kestrune::FileHandle(answer).Reset();
      }
    }
    SetLastError(is_told ? code : DWORD{ERROR_ACCESS_DENIED});
    return is_told ? answer : refusal;
  }
};

}  // namespace altium_registration
