#include "tests/support/registration/registration_run.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

#include "common/text/text.h"
#include "registration/transaction/global_projects.h"
#include "tests/support/registration/plan_laws.h"

namespace altium_registration {
namespace {

constexpr std::string_view kNew = "new";
constexpr std::string_view kComplete = " Rollback complete (or no owned writes).";
constexpr std::string_view kManual = " MANUAL RECOVERY REQUIRED; backups retained.";
constexpr std::string_view kKeyBlocked = " Registry recovery blocked: ";
constexpr std::string_view kFileBlocked = " File recovery blocked: ";

/// Long sentences and the words that replace them in a row.
constexpr std::pair<std::string_view, std::string_view> kShort[] = {
    {"Commit validated; file and registry updated.", "[done]"},
    {kComplete, " [complete]"},
    {kManual, " [manual]"},
    {kKeyBlocked, " [key] "},
    {kFileBlocked, " [file] "}};

struct NamedAct {
  std::string_view name;
  void (*act)(RegistrationWorld& world);
};

constexpr NamedAct kActs[] = {
    {"file changes", [](RegistrationWorld& world) { world.SetFile("rcs", "foreign"); }},
    {"file deleted", [](RegistrationWorld& world) { world.SetFile("rcs", std::nullopt); }},
    {"file becomes ours", [](RegistrationWorld& world) { world.SetFile("rcs", kNew); }},
    {"file read-only", [](RegistrationWorld& world) { world.MakeReadOnly(); }},
    {"owner changes", [](RegistrationWorld& world) { world.MarkSecurity("rcs", kOtherOwner); }},
    {"group changes", [](RegistrationWorld& world) { world.MarkSecurity("rcs", kOtherGroup); }},
    {"dacl changes", [](RegistrationWorld& world) { world.MarkSecurity("rcs", kOtherDacl); }},
    {"temp owner changes",
     [](RegistrationWorld& world) { world.MarkSecurity("temp", kOtherOwner); }},
    {"temp group changes",
     [](RegistrationWorld& world) { world.MarkSecurity("temp", kOtherGroup); }},
    {"temp dacl changes", [](RegistrationWorld& world) { world.MarkSecurity("temp", kOtherDacl); }},
    {"recovery owner changes",
     [](RegistrationWorld& world) { world.MarkSecurity("recovery", kOtherOwner); }},
    {"temp changes", [](RegistrationWorld& world) { world.SetFile("temp", "another"); }},
    {"temp deleted", [](RegistrationWorld& world) { world.SetFile("temp", std::nullopt); }},
    {"saved changes", [](RegistrationWorld& world) { world.SetFile("saved", "damaged"); }},
    {"saved deleted", [](RegistrationWorld& world) { world.SetFile("saved", std::nullopt); }},
    {"recovery appears", [](RegistrationWorld& world) { world.SetFile("recovery", "stale"); }},
    {"list grows", [](RegistrationWorld& world) { world.SetEntry(L"Item9", L"F"); }},
    {"Item0 changes", [](RegistrationWorld& world) { world.SetEntry(L"Item0", L"F"); }},
    {"Item1 changes", [](RegistrationWorld& world) { world.SetEntry(L"Item1", L"F"); }},
    {"Item2 changes", [](RegistrationWorld& world) { world.SetEntry(L"Item2", L"F"); }},
    {"Item3 removed", [](RegistrationWorld& world) { world.SetEntry(L"Item3", nullptr); }},
    {"key deleted", [](RegistrationWorld& world) { world.DeleteKey(); }},
    {"both change",
     [](RegistrationWorld& world) {
       world.SetFile("rcs", "foreign");
       world.SetEntry(L"Item9", L"F");
     }},
};

/// Removes the text up to a separator, and the separator, from the front; returns the text.
std::string_view Take(std::string_view& text, std::string_view separator) {
  const std::size_t end = text.find(separator);
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + separator.size());
  return taken;
}

/// Splits "Name#2" into the name and the number, which is 1 by default.
std::string_view TakeNumbered(std::string_view text, int& number) {
  const std::string_view name = Take(text, "#");
  number = 1;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return name;
}

Moment ParseMoment(std::string_view text) {
  Moment moment;
  moment.operation = TakeNumbered(Take(text, "/"), moment.number);
  text = TakeNumbered(text, moment.repeat);
  moment.call = Take(text, ":");
  moment.role = text;
  return moment;
}

std::string SecurityText(unsigned marks) {
  constexpr std::pair<unsigned, const char*> kNames[] = {{kOtherOwner, " +owner"},
                                                         {kOtherGroup, " +group"},
                                                         {kOtherDacl, " +dacl"},
                                                         {kOddDacl, " +odd dacl"}};
  std::string text;
  for (const auto& [mark, name] : kNames) {
    text += (marks & mark) != 0 ? name : "";
  }
  return text;
}

/// Returns the text with the run's names of the working files replaced by fixed ones.
std::string WithoutRunNames(std::string text) {
  constexpr std::string_view kMark = ".odbpp-";
  for (std::size_t at = text.find(kMark); at != std::string::npos; at = text.find(kMark, at)) {
    at += kMark.size();
    text.replace(at, text.find_first_not_of("0123456789_", at) - at, "RUN");
  }
  return text;
}

std::string Shortened(std::string message) {
  for (const auto& [sentence, word] : kShort) {
    if (const std::size_t at = message.find(sentence); at != std::string::npos) {
      message.replace(at, sentence.size(), word);
    }
  }
  return message;
}

bool IsBackup(std::string_view role) {
  return role == "saved" || role == "values" || role == "instance" || role == "security";
}

/// Announces each operation to a script.
class ObservedStore final : public Store {
 public:
  ObservedStore(std::unique_ptr<Store> store, RunScript& script)
      : store_(std::move(store)), script_(script) {}

