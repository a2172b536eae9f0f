#include "tests/support/registration/model_store.h"

#include <algorithm>
#include <set>
#include <utility>

#include "common/failure/failure.h"
#include "common/text/ordinal.h"
#include "common/text/text.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

using kestrune::Failure;

using Code = std::uint32_t;

// Codes of Windows
constexpr Code kFileNotFound = 2;
constexpr Code kAccessDenied = 5;
constexpr Code kFileExists = 80;
constexpr Code kAlreadyExists = 183;

/// The number of attempts of a call that fails with a sharing violation.
constexpr int kTries = 10;

constexpr std::wstring_view kSourceChanged = L"Source metadata/content changed.";
constexpr std::wstring_view kSecurityChanged = L"Source security changed or was not preserved.";
constexpr std::wstring_view kForeignSecurity =
    L"Concurrent/unknown RCS security change; refusing rollback overwrite.";
constexpr std::wstring_view kForeignContent =
    L"Concurrent RCS change; refusing rollback overwrite.";
constexpr std::wstring_view kChangedDuringRollback =
    L"RCS content/security changed during rollback.";
constexpr std::wstring_view kRollbackInvalid = L"Rollback file validation failed.";
constexpr std::wstring_view kSecurityMismatch = L"RCS security readback mismatch.";
constexpr std::wstring_view kKeptName = L"DXP.RCS.odbpp-1_1_1";

std::vector<RegistryValue>::iterator FindValue(std::vector<RegistryValue>& values,
                                               std::wstring_view name) {
  return std::ranges::find_if(values, [&](const RegistryValue& value) {
    return kestrune::EqualIgnoringCase(value.name, name);
  });
}

class ModelStore final : public Store {
 public:
  ModelStore(ModelWorld& world, RunScript& script)
      : world_(world), script_(script), opened_(world.files.at("rcs")) {}

  ~ModelStore() override {
    try {
      DeleteWorkingFiles();
    } catch (...) {
      // The next run deletes the file that remains.
    }
  }

  std::string ReadRcs() override { return Read("rcs"); }

  std::vector<RegistryValue> ReadGlobalProjects() override {
    const Code code = OpenKey();
    if (code == kFileNotFound) {
      return {};
    }
    RequireKey(code, L"Open Global Projects");
    for (std::size_t i = 0; i <= world_.values->size(); ++i) {
      RequireKey(Ask("EnumerateValue", {}), L"Enumerate Global Projects");
      if (i < world_.values->size()) {
        RequireKey(Ask("QueryValue", {}), L"Read Global Projects value");
      }
    }
    return *world_.values;
  }

  void CreateBackups(std::string_view rcs, const std::vector<RegistryValue>&) override {
    Require(EnsureDirectory(), L"Create backup directory");
    Require(Change("Copy", "rcs",
                   [&] {
                     const ModelFile* const file = File("rcs");
                     if (file == nullptr) {
                       return kFileNotFound;
                     }
                     const bool is_new = world_.files.emplace("saved", *file).second;
                     return is_new ? 0 : kFileExists;
                   }),
            L"Backup RCS");
    Require(Open("saved"), L"Backup RCS");
    Require(Ask("Flush", "saved"), L"Backup RCS");
    if (Read("saved") != rcs) {
      throw Refusal(L"Backup/source mismatch.");
    }
    WriteBackup("values", L"Write registry backup");
    WriteBackup("instance", L"Write instance record");
    WriteBackup("security", L"Write security backup");
    MakeDigest();
    planned_ = rcs;
    AppendLog("Before");
  }

  void PrepareReplacement(std::string_view text) override {
    MakeDigest();
    new_ = text;
    bool created = false;
    CreateWithIdentity(
        "temp", text, L"Cannot preserve replacement owner/group; original RCS unchanged.", created);
    WriteDacl("temp");
    if ((ReadSecurity("temp") & (kOtherDacl | kOddDacl)) != 0) {
      throw Refusal(kSecurityMismatch);
    }
    AppendLog("Intended");
  }
  std::string ReadReplacement() override { return Read("temp"); }

