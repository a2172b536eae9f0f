#include "tests/support/registration/windows_world_win32.h"

#include <windows.h>
#include <sddl.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "registration/store/global_projects_key_win32.h"
#include "registration/store/windows_store_win32.h"

namespace altium_registration {
namespace {

using kestrune::ExtendedPath;
using kestrune::JoinPath;
using kestrune::SystemCall;

/// The endings of the working files, the longer ones first.
constexpr std::pair<std::wstring_view, std::string_view> kRoles[] = {
    {L".undone.old.tmp", "undone"},
    {L".recovery.old.tmp", "spare"},
    {L".old.tmp", "displaced"},
    {L".tmp", "temp"},
    {L"\\DXP.RCS.recovery", "recovery"},
    {L"\\DXP.RCS.before", "saved"},
    {L"\\registry.before.bin", "values"},
    {L"\\instance.txt", "instance"},
    {L"\\security.before.bin", "security"},
    {L"\\operation.log", "log"},
    {L"\\DXP.RCS", "rcs"}};

std::string_view RoleOf(std::wstring_view path) {
  const auto role = std::ranges::find_if(
      kRoles, [&](const auto& candidate) { return path.ends_with(candidate.first); });
  return role == std::end(kRoles) ? std::string_view() : role->second;
}

/// Calls that act on no file; their path is that of a key or a value.
constexpr std::string_view kOtherCalls[] = {
    "InitializeDescriptor", "GetOwner",   "GetGroup",  "SetOwner",     "SetGroup",
    "AcquireProvider",      "CreateHash", "HashData",  "GetHashValue", "OpenKey",
    "EnumerateValue",       "QueryValue", "CreateKey", "SetValue",     "DeleteValue",
    "MakeDirectory",        "FindFirst"};

std::wstring SecurityTextOf(const FileSecurity& security) {
  kestrune::LocalMemory<wchar_t> text;
  if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(
          security.Descriptor(), SDDL_REVISION_1,
          OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
          text.Put(), nullptr)) {
    throw std::runtime_error("no text of a security");
  }
  return text.Get();
}

/// Returns a descriptor that differs from the given one in the marked parts.
std::vector<std::byte> Marked(const FileSecurity& security, unsigned marks) {
  const std::wstring text = SecurityTextOf(security);
  const std::size_t group = text.find(L"G:");
  const std::size_t dacl = text.find(L"D:");
  std::wstring marked = (marks & kOtherOwner) != 0 ? L"O:BG" : text.substr(0, group);
  marked += (marks & kOtherGroup) != 0 ? L"G:BG" : text.substr(group, dacl - group);
  marked += text.substr(dacl);
  marked += (marks & kOtherDacl) != 0 ? L"(A;;FR;;;BG)" : L"";
  marked += (marks & kOddDacl) != 0 ? L"(A;;FW;;;BG)" : L"";
  kestrune::LocalMemory<void> descriptor;
  ULONG size = 0;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(marked.c_str(), SDDL_REVISION_1,
                                                            descriptor.Put(), &size)) {
    throw std::runtime_error("no security of a text");
  }
  const auto* bytes = static_cast<const std::byte*>(descriptor.Get());
  return {bytes, bytes + size};
}

/// Returns the number of the file at a path, which a renaming keeps; 0 when there is none.
std::uint64_t FileNumber(const std::wstring& path) {
  const kestrune::FileHandle file(CreateFileW(
      path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
      nullptr, OPEN_EXISTING, 0, nullptr));
  BY_HANDLE_FILE_INFORMATION information{};
  if (!file || !GetFileInformationByHandle(file.Get(), &information)) {
    return 0;
  }
  return std::uint64_t{information.nFileIndexHigh} << 32U | information.nFileIndexLow;
}

}  // namespace

class WindowsWorld::Calls final : public kestrune::ScriptedCalls {
 public:
  explicit Calls(RunScript* script) : script_(script) {
    before = [this](const SystemCall& call) { return Before(call); };
    after = [this](const SystemCall& call) { return After(call); };
  }

  void Mark(const std::wstring& path, unsigned mark) { marks_[FileNumber(path)] |= mark; }
  [[nodiscard]] unsigned MarksOf(const std::wstring& path) const {
    const auto found = marks_.find(FileNumber(path));
    return found == marks_.end() ? 0 : found->second;
  }

  BOOL GetSecurity(const ExtendedPath& path, SECURITY_INFORMATION parts, void* descriptor,
                   DWORD size, DWORD* needed) override {
    const unsigned marks = MarksOf(path.Text());
    const BOOL answer = ScriptedCalls::GetSecurity(path, parts, descriptor, size, needed);
    if (marks == 0 || (!answer && GetLastError() != ERROR_INSUFFICIENT_BUFFER)) {
      return answer;
    }
    kestrune::SystemCalls real;
    const std::vector<std::byte> marked =
        Marked(ReadFileSecurity(real, path, L"size", L"read"), marks);
    *needed = static_cast<DWORD>(marked.size());
    if (size < marked.size()) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    std::ranges::copy(marked, static_cast<std::byte*>(descriptor));
    return TRUE;
  }

  bool is_read_only = false;

 private:
  /// Returns whether the model also makes this call.
  [[nodiscard]] bool IsModelled(const SystemCall& call) const {
    if (!script_->IsRunning()) {
      return false;
    }
    return !RoleOf(call.path).empty() ||
           std::ranges::find(kOtherCalls, call.name) != std::end(kOtherCalls);
  }

  static std::string_view RoleOfCall(const SystemCall& call) {
    const bool is_other = std::ranges::find(kOtherCalls, call.name) != std::end(kOtherCalls);
    return is_other ? std::string_view() : RoleOf(call.path);
  }

