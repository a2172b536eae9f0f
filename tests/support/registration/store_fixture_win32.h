#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "common/failure/failure.h"
#include "common/text/path.h"
#include "registration/store/windows_store_win32.h"
#include "tests/support/machine/disposable_profile_win32.h"
#include "tests/support/scripted_calls_win32.h"
#include "tests/support/machine/test_profile_win32.h"

namespace altium_registration {

/// Returns the text of the failure that the action throws; empty when it succeeds.
template <class Action>
std::wstring FailureText(Action action) {
  try {
    action();
    return {};
  } catch (const kestrune::Failure& failure) {
    return failure.text;
  }
}

using kestrune::CallHook;
using kestrune::Failing;
using kestrune::On;
using kestrune::ScriptedCalls;
using kestrune::SystemCall;

/// Sets up a store on a profile of its own, whose DXP.RCS contains "old text".
class StoreTest : public testing::Test {
 protected:
  void SetUp() override { KESTRUNE_NEEDS_DISPOSABLE_PROFILE(); }

  /// Closes the store and removes every hook.
  void StartNewScript() {
    store.reset();
    calls = std::make_unique<ScriptedCalls>();
  }
  WindowsStore& Open() {
    store = std::make_unique<WindowsStore>(profile.Target(), *calls);
    return *store;
  }
  /// Returns a store after all steps that precede the replacement.
  WindowsStore& OpenPrepared() {
    Open();
    store->CreateBackups("old text", store->ReadGlobalProjects());
    store->PrepareReplacement("new text");
    return *store;
  }
  [[nodiscard]] std::wstring Saved(std::wstring_view name) const {
    return kestrune::JoinPath(store->BackupDirectory(), name);
  }
  [[nodiscard]] std::string Rcs() const { return FileBytes(profile.Rcs()); }
  /// Returns the security of DXP.RCS from Windows, without the scripted calls.
  [[nodiscard]] FileSecurity RealSecurity() const {
    kestrune::SystemCalls real;
    return ReadFileSecurity(real, kestrune::ExtendedPath(profile.Rcs()), L"size", L"read");
  }

  TestProfile profile{"old text"};
  std::unique_ptr<ScriptedCalls> calls = std::make_unique<ScriptedCalls>();
  std::unique_ptr<WindowsStore> store;
};

}  // namespace altium_registration