  void CommitReplacement() override {
    const Code code = ReplaceWithRetries("temp", "displaced", [&] { RequireUnchanged(); });
    if (code == 0) {
      ConfirmReplacement();
      RestoreRcsSecurity();
      return;
    }
    state_ = StateAfterFailure();
    if (state_ == State::Lost) {
      UndoHalfReplacement();
    } else if (state_ == State::Replaced) {
      ConfirmReplacement();
    }
    throw FileStepFailure(L"Replace RCS", code);
  }
  bool HasReplacedRcs() const noexcept override { return state_ != State::Untouched; }

  void CheckSourceSecurity() override {
    if (ReadSecurity("rcs") != opened_.security) {
      throw Refusal(kSecurityChanged);
    }
  }

  void WriteGlobalProjectsValue(const RegistryValue& value) override {
    RequireKey(Change("CreateKey", {},
                      [&] {
                        if (!world_.values) {
                          world_.values.emplace();
                        }
                        return Code{0};
                      }),
               L"Open/create Global Projects");
    RequireKey(Change("SetValue", {},
                      [&] {
                        world_.list_writes.push_back("+" + kestrune::Utf8FromWide(value.name));
                        const auto old = FindValue(*world_.values, value.name);
                        if (old == world_.values->end()) {
                          world_.values->push_back(value);
                        } else {
                          old->type = value.type;
                          old->data = value.data;
                        }
                        return Code{0};
                      }),
               L"Write Global Projects value");
  }

  void RemoveGlobalProjectsValue(const std::wstring& name) override {
    RequireKey(OpenKey(), L"Open Global Projects for removal");
    RequireKey(Change("DeleteValue", {},
                      [&] {
                        const auto old = FindValue(*world_.values, name);
                        if (old == world_.values->end()) {
                          return kFileNotFound;
                        }
                        world_.list_writes.push_back("-" + kestrune::Utf8FromWide(name));
                        world_.values->erase(old);
                        return Code{0};
                      }),
               L"Remove Global Projects value");
  }

  void RollBackRcs() override {
    if (state_ == State::Unknown) {
      state_ = StateAfterFailure();
    }
    if (state_ == State::Untouched || (state_ == State::Unconfirmed && RestoreUnconfirmed())) {
      return;
    }
    if (state_ == State::Superseded) {
      throw Refusal(kForeignContent);
    }
    if (state_ == State::Lost) {
      RestoreMissing();
    } else {
      RestoreOver();
    }
    const std::string restored = Read("rcs");
    MakeDigest();
    if (restored != planned_) {
      throw Refusal(kRollbackInvalid);
    }
    state_ = State::Untouched;
    RequireNothingKept();
  }

  void AppendLog(std::string_view line) override {
    const auto require = [](Code code, const wchar_t* sentence) {
      if (code != 0) {
        throw Failure{sentence, code};
      }
    };
    constexpr const wchar_t* kUnwritable = L"Cannot write operation log.";
    require(EnsureDirectory(), kUnwritable);
    require(Change("Create", "log", [] { return Code{0}; }), kUnwritable);
    require(Change("Write", "log",
                   [&] {
                     world_.log.emplace_back(line);
                     return Code{0};
                   }),
            kUnwritable);
    require(Ask("Flush", "log"), L"Cannot flush operation log.");
  }

 private:
  enum class State { Untouched, Unknown, Replaced, Unconfirmed, Superseded, Lost };
  enum class Content { Old, New, Foreign, Unreadable, Missing };
  struct Finding {
    Content content = Content::Missing;
    Code code = 0;
  };
  enum class Match { Expected, ForeignContent, ForeignSecurity, Unreadable };
  struct Comparison {
    Match match = Match::Expected;
    Code code = 0;
  };

  // Calls. Each returns the code of its failure, or 0.