  std::string ReadRcs() override { return Begun("ReadRcs").ReadRcs(); }
  std::vector<RegistryValue> ReadGlobalProjects() override {
    return Begun("ReadValues").ReadGlobalProjects();
  }
  void CreateBackups(std::string_view rcs, const std::vector<RegistryValue>& values) override {
    Begun("CreateBackups").CreateBackups(rcs, values);
  }
  void PrepareReplacement(std::string_view text) override {
    Begun("Prepare").PrepareReplacement(text);
  }
  std::string ReadReplacement() override { return Begun("ReadReplacement").ReadReplacement(); }
  void CommitReplacement() override { Begun("Commit").CommitReplacement(); }
  bool HasReplacedRcs() const noexcept override { return store_->HasReplacedRcs(); }
  void CheckSourceSecurity() override { Begun("CheckSecurity").CheckSourceSecurity(); }
  void WriteGlobalProjectsValue(const RegistryValue& value) override {
    Begun("WriteValue").WriteGlobalProjectsValue(value);
  }
  void RemoveGlobalProjectsValue(const std::wstring& name) override {
    Begun("RemoveValue").RemoveGlobalProjectsValue(name);
  }
  void RollBackRcs() override { Begun("RollBack").RollBackRcs(); }
  void AppendLog(std::string_view line) override { Begun("Log").AppendLog(line); }

 private:
  Store& Begun(std::string_view operation) {
    script_.Begin(operation);
    return *store_;
  }

  std::unique_ptr<Store> store_;
  RunScript& script_;
};

std::vector<RunKind> MakeKinds() {
  const auto entry = TextEntry;
  const std::vector<RegistryValue> gaps = {entry(L"Item1", L"A"), entry(L"Item3", L"B")};
  const std::vector<RegistryValue> listed = {entry(L"Item0", L"A"), entry(L"Item1", L"B"),
                                             entry(L"Item2", L"K")};
  const std::vector<RegistryValue> twice = {entry(L"Item0", L"K"), entry(L"Item1", L"A"),
                                            entry(L"Item3", L"B"), entry(L"Item4", L"K")};
  const std::vector<RegistryValue> without = {entry(L"Item0", L"A"), entry(L"Item1", L"B")};
  return {
      {"install", "old", gaps, listed},  {"first", "old", std::nullopt, {entry(L"Item0", L"K")}},
      {"file", "old", listed, listed},   {"list", kNew, gaps, listed},
      {"remove", "old", twice, without}, {"idempotent", kNew, listed, listed}};
}

}  // namespace

// Moments and scenarios

bool Moment::IsSame(const Moment& other) const {
  return number == other.number && repeat == other.repeat && call == other.call &&
         role == other.role && operation == other.operation;
}

std::string Moment::Text() const {
  std::string text = std::string(operation) + "#" + std::to_string(number);
  if (!call.empty()) {
    text.append("/").append(call);
    text.append(role.empty() ? "" : ":").append(role);
    text.append(repeat == 1 ? "" : "#" + std::to_string(repeat));
  }
  return text;
}

