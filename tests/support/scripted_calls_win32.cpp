#include "tests/support/scripted_calls_win32.h"

#include <algorithm>

#include "common/system/owners_win32.h"

namespace kestrune {

void ScriptedCalls::Close(const SystemCall& call, HANDLE handle) {
  if (call.name == "FindFirst") {
    FindHandle(handle).Reset();
  } else {
    FileHandle(handle).Reset();
  }
}

HANDLE ScriptedCalls::Opened(const ExtendedPath& path, HANDLE file) {
  if (file != INVALID_HANDLE_VALUE) {
    paths_[file] = path.Text();
  }
  return file;
}

std::wstring ScriptedCalls::PathOf(HANDLE file) const {
  const auto found = paths_.find(file);
  return found == paths_.end() ? std::wstring() : found->second;
}

ULONGLONG ScriptedCalls::GetTicks() {
  return SystemCalls::GetTicks() + waited_;
}

void ScriptedCalls::Wait(DWORD milliseconds) {
  waited_ += milliseconds;
  if (before) {
    static_cast<void>(before({"Wait", {}}));
  }
}

BOOL ScriptedCalls::GetAttributes(const ExtendedPath& path, WIN32_FILE_ATTRIBUTE_DATA* data) {
  return Around({"GetAttributes", path.Text()}, FALSE, [&] {
    BOOL answer = SystemCalls::GetAttributes(path, data);
    if (after_get_attributes) {
      after_get_attributes(*data, answer);
    }
    return answer;
  });
}

BOOL ScriptedCalls::GetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts,
                                void* descriptor, DWORD size, DWORD* needed) {
  return Around({"GetSecurity", path.Text()}, FALSE, [&] {
    std::vector<std::byte> scripted;
    if (!on_get_security || !on_get_security(path.Text(), scripted)) {
      return SystemCalls::GetSecurity(path, parts, descriptor, size, needed);
    }
    if (scripted.empty()) {
      return FALSE;
    }
    *needed = static_cast<DWORD>(scripted.size());
    if (size < scripted.size()) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    std::ranges::copy(scripted, static_cast<std::byte*>(descriptor));
    return TRUE;
  });
}

LSTATUS ScriptedCalls::QueryValue(HKEY key, const std::wstring& name, DWORD* type, void* data,
                                  DWORD* size) {
  return AroundStatus({"QueryValue", name}, [&] {
    LSTATUS answer = SystemCalls::QueryValue(key, name, type, data, size);
    if (after_query) {
      after_query(answer, *type, *size);
    }
    return answer;
  });
}

BOOL ScriptedCalls::SetAttributes(const ExtendedPath& path, DWORD attributes) {
  return Around({"SetAttributes", path.Text()}, FALSE,
                [&] { return SystemCalls::SetAttributes(path, attributes); });
}

HANDLE ScriptedCalls::FindFirst(const ExtendedPath& pattern, WIN32_FIND_DATAW* entry) {
  return Around({"FindFirst", pattern.Text()}, INVALID_HANDLE_VALUE,
                [&] { return SystemCalls::FindFirst(pattern, entry); });
}

BOOL ScriptedCalls::FindNext(HANDLE find, WIN32_FIND_DATAW* entry) {
  return Around({"FindNext"}, FALSE, [&] { return SystemCalls::FindNext(find, entry); });
}

HANDLE ScriptedCalls::Create(const ExtendedPath& path, const FileOpening& opening) {
  return Around({"Create", path.Text()}, INVALID_HANDLE_VALUE, [&] {
    BOOL answer = FALSE;
    return on_create && on_create(path.Text(), answer)
               ? INVALID_HANDLE_VALUE
               : Opened(path, SystemCalls::Create(path, opening));
  });
}

BOOL ScriptedCalls::Copy(const ExtendedPath& source, const ExtendedPath& target,
                         BOOL fail_if_exists) {
  return Around({"Copy", source.Text(), target.Text()}, FALSE, [&] {
    BOOL answer = FALSE;
    return on_copy && on_copy(target.Text(), answer)
               ? answer
               : SystemCalls::Copy(source, target, fail_if_exists);
  });
}

BOOL ScriptedCalls::Replace(const ExtendedPath& replaced, const ExtendedPath& replacement,
                            const ExtendedPath& displaced) {
  return Around({"Replace", replaced.Text(), displaced.Text()}, FALSE, [&] {
    BOOL answer = FALSE;
    return on_replace && on_replace(displaced.Text(), answer)
               ? answer
               : SystemCalls::Replace(replaced, replacement, displaced);
  });
}