  template <class Effect>
  Code Change(std::string_view call, std::string_view role, Effect effect) {
    switch (script_.Meet(call, role, true)) {
      case RunScript::Fate::Fails:
        return kFaultCode;
      case RunScript::Fate::FailsAfter:
        effect();
        return kFaultCode;
      case RunScript::Fate::DiesAfter:
        effect();
        script_.Die();
      case RunScript::Fate::Odd: {
        const Code code = effect();
        world_.MarkSecurity(role, kOddDacl);
        return code;
      }
      default:
        return effect();
    }
  }
  /// Makes a call that changes nothing.
  Code Ask(std::string_view call, std::string_view role) {
    return script_.Meet(call, role, false) == RunScript::Fate::Goes ? 0 : kFaultCode;
  }
  /// Makes a call that changes nothing and needs the file.
  Code AskFile(std::string_view call, std::string_view role) {
    const Code code = Ask(call, role);
    return code == 0 && File(role) == nullptr ? kFileNotFound : code;
  }

  Code OpenKey() {
    const Code code = Ask("OpenKey", {});
    return code == 0 && !world_.values ? kFileNotFound : code;
  }

  Code Open(std::string_view role) { return AskFile("Create", role); }

  Code CreateNew(std::string_view role) {
    return Change("Create", role, [&] {
      return world_.files.try_emplace(std::string(role)).second ? 0 : kFileExists;
    });
  }

  Code WriteText(std::string_view role, std::string_view text) {
    return Change("Write", role, [&] {
      world_.files[std::string(role)].text = text;
      return Code{0};
    });
  }

  Code Delete(std::string_view role) {
    return Change("Delete", role, [&] {
      const auto file = world_.files.find(role);
      if (file == world_.files.end()) {
        return kFileNotFound;
      }
      world_.files.erase(file);
      return Code{0};
    });
  }

  Code MoveOntoRcs(std::string_view role, bool overwrites) {
    return Change("Move", role, [&] {
      ModelFile* const file = File(role);
      if (file == nullptr) {
        return kFileNotFound;
      }
      if (File("rcs") != nullptr && !overwrites) {
        return kAlreadyExists;
      }
      if (File("rcs") != nullptr && world_.is_read_only) {
        return kAccessDenied;
      }
      world_.files["rcs"] = *file;
      world_.files.erase(world_.files.find(role));
      return Code{0};
    });
  }

  /// Replaces in two renames, between which it may stop.
  Code Replace(std::string_view replacement, std::string_view displaced) {
    const auto move_away = [&] {
      world_.files[std::string(displaced)] = world_.files.at("rcs");
      world_.files.erase("rcs");
    };
    const auto effect = [&] {
      const ModelFile* const file = File(replacement);
      if (File("rcs") == nullptr || file == nullptr) {
        return kFileNotFound;
      }
      if (world_.is_read_only) {
        return kAccessDenied;
      }
      world_.files[std::string(displaced)] = world_.files.at("rcs");
      world_.files["rcs"] = *file;
      world_.files.erase(world_.files.find(replacement));
      return Code{0};
    };
    switch (script_.Meet("Replace", "rcs", true)) {
      case RunScript::Fate::Goes:
        return effect();
      case RunScript::Fate::FailsAfter:
        effect();
        return kFaultCode;
      case RunScript::Fate::DiesAfter:
        effect();
        script_.Die();
      case RunScript::Fate::InGap:
        move_away();
        return kGapCode;
      case RunScript::Fate::Gone:
        world_.files.erase("rcs");
        return kGapCode;
      default:
        return kFaultCode;
    }
  }

  bool Exists(std::string_view role) { return AskFile("GetAttributes", role) == 0; }

  bool IsMissing(std::string_view role) { return AskFile("GetAttributes", role) == kFileNotFound; }

  static void Require(Code code, std::wstring_view step) {
    if (code != 0) {
      throw FileStepFailure(step, code);
    }
  }
  static void RequireKey(Code code, std::wstring_view step) {
    if (code != 0) {
      throw RegistryStepFailure(step, code);
    }
  }

  std::string Read(std::string_view role) {
    Require(Open(role), L"Open RCS");
    Require(Ask("GetSize", role), L"Read RCS size");
    Require(Ask("Read", role), L"Read RCS");
    return File(role)->text;
  }

