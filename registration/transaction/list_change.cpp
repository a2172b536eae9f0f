#include "registration/transaction/list_change.h"

#include <utility>

#include "registration/transaction/global_projects.h"
#include "registration/transaction/step_failure.h"

namespace altium_registration {
namespace {

/// The key is read again before each step only up to this number of values; with more values this
/// would take minutes.
constexpr std::size_t kMostValuesReadBeforeEachStep = 256;

constexpr std::wstring_view kChanged = L"Registry changed concurrently.";

}  // namespace

void RequireValues(Store& store, const std::vector<RegistryValue>& expected) {
  if (!SameValues(store.ReadGlobalProjects(), expected)) {
    throw Refusal(kChanged);
  }
}

void ListChange::Apply(std::vector<ListStep> steps) {
  steps_ = std::move(steps);
  for (const ListStep& step : steps_) {
    RequireUndisturbed();
    ++begun_;
    Perform(step);
    ++done_;
  }
}

std::vector<RegistryValue> ListChange::OwnContent() const {
  const std::vector<RegistryValue> found = store_.ReadGlobalProjects();
  for (std::size_t count = done_; count <= begun_; ++count) {
    std::vector<RegistryValue> own = ContentAfter(from_, steps_, count);
    if (SameValues(found, own)) {
      return own;
    }
  }
  throw Refusal(kChanged);
}

/// Throws when another program has changed the key. Skips the first step, for which the caller has
/// checked this.
void ListChange::RequireUndisturbed() const {
  if (done_ > 0 && from_.size() + done_ <= kMostValuesReadBeforeEachStep) {
    RequireValues(store_, ContentAfter(from_, steps_, done_));
  }
}

void ListChange::Perform(const ListStep& step) {
  if (step.removes) {
    store_.RemoveGlobalProjectsValue(step.value.name);
  } else {
    store_.WriteGlobalProjectsValue(step.value);
  }
}

}  // namespace altium_registration
