// Fault injection at every Windows call of a whole registration: the call fails once, or all calls
// from there on fail, or it fails after its effect. Checks disk, registry and message.

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "common/text/text.h"
#include "registration/transaction/global_projects.h"
#include "registration/store/global_projects_key_win32.h"
#include "registration/transaction/transaction.h"
#include "tests/support/registration/store_fixture_win32.h"

namespace altium_registration {
namespace {

enum class Refusing { Once, OnceAfterItsEffect, FromThereOn };

class RefusingCalls final : public ScriptedCalls {
 public:
  RefusingCalls(int at, Refusing how, DWORD code) : at_(at), how_(how), code_(code) {
    before = [this](const SystemCall& call) { return CodeFor(Before(call.name)); };
    after = [this](const SystemCall&) { return CodeFor(After()); };
  }

  [[nodiscard]] int Count() const { return count_; }
  /// Returns the first call that failed.
  [[nodiscard]] const std::string& Refused() const { return refused_; }

 private:
  [[nodiscard]] std::optional<DWORD> CodeFor(bool goes_well) const {
    return goes_well ? std::nullopt : std::optional<DWORD>(code_);
  }
  bool Before(std::string_view call) {
    ++count_;
    if (count_ == at_) {
      refused_ = call;
    }
    return how_ == Refusing::OnceAfterItsEffect ||
           (how_ == Refusing::Once ? count_ != at_ : count_ < at_);
  }
  [[nodiscard]] bool After() const { return how_ != Refusing::OnceAfterItsEffect || count_ != at_; }

  int at_;
  Refusing how_;
  DWORD code_;
  int count_ = 0;
  std::string refused_;
};

class RefusedCallsTest : public testing::Test {
 protected:
  void SetUp() override { KESTRUNE_NEEDS_DISPOSABLE_PROFILE(); }

  /// Runs one whole registration. Returns the number of its calls.
  int Run(int at, Refusing how, DWORD code = ERROR_IO_DEVICE) {
    profile_ = std::make_unique<TestProfile>("old text");
    profile_->SetText(L"Item1", L"A");
    profile_->SetText(L"Item3", L"B");
    RefusingCalls calls(at, how, code);
    kestrune::SystemCalls real;
    security_ = ReadFileSecurity(real, kestrune::ExtendedPath(profile_->Rcs()), L"size", L"read");
    success_ = false;
    try {
      WindowsStore store(profile_->Target(), calls);
      backups_ = store.BackupDirectory();
      success_ = RunTransaction(store, ChangeFor(store), message_);
    } catch (const kestrune::Failure& failure) {
      message_ = failure.text + L" (not opened)";
    }
    refused_ = calls.Refused();
    return calls.Count();
  }

  static RegistrationChange ChangeFor(WindowsStore& store) {
    RegistrationChange change;
    change.rcs_before = store.ReadRcs();
    change.rcs_after = "new text";
    change.values_before = store.ReadGlobalProjects();
    std::wstring error;
    EXPECT_TRUE(PlanGlobalProjects(change.values_before, L"K", true, change.values_after, error));
    change.validate = [](std::string_view text) { return text == "new text"; };
    return change;
  }

  /// Returns the list's entries, such as "1=A 3=B ".
  std::string List() {
    kestrune::SystemCalls real;
    std::vector<RegistryValue> values = ReadRegistryValues(real, profile_->Key());
    std::ranges::sort(values, {}, &RegistryValue::name);
    std::string list;
    for (const RegistryValue& value : values) {
      std::wstring text;
      std::wstring error;
      EXPECT_TRUE(ItemText(value, text, error));
      list += kestrune::Utf8FromWide(value.name.substr(4) + L"=" + text + L" ");
    }
    return list;
  }

  void ExpectOldState() {
    EXPECT_EQ(FileBytes(profile_->Rcs()), "old text");
    EXPECT_EQ(List(), "1=A 3=B ");
    kestrune::SystemCalls real;
    EXPECT_TRUE(ReadFileSecurity(real, kestrune::ExtendedPath(profile_->Rcs()), L"size", L"read") ==
                security_);
  }

  /// Checks what must hold after every run.
  void ExpectLawfulState() {
    const std::string rcs = FileBytes(profile_->Rcs());
    EXPECT_TRUE(rcs == "old text" || rcs == "new text") << rcs;
    const std::string list = List();
    EXPECT_NE(list.find("=A "), std::string::npos) << list;
    EXPECT_NE(list.find("=B "), std::string::npos) << list;
    if (success_) {
      EXPECT_EQ(rcs, "new text");
      EXPECT_EQ(list, "0=A 1=B 2=K ");
    } else if (message_.ends_with(L" MANUAL RECOVERY REQUIRED; backups retained.")) {
      EXPECT_EQ(FileBytes(backups_ + L"\\DXP.RCS.before"), "old text");
    } else {
      EXPECT_TRUE(message_.ends_with(L" Rollback complete (or no owned writes).") ||
                  message_.ends_with(L" (not opened)"));
      ExpectOldState();
    }
  }

  std::unique_ptr<TestProfile> profile_;
  FileSecurity security_;
  std::wstring backups_;
  std::wstring message_;
  std::string refused_;
  bool success_ = false;
};

TEST_F(RefusedCallsTest, EveryCallRefusedOnceEndsInTheNewStateOrTheOldOne) {
  const int count = Run(0, Refusing::Once);
  ASSERT_TRUE(success_);
  for (const Refusing how : {Refusing::Once, Refusing::OnceAfterItsEffect}) {
    for (int at = 1; at <= count; ++at) {
      Run(at, how);
      SCOPED_TRACE(std::to_string(at) + " " + refused_ + ": " + kestrune::Utf8FromWide(message_));
      ExpectLawfulState();
      EXPECT_EQ(message_.find(L"MANUAL"), std::wstring::npos);
      // Only a file whose deletion failed may be left.
      if (refused_ != "Delete") {
        EXPECT_EQ(profile_->Leftovers(), std::vector<std::wstring>{});
      }
    }
  }
  std::cout << "[ MEASURED ] " << 2 * count << " refusals of " << count << " calls\n";
}

TEST_F(RefusedCallsTest, EverythingRefusedFromACallOnKeepsTheFileWholeAndSaysWhatIsBlocked) {
  const int count = Run(0, Refusing::Once);
  for (int at = 1; at <= count; ++at) {
    Run(at, Refusing::FromThereOn);
    SCOPED_TRACE(std::to_string(at) + " " + refused_ + ": " + kestrune::Utf8FromWide(message_));
    ExpectLawfulState();
  }
}

}  // namespace
}  // namespace altium_registration