  std::optional<DWORD> Before(const SystemCall& call) {
    met_ = std::nullopt;
    if (!IsModelled(call)) {
      return std::nullopt;
    }
    met_ = script_->Meet(call.name, RoleOfCall(call), true);
    switch (*met_) {
      case RunScript::Fate::Fails:
        return kFaultCode;
      case RunScript::Fate::InGap:
        MoveFileExW(call.path.c_str(), call.other.c_str(), 0);
        return kGapCode;
      case RunScript::Fate::Gone:
        DeleteFileW(call.path.c_str());
        return kGapCode;
      default:
        break;
    }
    const bool overwrites_rcs =
        call.name == "Replace" || (call.name == "Move" && RoleOf(call.other) == "rcs");
    return is_read_only && overwrites_rcs ? std::optional<DWORD>(ERROR_ACCESS_DENIED)
                                          : std::nullopt;
  }

  std::optional<DWORD> After(const SystemCall& call) {
    const std::optional<RunScript::Fate> met = std::exchange(met_, std::nullopt);
    if (call.name == "SetSecurity") {
      marks_[FileNumber(call.path)] &= ~unsigned{kOtherDacl | kOddDacl};
    }
    if (met == RunScript::Fate::Odd) {
      Mark(call.path, kOddDacl);
    }
    if (met == RunScript::Fate::DiesAfter) {
      script_->Die();
    }
    return met == RunScript::Fate::FailsAfter ? std::optional<DWORD>(kFaultCode) : std::nullopt;
  }

  RunScript* script_;
  std::optional<RunScript::Fate> met_;
  /// The marks of each file, by its number.
  std::map<std::uint64_t, unsigned> marks_;
};

WindowsWorld::WindowsWorld() {
  kestrune::SystemCalls real;
  if (!real.AcquireProvider(provider_.Put())) {
    throw std::runtime_error("no provider");
  }
}
WindowsWorld::~WindowsWorld() = default;

void WindowsWorld::Begin(std::string_view rcs,
                         const std::optional<std::vector<RegistryValue>>& values) {
  calls_.reset();
  profile_ = std::make_unique<TestProfile>(rcs);
  for (const RegistryValue& value : values.value_or(std::vector<RegistryValue>())) {
    profile_->SetValue(value);
  }
}

std::unique_ptr<Store> WindowsWorld::Open(RunScript& script) {
  calls_ = std::make_unique<Calls>(&script);
  calls_->flushes = flushes;
  auto store = std::make_unique<WindowsStore>(profile_->Target(), *calls_);
  backups_ = store->BackupDirectory();
  return store;
}

std::wstring WindowsWorld::PathOf(std::string_view role) const {
  for (const std::wstring& name : FolderEntries(profile_->Directory())) {
    if (std::wstring path = JoinPath(profile_->Directory(), name); RoleOf(path) == role) {
      return path;
    }
  }
  const auto ending = std::ranges::find(kRoles, role, [](const auto& pair) { return pair.second; });
  return (role == "saved" ? backups_ : profile_->Directory()) + std::wstring(ending->first);
}

Remains WindowsWorld::Look() {
  Remains remains;
  if (std::string rcs = FileBytes(profile_->Rcs()); rcs != "<missing>") {
    remains.rcs = std::move(rcs);
    remains.security = calls_->MarksOf(profile_->Rcs());
  }
  for (const std::wstring& name : profile_->Leftovers()) {
    const std::wstring path = JoinPath(profile_->Directory(), name);
    remains.left[std::string(RoleOf(path))] = FileBytes(path);
  }
  kestrune::SystemCalls real;
  kestrune::RegistryKey key;
  if (real.OpenKey(HKEY_CURRENT_USER, profile_->Key(), KEY_QUERY_VALUE, key.Put()) ==
      ERROR_SUCCESS) {
    remains.values = ReadRegistryValues(real, profile_->Key());
  }
  const std::map<std::wstring, std::string> backups = Backups();
  if (const auto saved = backups.find(L"DXP.RCS.before"); saved != backups.end()) {
    remains.saved = saved->second;
  }
  if (const auto log = backups.find(L"operation.log"); log != backups.end()) {
    std::string_view text = log->second;
    while (!text.empty()) {
      const std::string_view line = text.substr(0, text.find("\r\n"));
      text.remove_prefix(std::min(text.size(), line.size() + 2));
      remains.log.emplace_back(line);
    }
  }
  return remains;
}

std::map<std::wstring, std::string> WindowsWorld::Backups() const {
  std::map<std::wstring, std::string> backups;
  for (const std::wstring& name : FolderEntries(backups_)) {
    backups[name] = FileBytes(JoinPath(backups_, name));
  }
  return backups;
}

void WindowsWorld::SetFile(std::string_view role, std::optional<std::string_view> text) {
  if (text) {
    WriteFileBytes(PathOf(role), *text);
  } else {
    DeleteFileW(PathOf(role).c_str());
  }
}

void WindowsWorld::MarkSecurity(std::string_view role, SecurityMark mark) {
  calls_->Mark(PathOf(role), mark);
}

void WindowsWorld::MakeReadOnly() {
  calls_->is_read_only = true;
}

void WindowsWorld::SetEntry(const wchar_t* name, const wchar_t* text) {
  if (text != nullptr) {
    profile_->SetText(name, text);
  } else {
    RegDeleteKeyValueW(HKEY_CURRENT_USER, profile_->Key().c_str(), name);
  }
}

void WindowsWorld::DeleteKey() {
  RegDeleteKeyW(HKEY_CURRENT_USER, profile_->Key().c_str());
}

}  // namespace altium_registration