std::string Scenario::Text() const {
  std::string text(kind);
  for (const Disturbance& disturbance : disturbances) {
    text.append("; ").append(disturbance.moment.Text()).append(" ").append(disturbance.what);
  }
  return text;
}

Scenario Scenario::Parse(std::string_view text) {
  Scenario scenario;
  scenario.kind = Take(text, "; ");
  while (!text.empty()) {
    std::string_view disturbance = Take(text, "; ");
    const std::string_view moment = Take(disturbance, " ");
    scenario.disturbances.push_back({ParseMoment(moment), disturbance});
  }
  return scenario;
}

// The script

RunScript::Fate RunScript::Begin(std::string_view operation) {
  const Moment moment = {operation, ++operations_[operation]};
  operation_at_ = moments_.size();
  made_.clear();
  return Pass(moment);
}

RunScript::Fate RunScript::Meet(std::string_view call, std::string_view role, bool changes) {
  const Moment& operation = moments_.at(operation_at_);
  Moment moment = {operation.operation, operation.number, call, role, 1, changes};
  for (auto& [made, count] : made_) {
    if (made.first == call && made.second == role) {
      moment.repeat = ++count;
    }
  }
  if (moment.repeat == 1) {
    made_.push_back({{call, role}, 1});
  }
  return Pass(moment);
}

RunScript::Fate RunScript::Pass(const Moment& moment) {
  if (is_dead_) {
    throw ProcessDeath{};
  }
  moments_.push_back(moment);
  if (on_moment) {
    on_moment(moment);
  }
  static constexpr std::pair<std::string_view, Fate> kFates[] = {
      {"fails", Fate::Fails},          {"fails after", Fate::FailsAfter},
      {"dies after", Fate::DiesAfter}, {"stops in the gap", Fate::InGap},
      {"loses the file", Fate::Gone},  {"comes out otherwise", Fate::Odd}};
  Fate fate = Fate::Goes;
  for (std::size_t i = 0; i < disturbances_.size(); ++i) {
    const Disturbance& disturbance = disturbances_[i];
    if (!disturbance.moment.IsSame(moment)) {
      continue;
    }
    struck_[i] = true;
    if (disturbance.what == "dies") {
      Die();
    }
    if (disturbance.what == "all fail") {
      do_all_fail_ = true;
      continue;
    }
    const auto found =
        std::ranges::find(kFates, disturbance.what, &std::pair<std::string_view, Fate>::first);
    if (found != std::end(kFates)) {
      fate = found->second;
    } else {
      act_(disturbance.what);
    }
  }
  return do_all_fail_ && !moment.call.empty() ? Fate::Fails : fate;
}

void RunScript::Die() {
  is_dead_ = true;
  throw ProcessDeath{};
}

bool RunScript::HasAllStruck() const {
  return std::ranges::all_of(struck_, [](bool struck) { return struck; });
}

// Runs

RegistryValue TextEntry(const wchar_t* name, const wchar_t* text) {
  return {name, kRegistryText, TextData(text)};
}

std::string ListText(const std::optional<std::vector<RegistryValue>>& values) {
  if (!values) {
    return "no key";
  }
  std::map<std::string, std::string> sorted;
  for (const RegistryValue& value : *values) {
    sorted[kestrune::Utf8FromWide(value.name).substr(4)] =
        kestrune::Utf8FromWide(EntryText(value).value_or(L"no text"));
  }
  std::string joined;
  for (const auto& [index, text] : sorted) {
    joined.append(joined.empty() ? "" : " ").append(index).append("=").append(text);
  }
  return joined;
}

const std::vector<RunKind>& RunKinds() {
  static const std::vector<RunKind> kKinds = MakeKinds();
  return kKinds;
}

const RunKind& KindOf(std::string_view name) {
  const auto kind = std::ranges::find(RunKinds(), name, &RunKind::name);
  if (kind == RunKinds().end()) {
    throw std::runtime_error("no kind " + std::string(name));
  }
  return *kind;
}

RegistrationChange ChangeOf(const RunKind& kind, RunScript& script) {
  RegistrationChange change;
  change.rcs_before = kind.rcs_before;
  change.rcs_after = kNew;
  change.values_before = kind.values_before.value_or(std::vector<RegistryValue>());
  change.values_after = kind.values_after;
  change.validate = [&script](std::string_view text) {
    return script.Begin("Validate") == RunScript::Fate::Goes && text == kNew;
  };
  return change;
}

