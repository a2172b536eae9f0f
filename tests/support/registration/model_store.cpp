#include "tests/support/registration/model_store.h"

#include <algorithm>
#include <utility>

#include "common/failure/failure.h"
#include "common/text/ordinal.h"
#include "common/text/text.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

constexpr const char* kReplacementSecurity = "of the replacement";
constexpr const char* kRecoverySecurity = "of the recovery file";
/// What Windows makes of a DACL that does not read back as it was written.
constexpr const char* kReadBackSecurity = "as read back";

std::vector<RegistryValue>::iterator FindValue(std::vector<RegistryValue>& values,
                                               const std::wstring& name) {
  return std::ranges::find_if(values, [&](const RegistryValue& value) {
    return kestrune::EqualIgnoringCase(value.name, name);
  });
}

}  // namespace

ModelStore::ModelStore(ModelWorld& world, std::vector<ModelFault> faults, Interference interference)
    : world_(world),
      faults_(std::move(faults)),
      interference_(std::move(interference)),
      opened_rcs_(world.rcs.value_or(std::string())),
      opened_security_(world.security) {}

ModelStore::~ModelStore() {
  if (!dead_ && world_.rcs) {
    world_.temporary.reset();
    if (owns_recovery_) {
      world_.recovery.reset();
    }
    if (!lost_ || world_.rcs == opened_rcs_) {
      world_.displaced.reset();
    }
  }
}

std::wstring ModelStore::FailureText(std::string_view operation, FaultPlace place) {
  static const std::map<std::pair<std::string_view, FaultPlace>, std::wstring> kPartialTexts = {
      {{"CreateBackups", FaultPlace::HalfWay}, L"Write registry backup (Win32 112)"},
      {{"Prepare", FaultPlace::HalfWay}, L"Write recovery/temp file (Win32 112)"},
      {{"Commit", FaultPlace::HalfWay}, L"Replace RCS (Win32 1176)"},
      {{"Commit", FaultPlace::InGap}, L"Replace RCS (Win32 1177)"},
      {{"Commit", FaultPlace::Gone}, L"Replace RCS (Win32 1177)"},
      {{"RollBack", FaultPlace::HalfWay}, L"Restore RCS (Win32 1176)"},
      {{"RollBack", FaultPlace::InGap}, L"Restore RCS (Win32 1177)"},
      {{"RestoreSecurity", FaultPlace::HalfWay}, L"RCS security readback mismatch."},
  };
  if (const auto text = kPartialTexts.find({operation, place}); text != kPartialTexts.end()) {
    return text->second;
  }
  static const std::map<std::string_view, std::wstring> kTexts = {
      {"ReadRcs", L"Open RCS (Win32 32)"},
      {"ReadValues", L"Open Global Projects (registry 5)"},
      {"CreateBackups", L"Backup RCS (Win32 80)"},
      {"Prepare", L"Create recovery/temp file (Win32 5)"},
      {"ReadReplacement", L"Read RCS (Win32 23)"},
      {"Commit", L"Replace RCS (Win32 1175)"},
      {"CheckSecurity", L"Read RCS security (Win32 5)"},
      {"WriteValue", L"Write Global Projects value (registry 5)"},
      {"RemoveValue", L"Remove Global Projects value (registry 5)"},
      {"RollBack", L"Restore RCS (Win32 5)"},
      {"Log", L"Cannot write operation log."},
      {"RestoreSecurity", L"Restore exact RCS DACL (Win32 5)"},
  };
  return kTexts.at(operation);
}

void ModelStore::Act(const std::string& operation, const Effect& effect, Effects partial) {
  if (dead_) {
    throw ProcessDeath{};
  }
  const std::string call = operation + "#" + std::to_string(++counts_[operation]);
  calls_.push_back(call);
  Effects effects = std::move(partial);
  effects[FaultPlace::Before] = [] {};
  effects[FaultPlace::After] = effect;
  for (const auto& [place, ignored] : effects) {
    offered_.push_back({call, place});
  }
  if (interference_) {
    interference_(call, world_);
  }
  const auto fault =
      std::ranges::find_if(faults_, [&](const ModelFault& f) { return f.call == call; });
  if (fault == faults_.end()) {
    effect();
    return;
  }
  ++struck_;
  effects.at(fault->place)();
  if (fault->dies) {
    dead_ = true;
    throw ProcessDeath{};
  }
  throw kestrune::Failure{FailureText(operation, fault->place), 5};
}

std::string ModelStore::ReadRcs() {
  std::string bytes;
  Act("ReadRcs", [&] {
    if (!world_.rcs) {
      throw FileStepFailure(L"Open RCS", 2);
    }
    bytes = *world_.rcs;
  });
  return bytes;
}

std::vector<RegistryValue> ModelStore::ReadGlobalProjects() {
  std::vector<RegistryValue> values;
  Act("ReadValues", [&] { values = world_.values; });
  return values;
}

void ModelStore::CreateBackups(std::string_view rcs, const std::vector<RegistryValue>&) {
  const auto begin = [&] {
    if (world_.rcs != rcs) {
      throw Refusal(L"Backup/source mismatch.");
    }
    // What dead runs left: the displaced file goes to the backups.
    world_.temporary.reset();
    world_.displaced.reset();
    Mutate("backups");
  };
  Act("CreateBackups",
      [&] {
        begin();
        world_.backup = rcs;
        AppendLog("Before");
      },
      {{FaultPlace::HalfWay, begin}});
}