BOOL ScriptedCalls::Move(const ExtendedPath& source, const ExtendedPath& target, DWORD flags) {
  return Around({"Move", source.Text(), target.Text()}, FALSE, [&] {
    BOOL answer = FALSE;
    return on_move && on_move(source.Text(), answer) ? answer
                                                     : SystemCalls::Move(source, target, flags);
  });
}

BOOL ScriptedCalls::Delete(const ExtendedPath& path) {
  return Around({"Delete", path.Text()}, FALSE, [&] {
    BOOL answer = FALSE;
    return on_delete && on_delete(path.Text(), answer) ? answer : SystemCalls::Delete(path);
  });
}

BOOL ScriptedCalls::MakeDirectory(const ExtendedPath& path) {
  return Around({"MakeDirectory", path.Text()}, FALSE, [&] {
    BOOL answer = FALSE;
    return on_make_directory && on_make_directory(path.Text(), answer)
               ? answer
               : SystemCalls::MakeDirectory(path);
  });
}

BOOL ScriptedCalls::DeleteDirectory(const ExtendedPath& path) {
  return Around({"DeleteDirectory", path.Text()}, FALSE,
                [&] { return SystemCalls::DeleteDirectory(path); });
}

BOOL ScriptedCalls::GetSpace(const ExtendedPath& folder, ULARGE_INTEGER* available,
                             ULARGE_INTEGER* total) {
  return Around({"GetSpace", folder.Text()}, FALSE,
                [&] { return SystemCalls::GetSpace(folder, available, total); });
}

BOOL ScriptedCalls::GetClusterSize(const ExtendedPath& folder, DWORD* bytes) {
  return Around({"GetClusterSize", folder.Text()}, FALSE,
                [&] { return SystemCalls::GetClusterSize(folder, bytes); });
}

UINT ScriptedCalls::GetDriveKind(const std::wstring& root) {
  return Around({"GetDriveKind", root}, UINT{DRIVE_UNKNOWN},
                [&] { return SystemCalls::GetDriveKind(root); });
}

DWORD ScriptedCalls::GetTemporaryFolder(DWORD size, wchar_t* folder) {
  return Around({"GetTemporaryFolder"}, DWORD{0},
                [&] { return SystemCalls::GetTemporaryFolder(size, folder); });
}

UINT ScriptedCalls::MakeTemporaryFile(const wchar_t* folder, const wchar_t* prefix, wchar_t* name) {
  return Around({"MakeTemporaryFile"}, UINT{0},
                [&] { return SystemCalls::MakeTemporaryFile(folder, prefix, name); });
}

BOOL ScriptedCalls::Close(HANDLE file) {
  return Around({"Close", PathOf(file)}, FALSE, [&] { return SystemCalls::Close(file); });
}

BOOL ScriptedCalls::GetSize(HANDLE file, LARGE_INTEGER* size) {
  return Around({"GetSize", PathOf(file)}, FALSE, [&] {
    BOOL answer = FALSE;
    return on_size && on_size(*size, answer) ? answer : SystemCalls::GetSize(file, size);
  });
}

BOOL ScriptedCalls::GetInformation(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
  return Around({"GetInformation", PathOf(file)}, FALSE,
                [&] { return SystemCalls::GetInformation(file, information); });
}

BOOL ScriptedCalls::GetTag(HANDLE file, FILE_ATTRIBUTE_TAG_INFO* tag) {
  return Around({"GetTag", PathOf(file)}, FALSE, [&] { return SystemCalls::GetTag(file, tag); });
}

DWORD ScriptedCalls::GetFinalPath(HANDLE file, wchar_t* path, DWORD size, DWORD flags) {
  return Around({"GetFinalPath", PathOf(file)}, DWORD{0},
                [&] { return SystemCalls::GetFinalPath(file, path, size, flags); });
}

BOOL ScriptedCalls::Read(HANDLE file, void* bytes, DWORD size, DWORD* read) {
  return Around({"Read", PathOf(file)}, FALSE,
                [&] { return SystemCalls::Read(file, bytes, size, read); });
}

BOOL ScriptedCalls::Write(HANDLE file, const void* bytes, DWORD size, DWORD* written) {
  return Around({"Write", PathOf(file)}, FALSE, [&] {
    BOOL answer = FALSE;
    return on_write && on_write(answer) ? answer : SystemCalls::Write(file, bytes, size, written);
  });
}

BOOL ScriptedCalls::SetPointer(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position,
                               DWORD method) {
  return Around({"SetPointer", PathOf(file)}, FALSE,
                [&] { return SystemCalls::SetPointer(file, distance, position, method); });
}

BOOL ScriptedCalls::SetEnd(HANDLE file) {
  return Around({"SetEnd", PathOf(file)}, FALSE, [&] { return SystemCalls::SetEnd(file); });
}

