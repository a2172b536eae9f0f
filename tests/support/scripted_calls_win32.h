#pragma once

#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// One call of SystemCalls as a test sees it.
struct SystemCall {
  /// Its name in SystemCalls.
  std::string_view name;
  /// The path in extended form (of an open file: the one by which it was opened; of a copy or a
  /// move: the source; of a replacement: the replaced file), or the registry key's path, or the
  /// value's name.
  std::wstring path{};
  /// The second path: the target of a copy or a move, the new name of a replaced file.
  std::wstring other{};

  // What some calls return, so that `after` can change it; null for all others.
  WIN32_FILE_ATTRIBUTE_DATA* attributes = nullptr;
  LARGE_INTEGER* size = nullptr;
  DWORD* type = nullptr;
  /// The bytes of a registry value, or those that were written.
  DWORD* bytes = nullptr;
};

/// An action at a call. If it returns a code, the call fails with it.
using CallHook = std::function<std::optional<DWORD>(const SystemCall& call)>;

/// Returns a hook for the calls of one name.
inline CallHook On(std::string_view name, CallHook act) {
  return [=](const SystemCall& call) { return call.name == name ? act(call) : std::nullopt; };
}

/// Returns a hook that makes the first calls of one name fail.
inline CallHook Failing(std::string_view name, DWORD code,
                        int times = std::numeric_limits<int>::max()) {
  return On(name, [=, left = times](const SystemCall&) mutable {
    return left-- > 0 ? std::optional(code) : std::nullopt;
  });
}

/// Makes the real calls, except where a test decides otherwise.
///
/// `before` runs ahead of every call; with a code from it the call is not made and fails. `after`
/// runs after every call that was made; with a code from it the call fails although it took effect.
/// Both may also do something, for instance what another program does at that moment. Waiting takes
/// no time: only the clock advances.
class ScriptedCalls : public SystemCalls {
 public:
  CallHook before, after;

  /// Whether flushing reaches the disk, which takes most of the time of a run.
  bool flushes = true;

  /// Returns the milliseconds that were waited so far.
  [[nodiscard]] ULONGLONG Waited() const { return waited_; }

