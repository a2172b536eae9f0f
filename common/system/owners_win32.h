#pragma once

#include <windows.h>
#include <wincrypt.h>
#include <objbase.h>

#include <utility>

namespace kestrune {

/// Owns one Windows resource and releases it at the end of its scope. A policy defines the raw
/// type, its value for "none", and how it is closed.
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

  /// Closes the owned resource and returns the address at which a call stores a new one.
  [[nodiscard]] Raw* Put() noexcept {
    Reset();
    return &raw_;
  }

  /// Returns the resource and gives up its ownership; the caller closes it.
  [[nodiscard]] Raw Release() noexcept { return std::exchange(raw_, Policy::None()); }

  /// Closes the owned resource and takes ownership of `raw`.
  void Reset(Raw raw = Policy::None()) noexcept {
    const Raw old = std::exchange(raw_, raw);
    if (old != Policy::None()) {
      Policy::Close(old);
    }
  }

 private:
  Raw raw_ = Policy::None();
};

/// Closes files, mailslots and snapshots; "none" is INVALID_HANDLE_VALUE.
struct FileHandlePolicy {
  using Raw = HANDLE;
  static Raw None() noexcept { return INVALID_HANDLE_VALUE; }
  static void Close(Raw raw) noexcept { CloseHandle(raw); }
};
using FileHandle = Owned<FileHandlePolicy>;

/// Closes processes, threads, tokens and events; "none" is null.
struct KernelHandlePolicy {
  using Raw = HANDLE;
  static Raw None() noexcept { return nullptr; }
  static void Close(Raw raw) noexcept { CloseHandle(raw); }
};
using KernelHandle = Owned<KernelHandlePolicy>;

/// Closes a directory enumeration.
struct FindHandlePolicy {
  using Raw = HANDLE;
  static Raw None() noexcept { return INVALID_HANDLE_VALUE; }
  static void Close(Raw raw) noexcept { FindClose(raw); }
};
using FindHandle = Owned<FindHandlePolicy>;

/// Closes an opened registry key. Predefined roots are never owned.
struct RegistryKeyPolicy {
  using Raw = HKEY;
  static Raw None() noexcept { return nullptr; }
  static void Close(Raw raw) noexcept { RegCloseKey(raw); }
};
using RegistryKey = Owned<RegistryKeyPolicy>;

/// Frees memory that Windows allocated, with LocalFree.
template <class T>
struct LocalMemoryPolicy {
  using Raw = T*;
  static Raw None() noexcept { return nullptr; }
  static void Close(Raw raw) noexcept { LocalFree(raw); }
};
template <class T>
using LocalMemory = Owned<LocalMemoryPolicy<T>>;

/// Frees a global memory block. Release the block once the clipboard has accepted it.
struct GlobalMemoryPolicy {
  using Raw = HGLOBAL;
  static Raw None() noexcept { return nullptr; }
  static void Close(Raw raw) noexcept { GlobalFree(raw); }
};
using GlobalMemory = Owned<GlobalMemoryPolicy>;

/// Frees text that the shell allocated, with CoTaskMemFree.
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

/// Restores the thread's last error at the end of a scope whose calls may overwrite it.
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