BOOL ScriptedCalls::Flush(HANDLE file) {
  return Around({"Flush", PathOf(file)}, FALSE, [&] {
    BOOL answer = FALSE;
    return on_flush && on_flush(answer) ? answer : !flushes || SystemCalls::Flush(file);
  });
}

BOOL ScriptedCalls::GetWriteTime(HANDLE file, FILETIME* time) {
  return Around({"GetWriteTime", PathOf(file)}, FALSE,
                [&] { return SystemCalls::GetWriteTime(file, time); });
}

BOOL ScriptedCalls::SetWriteTime(HANDLE file, const FILETIME& time) {
  return Around({"SetWriteTime", PathOf(file)}, FALSE,
                [&] { return SystemCalls::SetWriteTime(file, time); });
}

BOOL ScriptedCalls::SetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts,
                                void* descriptor) {
  return Around({"SetSecurity", path.Text()}, FALSE,
                [&] { return SystemCalls::SetSecurity(path, parts, descriptor); });
}

BOOL ScriptedCalls::InitializeDescriptor(SECURITY_DESCRIPTOR* descriptor) {
  return Around({"InitializeDescriptor"}, FALSE,
                [&] { return SystemCalls::InitializeDescriptor(descriptor); });
}

BOOL ScriptedCalls::GetOwner(void* descriptor, PSID* owner) {
  return Around({"GetOwner"}, FALSE, [&] { return SystemCalls::GetOwner(descriptor, owner); });
}

BOOL ScriptedCalls::GetGroup(void* descriptor, PSID* group) {
  return Around({"GetGroup"}, FALSE, [&] { return SystemCalls::GetGroup(descriptor, group); });
}

BOOL ScriptedCalls::SetOwner(SECURITY_DESCRIPTOR* descriptor, PSID owner) {
  return Around({"SetOwner"}, FALSE, [&] { return SystemCalls::SetOwner(descriptor, owner); });
}

BOOL ScriptedCalls::SetGroup(SECURITY_DESCRIPTOR* descriptor, PSID group) {
  return Around({"SetGroup"}, FALSE, [&] { return SystemCalls::SetGroup(descriptor, group); });
}

BOOL ScriptedCalls::AcquireProvider(HCRYPTPROV* provider) {
  return Around({"AcquireProvider"}, FALSE, [&] { return SystemCalls::AcquireProvider(provider); });
}

BOOL ScriptedCalls::CreateHash(HCRYPTPROV provider, HCRYPTHASH* hash) {
  return Around({"CreateHash"}, FALSE, [&] { return SystemCalls::CreateHash(provider, hash); });
}

BOOL ScriptedCalls::HashData(HCRYPTHASH hash, const void* bytes, DWORD size) {
  return Around({"HashData"}, FALSE, [&] { return SystemCalls::HashData(hash, bytes, size); });
}

BOOL ScriptedCalls::GetHashValue(HCRYPTHASH hash, BYTE* value, DWORD* size) {
  return Around({"GetHashValue"}, FALSE,
                [&] { return SystemCalls::GetHashValue(hash, value, size); });
}

DWORD ScriptedCalls::ReadProfileText(const wchar_t* section, const wchar_t* key,
                                     const wchar_t* fallback, wchar_t* text, DWORD size,
                                     const std::wstring& path) {
  return Around({"ReadProfileText", path}, DWORD{0}, [&] {
    return SystemCalls::ReadProfileText(section, key, fallback, text, size, path);
  });
}

UINT ScriptedCalls::ReadProfileNumber(const wchar_t* section, const wchar_t* key, INT fallback,
                                      const std::wstring& path) {
  return Around({"ReadProfileNumber", path}, UINT{0},
                [&] { return SystemCalls::ReadProfileNumber(section, key, fallback, path); });
}

LSTATUS ScriptedCalls::OpenKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key) {
  return AroundStatus({"OpenKey", path},
                      [&] { return SystemCalls::OpenKey(parent, path, access, key); });
}

LSTATUS ScriptedCalls::CreateKey(HKEY parent, const std::wstring& path, DWORD access, HKEY* key) {
  return AroundStatus({"CreateKey", path},
                      [&] { return SystemCalls::CreateKey(parent, path, access, key); });
}

LSTATUS ScriptedCalls::EnumerateKey(HKEY key, DWORD index, wchar_t* name, DWORD* length) {
  return AroundStatus({"EnumerateKey"},
                      [&] { return SystemCalls::EnumerateKey(key, index, name, length); });
}