  unsigned ReadSecurity(std::string_view role, std::wstring_view size_step,
                        std::wstring_view read_step) {
    Require(AskFile("GetSecurity", role), size_step);
    Require(Ask("GetSecurity", role), read_step);
    return File(role)->security;
  }
  unsigned ReadSecurity(std::string_view role) {
    return ReadSecurity(role, L"Query RCS security size", L"Read RCS security");
  }

  void MakeDigest() {
    Require(Ask("AcquireProvider", {}), L"SHA provider");
    for (const char* call : {"CreateHash", "HashData", "GetHashValue"}) {
      if (Ask(call, {}) != 0) {
        throw Refusal(L"SHA256 unavailable.");
      }
    }
  }

  Finding FindContent(std::string_view role) {
    const Code code = Open(role);
    if (code == kFileNotFound) {
      return {Content::Missing, code};
    }
    if (code != 0) {
      return {Content::Unreadable, code};
    }
    const struct {
      std::string_view call;
      bool has_code;
    } calls[] = {{"AcquireProvider", true}, {"CreateHash", false}, {"Read", true},
                 {"HashData", false},       {"Read", true},        {"GetHashValue", false}};
    for (const auto& [call, has_code] : calls) {
      if (const Code refused = Ask(call, call == "Read" ? role : std::string_view());
          refused != 0) {
        return {Content::Unreadable, has_code ? refused : 0};
      }
    }
    const std::string& text = File(role)->text;
    return {text == planned_ ? Content::Old : text == new_ ? Content::New : Content::Foreign};
  }

  /// Creates a directory and its two parents: tries each from the innermost to the outermost, then
  /// creates them in the opposite order.
  Code EnsureDirectory() {
    constexpr int kCalls = 5;
    for (int i = 0; i < kCalls && !has_directory_; ++i) {
      if (const Code code = Ask("MakeDirectory", {}); code != 0) {
        return code;
      }
    }
    if (!std::exchange(has_directory_, true)) {
      Ask("FindFirst", {});
    }
    return 0;
  }

  void WriteBackup(std::string_view role, std::wstring_view step) {
    Require(CreateNew(role), step);
    for (const bool writes : {true, false}) {
      if (const Code code = writes ? WriteText(role, "backup") : Ask("Flush", role); code != 0) {
        Delete(role);
        Require(code, step);
      }
    }
  }

  void CreateWithIdentity(std::string_view role, std::string_view text, std::wstring_view refusal,
                          bool& created) {
    Require(Ask("InitializeDescriptor", {}), L"Initialize replacement identity");
    Require(Ask("GetOwner", {}), L"Read original owner");
    Require(Ask("GetGroup", {}), L"Read original group");
    Require(Ask("SetOwner", {}), L"Set replacement owner");
    Require(Ask("SetGroup", {}), L"Set replacement group");
    Require(CreateNew(role), L"Create recovery/temp file");
    created = true;
    if (const Code code = WriteText(role, text); code != 0) {
      Delete(role);
      Require(code, L"Write recovery/temp file");
    }
    if (const Code code = Ask("Flush", role); code != 0) {
      Delete(role);
      Require(code, L"Flush recovery/temp file");
    }
    if ((ReadSecurity(role) & (kOtherOwner | kOtherGroup)) != 0) {
      Delete(role);
      throw Refusal(refusal);
    }
  }

  void WriteDacl(std::string_view role) {
    Require(Change("SetSecurity", role,
                   [&] {
                     ModelFile* const file = File(role);
                     if (file == nullptr) {
                       return kFileNotFound;
                     }
                     file->security &= ~unsigned{kOtherDacl | kOddDacl};
                     return Code{0};
                   }),
            L"Restore exact RCS DACL");
  }

