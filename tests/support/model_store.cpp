#include "tests/support/model_store.h"

#include <algorithm>
#include <utility>

#include "common/failure.h"
#include "common/ordinal.h"
#include "common/text.h"
#include "registration/step_failure.h"

namespace altium_registration {
namespace {

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
  if (!dead_) {
    world_.temporary.reset();
  }
}

std::wstring ModelStore::FailureText(std::string_view operation) {
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

void ModelStore::Act(const std::string& operation, const std::function<void()>& effect) {
  const std::string call = operation + "#" + std::to_string(++counts_[operation]);
  calls_.push_back(call);
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
  const bool dies = fault->kind == FaultKind::DieBefore || fault->kind == FaultKind::DieAfter;
  if (fault->kind == FaultKind::FailAfter || fault->kind == FaultKind::DieAfter) {
    effect();
  }
  if (dies) {
    dead_ = true;
    throw ProcessDeath{};
  }
  throw kestrune::Failure{FailureText(operation), 5};
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
  Act("CreateBackups", [&] {
    if (world_.rcs != rcs) {
      throw Refusal(L"Backup/source mismatch.");
    }
    Mutate("backups");
    world_.backup = rcs;
    AppendLog("Before");
  });
}

void ModelStore::PrepareReplacement(std::string_view new_text) {
  Act("Prepare", [&] {
    Mutate("temp");
    world_.temporary = new_text;
    AppendLog("Intended");
  });
}

std::string ModelStore::ReadReplacement() {
  std::string bytes;
  Act("ReadReplacement", [&] { bytes = world_.temporary.value(); });
  return bytes;
}

void ModelStore::CommitReplacement() {
  Act("Commit", [&] {
    if (world_.rcs != opened_rcs_) {
      throw Refusal(L"Source metadata/content changed.");
    }
    if (world_.security != opened_security_) {
      throw Refusal(L"Source security changed or was not preserved.");
    }
    Mutate("replace");
    committed_rcs_ = world_.temporary.value();
    world_.rcs = std::exchange(world_.temporary, std::nullopt);
    world_.security = "of the replacement";
    replaced_ = true;
    RestoreRcsSecurity();
  });
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

void ModelStore::RollBackRcs() {
  Act("RollBack", [&] {
    if (world_.security != opened_security_ && world_.security != "of the replacement") {
      throw Refusal(L"Concurrent/unknown RCS security change; refusing rollback overwrite.");
    }
    if (world_.rcs != committed_rcs_) {
      throw Refusal(L"Concurrent RCS change; refusing rollback overwrite.");
    }
    Mutate("restore");
    world_.rcs = world_.backup;
    world_.security = "of the recovery file";
    RestoreRcsSecurity();
  });
}

void ModelStore::AppendLog(std::string_view line) {
  Act("Log", [&] { world_.log.emplace_back(line); });
}

void ModelStore::RestoreRcsSecurity() {
  Act("RestoreSecurity", [&] {
    Mutate("dacl");
    world_.security = opened_security_;
  });
}

}  // namespace altium_registration