std::unique_ptr<Store> Observed(std::unique_ptr<Store> store, RunScript& script) {
  return std::make_unique<ObservedStore>(std::move(store), script);
}

RunOutcome Play(RegistrationWorld& world, const Scenario& scenario) {
  const RunKind& kind = KindOf(scenario.kind);
  world.Begin(kind.rcs_before, kind.values_before);
  return Continue(world, scenario);
}

RunOutcome Continue(RegistrationWorld& world, const Scenario& scenario) {
  RunScript script(scenario.disturbances, [&](std::string_view what) {
    const auto found = std::ranges::find(kActs, what, &NamedAct::name);
    if (found == std::end(kActs)) {
      throw std::runtime_error("no act " + std::string(what));
    }
    found->act(world);
  });
  RunOutcome outcome;
  {
    const std::unique_ptr<Store> store = Observed(world.Open(script), script);
    std::wstring message;
    outcome.success = RunTransaction(*store, ChangeOf(KindOf(scenario.kind), script), message);
    outcome.message = WithoutRunNames(kestrune::Utf8FromWide(message));
    if (!script.IsDead()) {
      script.Begin("Close");
    }
  }
  outcome.died = script.IsDead();
  outcome.all_struck = script.HasAllStruck();
  outcome.moments = script.Moments();
  outcome.remains = world.Look();
  std::ranges::transform(outcome.remains.log, outcome.remains.log.begin(), WithoutRunNames);
  return outcome;
}

std::string RunOutcome::Line() const {
  std::string line = remains.rcs.value_or("missing") + SecurityText(remains.security) + " | " +
                     ListText(remains.values) + " |";
  for (const auto& [role, text] : remains.left) {
    line.append(" ").append(role).append("=").append(text);
  }
  const bool is_logged = !remains.log.empty() && remains.log.back() == message;
  return line + " | " + (died ? "(dead)" : Shortened(message)) +
         (died || is_logged ? "" : " (not logged)");
}

// Laws

std::string BrokenLaws(const RunKind& kind, const RunOutcome& outcome) {
  const Remains& remains = outcome.remains;
  const std::string& message = outcome.message;
  std::string broken;
  const auto require = [&](bool holds, const char* law) {
    if (!holds) {
      broken.append(broken.empty() ? "" : "; ").append(law);
    }
  };
  const bool is_old_file = remains.rcs == kind.rcs_before && remains.security == 0;
  const bool is_old_list = SameValues(remains.values.value_or(std::vector<RegistryValue>()),
                                      kind.values_before.value_or(std::vector<RegistryValue>()));
  const bool is_new_list =
      SameValues(remains.values.value_or(std::vector<RegistryValue>()), kind.values_after);
  const bool has_backup = remains.saved == kind.rcs_before;
  require(!remains.rcs || remains.rcs == kind.rcs_before || remains.rcs == kNew,
          "the file is whole");
  require(remains.rcs == kind.rcs_before || has_backup, "a file that is not the old one is saved");
  for (const char* entry : {"=A", "=B"}) {
    require(kind.name == "first" || ListText(remains.values).find(entry) != std::string::npos,
            "no entry is lost");
  }
  const bool is_backup_touched = std::ranges::any_of(outcome.moments, [](const Moment& moment) {
    return moment.operation != "CreateBackups" && IsBackup(moment.role) &&
           (moment.call == "Write" || moment.call == "Delete" || moment.call == "Move");
  });
  require(!is_backup_touched, "no backup is modified");
  const auto made = [&](std::string_view operation) {
    return std::ranges::find(outcome.moments, operation, &Moment::operation) !=
           outcome.moments.end();
  };
  require(made("Commit") || !made("RollBack"), "only a committed file is rolled back");
  if (outcome.died) {
    return broken;
  }
  const bool is_file_blocked = message.find(kFileBlocked) != std::string::npos;
  const bool is_key_blocked = message.find(kKeyBlocked) != std::string::npos;
  if (outcome.success) {
    require(remains.rcs == kNew && remains.security == 0 && is_new_list, "success is whole");
  } else {
    require(message.ends_with(is_file_blocked || is_key_blocked ? kManual : kComplete),
            "the ending follows from what is blocked");
    require(is_old_file || is_file_blocked, "a file that is not the old one is named");
    require(is_old_list || is_key_blocked, "a list that is not the old one is named");
    require(!message.ends_with(kManual) || has_backup, "manual recovery has its backup");
  }
  return broken;
}

}  // namespace altium_registration