LSTATUS ScriptedCalls::EnumerateValue(HKEY key, DWORD index, wchar_t* name, DWORD* length,
                                      DWORD* type, DWORD* size) {
  return AroundStatus({"EnumerateValue"}, [&] {
    return SystemCalls::EnumerateValue(key, index, name, length, type, size);
  });
}

LSTATUS ScriptedCalls::SetValue(HKEY key, const std::wstring& name, DWORD type, const void* data,
                                DWORD size) {
  return AroundStatus({"SetValue", name},
                      [&] { return SystemCalls::SetValue(key, name, type, data, size); });
}

LSTATUS ScriptedCalls::DeleteValue(HKEY key, const std::wstring& name) {
  return AroundStatus({"DeleteValue", name}, [&] { return SystemCalls::DeleteValue(key, name); });
}

HRESULT ScriptedCalls::GetKnownFolder(const KNOWNFOLDERID& folder, DWORD flags, wchar_t** path) {
  return AroundResult({"GetKnownFolder"},
                      [&] { return SystemCalls::GetKnownFolder(folder, flags, path); });
}

HRESULT ScriptedCalls::GetShellFolder(int folder, wchar_t* path) {
  return AroundResult({"GetShellFolder"},
                      [&] { return SystemCalls::GetShellFolder(folder, path); });
}

DWORD ScriptedCalls::ExpandText(const std::wstring& text, wchar_t* expanded, DWORD size) {
  return Around({"ExpandText", text}, DWORD{0},
                [&] { return SystemCalls::ExpandText(text, expanded, size); });
}

DWORD ScriptedCalls::GetProgramPath(wchar_t* path, DWORD size) {
  return Around({"GetProgramPath"}, DWORD{0},
                [&] { return SystemCalls::GetProgramPath(path, size); });
}

BOOL ScriptedCalls::GetUser(wchar_t* name, DWORD* size) {
  return Around({"GetUser"}, FALSE, [&] { return SystemCalls::GetUser(name, size); });
}

HANDLE ScriptedCalls::SnapshotProcesses() {
  return Around({"SnapshotProcesses"}, INVALID_HANDLE_VALUE,
                [&] { return SystemCalls::SnapshotProcesses(); });
}

BOOL ScriptedCalls::FirstProcess(HANDLE snapshot, PROCESSENTRY32W* entry) {
  return Around({"FirstProcess"}, FALSE,
                [&] { return SystemCalls::FirstProcess(snapshot, entry); });
}

BOOL ScriptedCalls::NextProcess(HANDLE snapshot, PROCESSENTRY32W* entry) {
  return Around({"NextProcess"}, FALSE, [&] { return SystemCalls::NextProcess(snapshot, entry); });
}

HANDLE ScriptedCalls::OpenProcess(DWORD access, DWORD process_id) {
  return Around({"OpenProcess"}, HANDLE{},
                [&] { return SystemCalls::OpenProcess(access, process_id); });
}

DWORD ScriptedCalls::GetId(HANDLE process) {
  return Around({"GetId"}, DWORD{0}, [&] { return SystemCalls::GetId(process); });
}

BOOL ScriptedCalls::GetSession(DWORD process_id, DWORD* session) {
  return Around({"GetSession"}, FALSE,
                [&] { return SystemCalls::GetSession(process_id, session); });
}

DWORD ScriptedCalls::WaitForEnd(HANDLE process, DWORD milliseconds) {
  return Around({"WaitForEnd"}, DWORD{WAIT_FAILED},
                [&] { return SystemCalls::WaitForEnd(process, milliseconds); });
}

BOOL ScriptedCalls::GetCreationTime(HANDLE process, FILETIME* time) {
  return Around({"GetCreationTime"}, FALSE,
                [&] { return SystemCalls::GetCreationTime(process, time); });
}

BOOL ScriptedCalls::GetExitCode(HANDLE process, DWORD* code) {
  return Around({"GetExitCode"}, FALSE, [&] { return SystemCalls::GetExitCode(process, code); });
}

BOOL ScriptedCalls::GetImagePath(HANDLE process, wchar_t* path, DWORD* length) {
  return Around({"GetImagePath"}, FALSE,
                [&] { return SystemCalls::GetImagePath(process, path, length); });
}

BOOL ScriptedCalls::OpenToken(HANDLE process, DWORD access, HANDLE* token) {
  return Around({"OpenToken"}, FALSE,
                [&] { return SystemCalls::OpenToken(process, access, token); });
}

BOOL ScriptedCalls::GetTokenData(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* data, DWORD size,
                                 DWORD* needed) {
  return Around({"GetTokenData"}, FALSE,
                [&] { return SystemCalls::GetTokenData(token, kind, data, size, needed); });
}

}  // namespace kestrune
