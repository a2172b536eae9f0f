#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/system/system_calls_win32.h"

namespace kestrune {

/// One call of SystemCalls as a test sees it.
struct SystemCall {
  /// Its name in SystemCalls.
  std::string_view name;
  /// The path that it is about in extended form (of an open file: the one that it was opened by; of
  /// a copy or a move: the source; of a replacement: the replaced file), or the registry key's
  /// path, or the value's name.
  std::wstring path{};
  /// The second path: the target of a copy or a move, the name of a replaced file.
  std::wstring other{};
};

/// The real calls, except where a test says otherwise.
///
/// `before` is asked ahead of every call: with a code from it the call is not made, and its caller
/// sees it fail with the code. `after` is asked behind every call that was made: with a code from
/// it the call took effect, and its caller sees it fail all the same. Both may also do something,
/// for instance what another program does at that moment. Waiting takes no time: the clock moves on
/// by itself.
///
/// The other hooks each take over one call: a hook that answers true has done so, and `answer`
/// (with the last error that it set) is what the caller sees.
class ScriptedCalls : public SystemCalls {
 public:
  std::function<std::optional<DWORD>(const SystemCall&call)> before, after;

  using PathHook = std::function<bool(const std::wstring& path, BOOL& answer)>;
  PathHook on_create, on_copy, on_make_directory, on_replace, on_move, on_delete;
  /// Called with the path; a descriptor given here is answered instead of the file's own.
  std::function<bool(const std::wstring& path, std::vector<std::byte>& descriptor)> on_get_security;
  std::function<bool(BOOL&answer)> on_write, on_flush;
  /// Called after the real look at a file; may change what it answered.
  std::function<void(WIN32_FILE_ATTRIBUTE_DATA& data, BOOL& answer)> after_get_attributes;
  std::function<bool(LARGE_INTEGER& size, BOOL& answer)> on_size;
  /// Called after the real reading of a value; may change what it answered.
  std::function<void(LSTATUS& answer, DWORD& type, DWORD& size)> after_query;

  /// Whether flushing reaches the disk, which takes most of the time of a run.
  bool flushes = true;

  /// The milliseconds that were waited so far.
  [[nodiscard]] ULONGLONG Waited() const { return waited_; }