  ULONGLONG GetTicks() override;
  void Wait(DWORD milliseconds) override;
  BOOL GetAttributes(const ExtendedPath& path, WIN32_FILE_ATTRIBUTE_DATA* data) override {
    SystemCall call{"GetAttributes", path.Text()};
    call.attributes = data;
    return Around(call, [&] { return SystemCalls::GetAttributes(path, data); });
  }
  BOOL SetAttributes(const ExtendedPath& path, DWORD attributes) override {
    return Around({"SetAttributes", path.Text()},
                  [&] { return SystemCalls::SetAttributes(path, attributes); });
  }
  HANDLE FindFirst(const ExtendedPath& pattern, WIN32_FIND_DATAW* entry) override {
    return Around(
        {"FindFirst", pattern.Text()}, [&] { return SystemCalls::FindFirst(pattern, entry); },
        INVALID_HANDLE_VALUE);
  }
  BOOL FindNext(HANDLE find, WIN32_FIND_DATAW* entry) override {
    return Around({"FindNext"}, [&] { return SystemCalls::FindNext(find, entry); });
  }
  HANDLE Create(const ExtendedPath& path, const FileOpening& opening) override {
    return Around(
        {"Create", path.Text()}, [&] { return Opened(path, SystemCalls::Create(path, opening)); },
        INVALID_HANDLE_VALUE);
  }
  BOOL Copy(const ExtendedPath& source, const ExtendedPath& target, BOOL fail_if_exists) override {
    return Around({"Copy", source.Text(), target.Text()},
                  [&] { return SystemCalls::Copy(source, target, fail_if_exists); });
  }
  BOOL Replace(const ExtendedPath& replaced, const ExtendedPath& replacement,
               const ExtendedPath& displaced) override {
    return Around({"Replace", replaced.Text(), displaced.Text()},
                  [&] { return SystemCalls::Replace(replaced, replacement, displaced); });
  }
  BOOL Move(const ExtendedPath& source, const ExtendedPath& target, DWORD flags) override {
    return Around({"Move", source.Text(), target.Text()},
                  [&] { return SystemCalls::Move(source, target, flags); });
  }
  BOOL Delete(const ExtendedPath& path) override {
    return Around({"Delete", path.Text()}, [&] { return SystemCalls::Delete(path); });
  }
  BOOL MakeDirectory(const ExtendedPath& path) override {
    return Around({"MakeDirectory", path.Text()}, [&] { return SystemCalls::MakeDirectory(path); });
  }
  BOOL DeleteDirectory(const ExtendedPath& path) override {
    return Around({"DeleteDirectory", path.Text()},
                  [&] { return SystemCalls::DeleteDirectory(path); });
  }
  BOOL GetSpace(const ExtendedPath& folder, ULARGE_INTEGER* available,
                ULARGE_INTEGER* total) override {
    return Around({"GetSpace", folder.Text()},
                  [&] { return SystemCalls::GetSpace(folder, available, total); });
  }
  BOOL GetClusterSize(const ExtendedPath& folder, DWORD* bytes) override {
    return Around({"GetClusterSize", folder.Text()},
                  [&] { return SystemCalls::GetClusterSize(folder, bytes); });
  }
  UINT GetDriveKind(const std::wstring& root) override {
    return Around(
        {"GetDriveKind", root}, [&] { return SystemCalls::GetDriveKind(root); },
        UINT{DRIVE_UNKNOWN});
  }
  DWORD GetTemporaryFolder(DWORD size, wchar_t* folder) override {
    return Around({"GetTemporaryFolder"},
                  [&] { return SystemCalls::GetTemporaryFolder(size, folder); });
  }
  UINT MakeTemporaryFile(const wchar_t* folder, const wchar_t* prefix, wchar_t* name) override {
    return Around({"MakeTemporaryFile"},
                  [&] { return SystemCalls::MakeTemporaryFile(folder, prefix, name); });
  }
  BOOL Close(HANDLE file) override {
    return Around({"Close", PathOf(file)}, [&] { return SystemCalls::Close(file); });
  }
  BOOL GetSize(HANDLE file, LARGE_INTEGER* size) override {
    SystemCall call{"GetSize", PathOf(file)};
    call.size = size;
    return Around(call, [&] { return SystemCalls::GetSize(file, size); });
  }
  BOOL GetInformation(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) override {
    return Around({"GetInformation", PathOf(file)},
                  [&] { return SystemCalls::GetInformation(file, information); });
  }
  BOOL GetTag(HANDLE file, FILE_ATTRIBUTE_TAG_INFO* tag) override {
    return Around({"GetTag", PathOf(file)}, [&] { return SystemCalls::GetTag(file, tag); });
  }
  DWORD GetFinalPath(HANDLE file, wchar_t* path, DWORD size, DWORD flags) override {
    return Around({"GetFinalPath", PathOf(file)},
                  [&] { return SystemCalls::GetFinalPath(file, path, size, flags); });
  }
  BOOL Read(HANDLE file, void* bytes, DWORD size, DWORD* read) override {
    return Around({"Read", PathOf(file)},
                  [&] { return SystemCalls::Read(file, bytes, size, read); });
  }
  BOOL Write(HANDLE file, const void* bytes, DWORD size, DWORD* written) override {
    SystemCall call{"Write", PathOf(file)};
    call.bytes = written;
    return Around(call, [&] { return SystemCalls::Write(file, bytes, size, written); });
  }
  BOOL SetPointer(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position,
                  DWORD method) override {
    return Around({"SetPointer", PathOf(file)},
                  [&] { return SystemCalls::SetPointer(file, distance, position, method); });
  }
  BOOL SetEnd(HANDLE file) override {
    return Around({"SetEnd", PathOf(file)}, [&] { return SystemCalls::SetEnd(file); });
  }
  BOOL Flush(HANDLE file) override {
    return Around({"Flush", PathOf(file)},
                  [&] { return flushes ? SystemCalls::Flush(file) : TRUE; });
  }
  BOOL GetWriteTime(HANDLE file, FILETIME* time) override {
    return Around({"GetWriteTime", PathOf(file)},
                  [&] { return SystemCalls::GetWriteTime(file, time); });
  }
  BOOL SetWriteTime(HANDLE file, const FILETIME& time) override {
    return Around({"SetWriteTime", PathOf(file)},
                  [&] { return SystemCalls::SetWriteTime(file, time); });
  }
  BOOL GetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts, void* descriptor,
                   DWORD size, DWORD* needed) override {
    return Around({"GetSecurity", path.Text()},
                  [&] { return SystemCalls::GetSecurity(path, parts, descriptor, size, needed); });
  }
  BOOL SetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts,
                   void* descriptor) override {
    return Around({"SetSecurity", path.Text()},
                  [&] { return SystemCalls::SetSecurity(path, parts, descriptor); });
  }
  BOOL InitializeDescriptor(SECURITY_DESCRIPTOR* descriptor) override {
    return Around({"InitializeDescriptor"},
                  [&] { return SystemCalls::InitializeDescriptor(descriptor); });
  }
  BOOL GetOwner(void* descriptor, PSID* owner) override {
    return Around({"GetOwner"}, [&] { return SystemCalls::GetOwner(descriptor, owner); });
  }
  BOOL GetGroup(void* descriptor, PSID* group) override {
    return Around({"GetGroup"}, [&] { return SystemCalls::GetGroup(descriptor, group); });
  }
  BOOL SetOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner) override {
    return Around({"SetOwner"}, [&] { return SystemCalls::SetOwner(descriptor, owner); });
  }
  BOOL SetGroup(SECURITY_DESCRIPTOR* descriptor, PSID group) override {
    return Around({"SetGroup"}, [&] { return SystemCalls::SetGroup(descriptor, group); });
  }
  BOOL AcquireProvider(HCRYPTPROV* provider) override {
    return Around({"AcquireProvider"}, [&] { return SystemCalls::AcquireProvider(provider); });
  }
  BOOL CreateHash(HCRYPTPROV provider, HCRYPTHASH* hash) override {
    return Around({"CreateHash"}, [&] { return SystemCalls::CreateHash(provider, hash); });
  }
  BOOL HashData(HCRYPTHASH hash, const void* bytes, DWORD size) override {
    return Around({"HashData"}, [&] { return SystemCalls::HashData(hash, bytes, size); });
  }
  BOOL GetHashValue(HCRYPTHASH hash, BYTE* value, DWORD* size) override {
    return Around({"GetHashValue"}, [&] { return SystemCalls::GetHashValue(hash, value, size); });
  }
  DWORD ReadProfileText(const wchar_t* section, const wchar_t* key, const wchar_t* fallback,
                        wchar_t* text, DWORD size, const std::wstring& path) override {
    return Around({"ReadProfileText", path}, [&] {
      return SystemCalls::ReadProfileText(section, key, fallback, text, size, path);
    });
  }
  UINT ReadProfileNumber(const wchar_t* section, const wchar_t* key, INT fallback,
                         const std::wstring& path) override {
    return Around({"ReadProfileNumber", path},
                  [&] { return SystemCalls::ReadProfileNumber(section, key, fallback, path); });
  }
  LSTATUS OpenKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key) override {
    return AroundStatus({"OpenKey", path},
                        [&] { return SystemCalls::OpenKey(parent, path, access, key); });
  }
  LSTATUS CreateKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key) override {
    return AroundStatus({"CreateKey", path},
                        [&] { return SystemCalls::CreateKey(parent, path, access, key); });
  }
  LSTATUS EnumerateKey(HKEY key, DWORD index, wchar_t* name, DWORD* length) override {
    return AroundStatus({"EnumerateKey"},
                        [&] { return SystemCalls::EnumerateKey(key, index, name, length); });
  }
  LSTATUS EnumerateValue(HKEY key, DWORD index, wchar_t* name, DWORD* length, DWORD* type,
                         DWORD* size) override {
    return AroundStatus({"EnumerateValue"}, [&] {
      return SystemCalls::EnumerateValue(key, index, name, length, type, size);
    });
  }
  LSTATUS QueryValue(HKEY key, const std::wstring& name, DWORD* type, void* data,
                     DWORD* size) override {
    SystemCall call{"QueryValue", name};
    call.type = type;
    call.bytes = size;
    return AroundStatus(call, [&] { return SystemCalls::QueryValue(key, name, type, data, size); });
  }
  LSTATUS SetValue(HKEY key, const std::wstring& name, DWORD type, const void* data,
                   DWORD size) override {
    return AroundStatus({"SetValue", name},
                        [&] { return SystemCalls::SetValue(key, name, type, data, size); });
  }
  LSTATUS DeleteValue(HKEY key, const std::wstring& name) override {
    return AroundStatus({"DeleteValue", name}, [&] { return SystemCalls::DeleteValue(key, name); });
  }
  HRESULT GetKnownFolder(const KNOWNFOLDERID& folder, DWORD flags, wchar_t** path) override {
    return AroundResult({"GetKnownFolder"},
                        [&] { return SystemCalls::GetKnownFolder(folder, flags, path); });
  }
  HRESULT GetShellFolder(int folder, wchar_t* path) override {
    return AroundResult({"GetShellFolder"},
                        [&] { return SystemCalls::GetShellFolder(folder, path); });
  }
  DWORD ExpandText(const std::wstring& text, wchar_t* expanded, DWORD size) override {
    return Around({"ExpandText", text},
                  [&] { return SystemCalls::ExpandText(text, expanded, size); });
  }
  DWORD GetProgramPath(wchar_t* path, DWORD size) override {
    return Around({"GetProgramPath"}, [&] { return SystemCalls::GetProgramPath(path, size); });
  }
  BOOL GetUser(wchar_t* name, DWORD* size) override {
    return Around({"GetUser"}, [&] { return SystemCalls::GetUser(name, size); });
  }
  HANDLE SnapshotProcesses() override {
    return Around(
        {"SnapshotProcesses"}, [&] { return SystemCalls::SnapshotProcesses(); },
        INVALID_HANDLE_VALUE);
  }
  BOOL FirstProcess(HANDLE snapshot, PROCESSENTRY32W* entry) override {
    return Around({"FirstProcess"}, [&] { return SystemCalls::FirstProcess(snapshot, entry); });
  }
  BOOL NextProcess(HANDLE snapshot, PROCESSENTRY32W* entry) override {
    return Around({"NextProcess"}, [&] { return SystemCalls::NextProcess(snapshot, entry); });
  }
  HANDLE OpenProcess(DWORD access, DWORD process_id) override {
    return Around({"OpenProcess"}, [&] { return SystemCalls::OpenProcess(access, process_id); });
  }
  DWORD GetId(HANDLE process) override {
    return Around({"GetId"}, [&] { return SystemCalls::GetId(process); });
  }
  BOOL GetSession(DWORD process_id, DWORD* session) override {
    return Around({"GetSession"}, [&] { return SystemCalls::GetSession(process_id, session); });
  }
  DWORD WaitForEnd(HANDLE process, DWORD milliseconds) override {
    return Around(
        {"WaitForEnd"}, [&] { return SystemCalls::WaitForEnd(process, milliseconds); },
        DWORD{WAIT_FAILED});
  }
  BOOL GetCreationTime(HANDLE process, FILETIME* time) override {
    return Around({"GetCreationTime"}, [&] { return SystemCalls::GetCreationTime(process, time); });
  }
  BOOL GetExitCode(HANDLE process, DWORD* code) override {
    return Around({"GetExitCode"}, [&] { return SystemCalls::GetExitCode(process, code); });
  }
  BOOL GetImagePath(HANDLE process, wchar_t* path, DWORD* length) override {
    return Around({"GetImagePath"},
                  [&] { return SystemCalls::GetImagePath(process, path, length); });
  }
  BOOL OpenToken(HANDLE process, DWORD access, HANDLE* token) override {
    return Around({"OpenToken"}, [&] { return SystemCalls::OpenToken(process, access, token); });
  }
  BOOL GetTokenData(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* data, DWORD size,
                    DWORD* needed) override {
    return Around({"GetTokenData"},
                  [&] { return SystemCalls::GetTokenData(token, kind, data, size, needed); });
  }

 private:
  template <class Make, class Fail>
  auto Attempt(const SystemCall& call, Make make, Fail fail) {
    if (const std::optional<DWORD> code = before ? before(call) : std::nullopt) {
      return fail(*code);
    }
    const auto result = make();
    const DWORD last_error = GetLastError();
    if (const std::optional<DWORD> code = after ? after(call) : std::nullopt) {
      Discard(call, result);
      return fail(*code);
    }
    SetLastError(last_error);
    return result;
  }
  /// Returns `failure` and sets the last error when the call fails.
  template <class Make, class Result = std::invoke_result_t<Make>>
  Result Around(const SystemCall& call, Make make, Result failure = {}) {
    return Attempt(call, make, [=](DWORD code) -> Result {
      SetLastError(code);
      return failure;
    });
  }
  /// Returns the code when the call fails.
  template <class Make>
  LSTATUS AroundStatus(const SystemCall& call, Make make) {
    return Attempt(call, make, [](DWORD code) { return static_cast<LSTATUS>(code); });
  }
  template <class Make>
  HRESULT AroundResult(const SystemCall& call, Make make) {
    return Attempt(call, make, [](DWORD code) -> HRESULT { return HRESULT_FROM_WIN32(code); });
  }
  /// Closes a handle that is not returned to the caller.
  static void Discard(const SystemCall& call, HANDLE handle);
  template <class Result>
  static void Discard(const SystemCall&, Result) {}

  HANDLE Opened(const ExtendedPath& path, HANDLE file);
  [[nodiscard]] std::wstring PathOf(HANDLE file) const;

  std::map<HANDLE, std::wstring> paths_;
  ULONGLONG waited_ = 0;
};

}  // namespace kestrune
