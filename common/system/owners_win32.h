#pragma once

#include <windows.h>
#include <wincrypt.h>
#include <objbase.h>

#include <utility>

namespace kestrune {

/// Owns one Windows resource and releases it at the end of its scope. A policy names the raw type,
/// what "none" is for it, and how it is closed; the ownership is written once, here.
template <class Policy>
class Owned {
 public:
  using Raw = typename Policy::Raw;

  Owned() noexcept = default;
  explicit Owned(Raw raw) noexcept : raw_(raw) {}
  Owned(Owned&& other) noexcept : raw_(other.Release()) {}
  Owned& operator=(Owned&& other) noexcept {
    if (this != &other) {
      Reset(other.Release());
    }
    return *this;
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() { Reset(); }

  [[nodiscard]] Raw Get() const noexcept { return raw_; }
  explicit operator bool() const noexcept { return raw_ != Policy::None(); }

  /// Where a call writes a new resource; what was owned before is released first.
  [[nodiscard]] Raw* Put() noexcept {
    Reset();
    return &raw_;
  }

  /// Gives the resource away; the caller closes it.
  [[nodiscard]] Raw Release() noexcept { return std::exchange(raw_, Policy::None()); }

  /// Releases what is owned, and owns `raw` from now on.
  void Reset(Raw raw = Policy::None()) noexcept {
    const Raw old = std::exchange(raw_, raw);
    if (old != Policy::None()) {
      Policy::Close(old);
    }
  }

 private:
  Raw raw_ = Policy::None();
};

/// Files, mailslots and snapshots: "none" is INVALID_HANDLE_VALUE.
struct FileHandlePolicy {
  using Raw = HANDLE;
  static Raw None() noexcept { return INVALID_HANDLE_VALUE; }
  static void Close(Raw raw) noexcept { CloseHandle(raw); }
};
using FileHandle = Owned<FileHandlePolicy>;

/// Processes, threads, tokens and events: "none" is null.
struct KernelHandlePolicy {
  using Raw = HANDLE;
  static Raw None() noexcept { return nullptr; }
  static void Close(Raw raw) noexcept { CloseHandle(raw); }
};
using KernelHandle = Owned<KernelHandlePolicy>;

/// A directory enumeration.
struct FindHandlePolicy {
  using Raw = HANDLE;
  static Raw None() noexcept { return INVALID_HANDLE_VALUE; }
  static void Close(Raw raw) noexcept { FindClose(raw); }
};
using FindHandle = Owned<FindHandlePolicy>;

/// An opened registry key. The predefined roots are borrowed and never owned.
struct RegistryKeyPolicy {
  using Raw = HKEY;
  static Raw None() noexcept { return nullptr; }
  static void Close(Raw raw) noexcept { RegCloseKey(raw); }
};
using RegistryKey = Owned<RegistryKeyPolicy>;

/// Memory that Windows handed out to be freed with LocalFree.
template <class T>
struct LocalMemoryPolicy {
  using Raw = T*;
  static Raw None() noexcept { return nullptr; }
  static void Close(Raw raw) noexcept { LocalFree(raw); }
};
template <class T>
using LocalMemory = Owned<LocalMemoryPolicy<T>>;

/// A global memory block that the program still owns; release it once the clipboard accepted it.
struct GlobalMemoryPolicy {
  using Raw = HGLOBAL;
  static Raw None() noexcept { return nullptr; }
  static void Close(Raw raw) noexcept { GlobalFree(raw); }
};
using GlobalMemory = Owned<GlobalMemoryPolicy>;

/// Text that the shell handed out to be freed with CoTaskMemFree.
struct TaskTextPolicy {
  using Raw = wchar_t*;
  static Raw None() noexcept { return nullptr; }
  static void Close(Raw raw) noexcept { CoTaskMemFree(raw); }
};
using TaskText = Owned<TaskTextPolicy>;

struct CryptProviderPolicy {
  using Raw = HCRYPTPROV;
  static Raw None() noexcept { return 0; }
  static void Close(Raw raw) noexcept { CryptReleaseContext(raw, 0); }
};
using CryptProvider = Owned<CryptProviderPolicy>;

struct CryptHashPolicy {
  using Raw = HCRYPTHASH;
  static Raw None() noexcept { return 0; }
  static void Close(Raw raw) noexcept { CryptDestroyHash(raw); }
};
using CryptHash = Owned<CryptHashPolicy>;

/// Keeps the thread's last Windows error across a scope whose calls would overwrite it.
class LastErrorKeeper {
 public:
  LastErrorKeeper() noexcept : code_(GetLastError()) {}
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;
  ~LastErrorKeeper() { SetLastError(code_); }

 private:
  DWORD code_;
};

}  // namespace kestrune