  // Committing
  template <class Requirement>
  Code ReplaceWithRetries(std::string_view replacement, std::string_view displaced,
                          Requirement require) {
    const State before = state_;
    for (int tries = 1;; ++tries) {
      require();
      state_ = State::Unknown;
      const Code code = Replace(replacement, displaced);
      if (code == 0) {
        state_ = State::Replaced;
        return 0;
      }
      const bool changed_nothing = Exists("rcs") && Exists(replacement) && IsMissing(displaced);
      if (tries == kTries || code != kAccessDenied || !changed_nothing) {
        return code;
      }
      state_ = before;
    }
  }

  void RequireUnchanged() {
    Require(AskFile("GetAttributes", "rcs"), L"Recheck profile");
    if (File("rcs")->text.size() != opened_.text.size()) {
      throw Refusal(kSourceChanged);
    }
    constexpr std::wstring_view kStep = L"Replacement security changed before commit";
    if (ReadSecurity("temp", kStep, kStep) != opened_.security) {
      throw FileStepFailure(kStep, 0);
    }
    CheckSourceSecurity();
  }

  State StateAfterFailure() {
    switch (FindContent("rcs").content) {
      case Content::Missing:
        return State::Lost;
      case Content::Unreadable:
        return State::Unknown;
      case Content::Old:
        return State::Untouched;
      case Content::New:
        if (IsMissing("temp")) {
          return State::Replaced;
        }
        break;
      case Content::Foreign:
        break;
    }
    return Exists("displaced") ? State::Superseded : State::Untouched;
  }

  void UndoHalfReplacement() {
    if (MoveOntoRcs("displaced", false) != 0) {
      state_ = StateAfterFailure();
      return;
    }
    state_ = State::Untouched;
    const Content back = FindContent("rcs").content;
    if (back == Content::Foreign || back == Content::New) {
      throw Refusal(kSourceChanged);
    }
  }

  void ConfirmReplacement() {
    state_ = State::Unconfirmed;
    const Comparison comparison = CompareDisplaced("displaced", Content::Old);
    if (comparison.match == Match::Expected) {
      state_ = State::Replaced;
      Delete("displaced");
      own_securities_.insert(ReadSecurity("rcs"));
      return;
    }
    if (MoveDisplacedBack("displaced", Content::New)) {
      state_ = State::Untouched;
    }
    if (comparison.match == Match::Unreadable) {
      throw FileStepFailure(L"Read displaced RCS", comparison.code);
    }
    throw Refusal(comparison.match == Match::ForeignSecurity ? kSecurityChanged : kSourceChanged);
  }

  Comparison CompareDisplaced(std::string_view role, Content expected) {
    const Finding found = FindContent(role);
    if (found.content == Content::Unreadable || found.content == Content::Missing) {
      return {Match::Unreadable, found.code};
    }
    if (found.content != expected) {
      return {Match::ForeignContent};
    }
    try {
      const bool is_own = own_securities_.contains(ReadSecurity(role));
      return {is_own ? Match::Expected : Match::ForeignSecurity};
    } catch (const Failure& failure) {
      return {Match::Unreadable, failure.code};
    }
  }

  bool MoveDisplacedBack(std::string_view role, Content ours) {
    for (int tries = 1;; ++tries) {
      if (FindContent("rcs").content != ours || !(HasOwnSecurity() || HasSecurityOf(role))) {
        return false;
      }
      const Code code = MoveOntoRcs(role, true);
      if (code == 0 || tries == kTries || code != kAccessDenied) {
        return code == 0;
      }
    }
  }

  // Rolling back
  bool RestoreUnconfirmed() {
    if (MoveDisplacedBack("displaced", Content::New)) {
      state_ = State::Untouched;
      return true;
    }
    const Comparison comparison = CompareDisplaced("displaced", Content::Old);
    switch (comparison.match) {
      case Match::ForeignContent:
        throw Refusal(kForeignContent);
      case Match::ForeignSecurity:
        throw Refusal(kForeignSecurity);
      case Match::Unreadable:
        kept_.push_back({"displaced", comparison.code});
        break;
      case Match::Expected:
        break;
    }
    return false;
  }