void ModelStore::PrepareReplacement(std::string_view new_text) {
  Act("Prepare",
      [&] {
        Mutate("temp");
        world_.temporary = new_text;
        AppendLog("Intended");
      },
      {{FaultPlace::HalfWay, [&] {
          Mutate("temp");
          world_.temporary = new_text.substr(0, new_text.size() / 2);
        }}});
}

std::string ModelStore::ReadReplacement() {
  std::string bytes;
  Act("ReadReplacement", [&] { bytes = world_.temporary.value(); });
  return bytes;
}

void ModelStore::RequireCommittable() const {
  if (world_.rcs != opened_rcs_) {
    throw Refusal(L"Source metadata/content changed.");
  }
  if (world_.security != opened_security_) {
    throw Refusal(L"Source security changed or was not preserved.");
  }
}

/// The first of the two renames of a replacement, which stays alone.
void ModelStore::MoveAway() {
  RequireCommittable();
  Mutate("away");
  replaced_ = lost_ = true;
  world_.displaced = std::exchange(world_.rcs, std::nullopt);
}

/// The whole replacement, without what has to follow it.
void ModelStore::PutNewTextInPlace() {
  RequireCommittable();
  Mutate("replace");
  committed_rcs_ = world_.temporary.value();
  replaced_ = true;
  world_.displaced = std::exchange(world_.rcs, std::exchange(world_.temporary, std::nullopt));
  world_.security = kReplacementSecurity;
}

void ModelStore::CommitReplacement() {
  Act("Commit",
      [&] {
        PutNewTextInPlace();
        world_.displaced.reset();
        RestoreRcsSecurity();
      },
      {{FaultPlace::HalfWay, [&] { PutNewTextInPlace(); }},
       {FaultPlace::InGap, [&] { MoveAway(); }},
       {FaultPlace::Gone, [&] {
          MoveAway();
          world_.displaced.reset();
        }}});
}

void ModelStore::CheckSourceSecurity() {
  Act("CheckSecurity", [&] {
    if (world_.security != opened_security_) {
      throw Refusal(L"Source security changed or was not preserved.");
    }
  });
}

void ModelStore::WriteGlobalProjectsValue(const RegistryValue& value) {
  Act("WriteValue", [&] {
    Mutate("+" + kestrune::Utf8FromWide(value.name));
    const auto old = FindValue(world_.values, value.name);
    if (old == world_.values.end()) {
      world_.values.push_back(value);
    } else {
      old->type = value.type;
      old->data = value.data;
    }
  });
}

void ModelStore::RemoveGlobalProjectsValue(const std::wstring& name) {
  Act("RemoveValue", [&] {
    const auto old = FindValue(world_.values, name);
    if (old == world_.values.end()) {
      throw RegistryStepFailure(L"Remove Global Projects value", 2);
    }
    Mutate("-" + kestrune::Utf8FromWide(name));
    world_.values.erase(old);
  });
}

void ModelStore::RequireOwnFile() const {
  if (lost_) {
    if (world_.rcs) {
      throw Refusal(L"Concurrent RCS change; refusing rollback overwrite.");
    }
    return;
  }
  if (world_.security != opened_security_ && world_.security != kReplacementSecurity &&
      world_.security != kReadBackSecurity) {
    throw Refusal(L"Concurrent/unknown RCS security change; refusing rollback overwrite.");
  }
  if (world_.rcs != committed_rcs_) {
    throw Refusal(L"Concurrent RCS change; refusing rollback overwrite.");
  }
}

/// The whole restoration from the backup, without what has to follow it.
void ModelStore::PutOldTextBack() {
  RequireOwnFile();
  Mutate("restore");
  if (world_.rcs) {
    world_.displaced = world_.rcs;
  }
  world_.rcs = world_.backup;
  world_.security = kRecoverySecurity;
}

/// The restoration moved the new file away or found none, and the old text stands beside its place.
void ModelStore::StopRestoringInGap() {
  RequireOwnFile();
  Mutate("recovery");
  world_.recovery = world_.backup;
  owns_recovery_ = true;
  if (world_.rcs) {
    Mutate("away");
    world_.displaced = std::exchange(world_.rcs, std::nullopt);
  }
}

void ModelStore::RollBackRcs() {
  Act("RollBack",
      [&] {
        if (lost_ && !world_.rcs && world_.displaced) {
          Mutate("back");
          world_.rcs = std::exchange(world_.displaced, std::nullopt);
          return;
        }
        PutOldTextBack();
        world_.displaced.reset();
        RestoreRcsSecurity();
      },
      {{FaultPlace::HalfWay, [&] { PutOldTextBack(); }},
       {FaultPlace::InGap, [&] { StopRestoringInGap(); }}});
}

void ModelStore::AppendLog(std::string_view line) {
  Act("Log", [&] { world_.log.emplace_back(line); },
      {{FaultPlace::HalfWay, [&] { world_.log.emplace_back(line.substr(0, 3)); }}});
}

void ModelStore::RestoreRcsSecurity() {
  const auto write = [&](const std::string& security) {
    Mutate("dacl");
    world_.security = security;
  };
  Act("RestoreSecurity", [&] { write(opened_security_); },
      {{FaultPlace::HalfWay, [&] { write(kReadBackSecurity); }}});
}

}  // namespace altium_registration