  BOOL GetAttributes(const ExtendedPath& path, WIN32_FILE_ATTRIBUTE_DATA* data) override;
  BOOL SetAttributes(const ExtendedPath& path, DWORD attributes) override;
  HANDLE FindFirst(const ExtendedPath& pattern, WIN32_FIND_DATAW* entry) override;
  BOOL FindNext(HANDLE find, WIN32_FIND_DATAW* entry) override;
  HANDLE Create(const ExtendedPath& path, const FileOpening& opening) override;
  BOOL Copy(const ExtendedPath& source, const ExtendedPath& target, BOOL fail_if_exists) override;
  BOOL Replace(const ExtendedPath& replaced, const ExtendedPath& replacement,
               const ExtendedPath& displaced) override;
  BOOL Move(const ExtendedPath& source, const ExtendedPath& target, DWORD flags) override;
  BOOL Delete(const ExtendedPath& path) override;
  BOOL MakeDirectory(const ExtendedPath& path) override;
  BOOL DeleteDirectory(const ExtendedPath& path) override;
  BOOL GetSpace(const ExtendedPath& folder, ULARGE_INTEGER* available,
                ULARGE_INTEGER* total) override;
  BOOL GetClusterSize(const ExtendedPath& folder, DWORD* bytes) override;
  UINT GetDriveKind(const std::wstring& root) override;
  DWORD GetTemporaryFolder(DWORD size, wchar_t* folder) override;
  UINT MakeTemporaryFile(const wchar_t* folder, const wchar_t* prefix, wchar_t* name) override;
  BOOL Close(HANDLE file) override;
  BOOL GetSize(HANDLE file, LARGE_INTEGER* size) override;
  BOOL GetInformation(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) override;
  BOOL GetTag(HANDLE file, FILE_ATTRIBUTE_TAG_INFO* tag) override;
  DWORD GetFinalPath(HANDLE file, wchar_t* path, DWORD size, DWORD flags) override;
  BOOL Read(HANDLE file, void* bytes, DWORD size, DWORD* read) override;
  BOOL Write(HANDLE file, const void* bytes, DWORD size, DWORD* written) override;
  BOOL SetPointer(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position,
                  DWORD method) override;
  BOOL SetEnd(HANDLE file) override;
  BOOL Flush(HANDLE file) override;
  BOOL GetWriteTime(HANDLE file, FILETIME* time) override;
  BOOL SetWriteTime(HANDLE file, const FILETIME& time) override;
  BOOL GetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts, void* descriptor,
                   DWORD size, DWORD* needed) override;
  BOOL SetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts, void* descriptor) override;
  BOOL InitializeDescriptor(SECURITY_DESCRIPTOR* descriptor) override;
  BOOL GetOwner(void* descriptor, PSID* owner) override;
  BOOL GetGroup(void* descriptor, PSID* group) override;
  BOOL SetOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner) override;
  BOOL SetGroup(SECURITY_DESCRIPTOR* descriptor, PSID group) override;
  BOOL AcquireProvider(HCRYPTPROV* provider) override;
  BOOL CreateHash(HCRYPTPROV provider, HCRYPTHASH* hash) override;
  BOOL HashData(HCRYPTHASH hash, const void* bytes, DWORD size) override;
  BOOL GetHashValue(HCRYPTHASH hash, BYTE* value, DWORD* size) override;
  DWORD ReadProfileText(const wchar_t* section, const wchar_t* key, const wchar_t* fallback,
                        wchar_t* text, DWORD size, const std::wstring& path) override;
  UINT ReadProfileNumber(const wchar_t* section, const wchar_t* key, INT fallback,
                         const std::wstring& path) override;
  LSTATUS OpenKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key) override;
  LSTATUS CreateKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key) override;
  LSTATUS EnumerateKey(HKEY key, DWORD index, wchar_t* name, DWORD* length) override;
  LSTATUS EnumerateValue(HKEY key, DWORD index, wchar_t* name, DWORD* length, DWORD* type,
                         DWORD* size) override;
  LSTATUS QueryValue(HKEY key, const std::wstring& name, DWORD* type, void* data,
                     DWORD* size) override;
  LSTATUS SetValue(HKEY key, const std::wstring& name, DWORD type, const void* data,
                   DWORD size) override;
  LSTATUS DeleteValue(HKEY key, const std::wstring& name) override;
  HRESULT GetKnownFolder(const KNOWNFOLDERID& folder, DWORD flags, wchar_t** path) override;
  HRESULT GetShellFolder(int folder, wchar_t* path) override;
  DWORD ExpandText(const std::wstring& text, wchar_t* expanded, DWORD size) override;
  DWORD GetProgramPath(wchar_t* path, DWORD size) override;
  BOOL GetUser(wchar_t* name, DWORD* size) override;
  HANDLE SnapshotProcesses() override;
  BOOL FirstProcess(HANDLE snapshot, PROCESSENTRY32W* entry) override;
  BOOL NextProcess(HANDLE snapshot, PROCESSENTRY32W* entry) override;
  HANDLE OpenProcess(DWORD access, DWORD process_id) override;
  DWORD GetId(HANDLE process) override;
  BOOL GetSession(DWORD process_id, DWORD* session) override;
  DWORD WaitForEnd(HANDLE process, DWORD milliseconds) override;
  BOOL GetCreationTime(HANDLE process, FILETIME* time) override;
  BOOL GetExitCode(HANDLE process, DWORD* code) override;
  BOOL GetImagePath(HANDLE process, wchar_t* path, DWORD* length) override;
  BOOL OpenToken(HANDLE process, DWORD access, HANDLE* token) override;
  BOOL GetTokenData(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* data, DWORD size,
                    DWORD* needed) override;
  ULONGLONG GetTicks() override;
  void Wait(DWORD milliseconds) override;

 private:
  template <class Answer, class Call>
  Answer Around(const SystemCall& call, Answer refusal, Call make) {
    if (const std::optional<DWORD> code = before ? before(call) : std::nullopt) {
      SetLastError(*code);
      return refusal;
    }
    const Answer answer = make();
    const DWORD code_of_call = GetLastError();
    const std::optional<DWORD> code = after ? after(call) : std::nullopt;
    if (code) {
      Close(call, answer);
    }
    SetLastError(code.value_or(code_of_call));
    return code ? refusal : answer;
  }
  template <class Call>
  LSTATUS AroundStatus(const SystemCall& call, Call make) {
    if (const std::optional<DWORD> code = before ? before(call) : std::nullopt) {
      return static_cast<LSTATUS>(*code);
    }
    const LSTATUS answer = make();
    const std::optional<DWORD> code = after ? after(call) : std::nullopt;
    return code ? static_cast<LSTATUS>(*code) : answer;
  }
  template <class Call>
  HRESULT AroundResult(const SystemCall& call, Call make) {
    if (const std::optional<DWORD> code = before ? before(call) : std::nullopt) {
      return HRESULT_FROM_WIN32(*code);
    }
    const HRESULT answer = make();
    const std::optional<DWORD> code = after ? after(call) : std::nullopt;
    return code ? HRESULT_FROM_WIN32(*code) : answer;
  }
  /// What a call opened, and its caller never sees, is closed again.
  static void Close(const SystemCall& call, HANDLE handle);
  template <class Answer>
  static void Close(const SystemCall&, Answer) {}

  HANDLE Opened(const ExtendedPath& path, HANDLE file);
  [[nodiscard]] std::wstring PathOf(HANDLE file) const;

  std::map<HANDLE, std::wstring> paths_;
  ULONGLONG waited_ = 0;
};

}  // namespace kestrune
