#include "tests/support/scripted_calls_win32.h"

#include "common/system/owners_win32.h"

namespace kestrune {

void ScriptedCalls::Discard(const SystemCall& call, HANDLE handle) {
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

}  // namespace kestrune