  void RestoreRcsSecurity() {
    WriteDacl("rcs");
    const unsigned restored = ReadSecurity("rcs");
    const bool is_exact_dacl = (restored & (kOtherDacl | kOddDacl)) == 0;
    if ((restored & (kOtherOwner | kOtherGroup)) != 0) {
      throw Refusal(is_exact_dacl ? L"RCS owner/group changed; manual recovery required."
                                  : kSecurityMismatch);
    }
    if (!is_exact_dacl) {
      own_securities_.insert(restored);
      throw Refusal(kSecurityMismatch);
    }
    own_securities_ = {opened_.security};
  }

  void RestoreOver() {
    RequireOwn(kForeignSecurity, kForeignContent);
    WriteRecovery();
    const Code code = ReplaceWithRetries(
        *recovery_, "undone", [&] { RequireOwn(kChangedDuringRollback, kChangedDuringRollback); });
    if (code != 0) {
      FinishRestoration(code);
    }
    recovery_.reset();
    CheckUndone();
    RestoreRcsSecurity();
  }

  void FinishRestoration(Code code) {
    const Content now = FindContent("rcs").content;
    if (now == Content::Old && IsMissing(*recovery_)) {
      return;
    }
    if (now == Content::Missing) {
      const Content undone = FindContent("undone").content;
      const bool is_foreign = undone == Content::Foreign || undone == Content::Old;
      if (!is_foreign && MoveOntoRcs(*recovery_, false) == 0) {
        return;
      }
      state_ = MoveOntoRcs("undone", false) == 0 ? State::Replaced : State::Lost;
    } else {
      state_ = State::Replaced;
    }
    throw FileStepFailure(L"Restore RCS", code);
  }

  void CheckUndone() {
    const Comparison comparison = CompareDisplaced("undone", Content::New);
    if (comparison.match == Match::Expected) {
      Delete("undone");
    } else if (comparison.match == Match::Unreadable) {
      if (!IsMissing("undone")) {
        kept_.push_back({"undone", comparison.code});
      }
    } else {
      if (!MoveDisplacedBack("undone", Content::Old)) {
        kept_.push_back({"undone", 0});
      }
      state_ = State::Superseded;
      throw Refusal(kChangedDuringRollback);
    }
  }

  void RestoreMissing() {
    if (!IsMissing("rcs")) {
      state_ = State::Superseded;
      throw Refusal(kForeignContent);
    }
    if (MoveOntoRcs("displaced", false) == 0) {
      state_ = State::Untouched;
      const Content back = FindContent("rcs").content;
      if (back == Content::Foreign || back == Content::New) {
        throw Refusal(kForeignContent);
      }
      if (ReadSecurity("rcs") != opened_.security) {
        throw Refusal(kForeignSecurity);
      }
      return;
    }
    const Finding displaced = FindContent("displaced");
    if (displaced.content == Content::Foreign || displaced.content == Content::New) {
      throw Refusal(kForeignContent);
    }
    if (displaced.content == Content::Unreadable) {
      kept_.push_back({"displaced", displaced.code});
    }
    WriteRecovery();
    Require(MoveOntoRcs(*recovery_, false), L"Restore RCS");
    recovery_.reset();
    RestoreRcsSecurity();
  }

  void WriteRecovery() {
    const std::string saved = Read("saved");
    MakeDigest();
    if (saved != planned_) {
      throw Refusal(kRollbackInvalid);
    }
    Delete("recovery");
    recovery_ = IsMissing("recovery") ? "recovery" : "spare";
    bool created = false;
    try {
      CreateWithIdentity(
          *recovery_, saved,
          L"Cannot preserve recovery owner/group; recovery replacement not attempted.", created);
    } catch (...) {
      if (!created) {
        recovery_.reset();
      }
      throw;
    }
  }

  void RequireNothingKept() const {
    std::wstring names;
    for (const Kept& kept : kept_) {
      names.append(names.empty() ? L"" : L" and ")
          .append(kKeptName)
          .append(kept.role == "undone" ? L".undone.old.tmp" : L".old.tmp");
    }
    if (!names.empty()) {
      throw FileStepFailure(L"Read displaced RCS, kept as " + names, kept_.front().code);
    }
  }

  void RequireOwn(std::wstring_view security_refusal, std::wstring_view content_refusal) {
    if (IsMissing("rcs")) {
      throw Refusal(content_refusal);
    }
    if (!HasOwnSecurity()) {
      throw Refusal(security_refusal);
    }
    const Finding now = FindContent("rcs");
    if (now.content == Content::Unreadable) {
      throw FileStepFailure(L"Read RCS", now.code);
    }
    if (now.content != Content::New) {
      throw Refusal(content_refusal);
    }
  }

  bool HasOwnSecurity() {
    try {
      return own_securities_.contains(ReadSecurity("rcs"));
    } catch (const Failure&) {
      return false;
    }
  }

  bool HasSecurityOf(std::string_view role) {
    try {
      const unsigned now = ReadSecurity("rcs");
      return now == ReadSecurity(role);
    } catch (const Failure&) {
      return false;
    }
  }

  void DeleteWorkingFiles() {
    if (script_.IsDead() || !new_ || (state_ != State::Untouched && IsMissing("rcs"))) {
      return;
    }
    Delete("temp");
    if (recovery_) {
      Delete(*recovery_);
    }
    for (const std::string_view displaced : {"displaced", "undone"}) {
      const Content content = FindContent(displaced).content;
      const bool is_kept =
          state_ == State::Superseded ||
          std::ranges::any_of(kept_, [&](const Kept& kept) { return kept.role == displaced; });
      if (!is_kept && (content == Content::Old || content == Content::New)) {
        Delete(displaced);
      }
    }
  }

  ModelFile* File(std::string_view role) {
    const auto file = world_.files.find(role);
    return file == world_.files.end() ? nullptr : &file->second;
  }

  ModelWorld& world_;
  RunScript& script_;
  const ModelFile opened_;
  std::set<unsigned> own_securities_ = {opened_.security};
  std::optional<std::string> planned_;
  std::optional<std::string> new_;
  State state_ = State::Untouched;
  std::optional<std::string_view> recovery_;
  struct Kept {
    std::string_view role;
    Code code = 0;
  };
  std::vector<Kept> kept_;
  bool has_directory_ = false;
};

}  // namespace

// The world

void ModelWorld::Begin(std::string_view rcs,
                       const std::optional<std::vector<RegistryValue>>& new_values) {
  files.clear();
  files["rcs"].text = rcs;
  values = new_values;
  log.clear();
  list_writes.clear();
  is_read_only = false;
}

std::unique_ptr<Store> ModelWorld::Open(RunScript& script) {
  // Every run has a directory of its own for its backups.
  for (const char* backup : {"saved", "values", "instance", "security"}) {
    files.erase(backup);
  }
  log.clear();
  return std::make_unique<ModelStore>(*this, script);
}

Remains ModelWorld::Look() {
  Remains remains;
  for (const auto& [role, file] : files) {
    if (role == "rcs") {
      remains.rcs = file.text;
      remains.security = file.security;
    } else if (role == "saved") {
      remains.saved = file.text;
    } else if (role != "values" && role != "instance" && role != "security") {
      remains.left[role] = file.text;
    }
  }
  remains.values = values;
  remains.log = log;
  return remains;
}

void ModelWorld::SetFile(std::string_view role, std::optional<std::string_view> text) {
  if (text) {
    files[std::string(role)].text = *text;
  } else if (const auto file = files.find(role); file != files.end()) {
    files.erase(file);
  }
}

void ModelWorld::MarkSecurity(std::string_view role, SecurityMark mark) {
  if (const auto file = files.find(role); file != files.end()) {
    file->second.security |= mark;
  }
}

void ModelWorld::SetEntry(const wchar_t* name, const wchar_t* text) {
  if (!values) {
    values.emplace();
  }
  std::erase_if(*values, [&](const RegistryValue& value) { return value.name == name; });
  if (text != nullptr) {
    values->push_back(TextEntry(name, text));
  }
}

}  // namespace altium_registration
