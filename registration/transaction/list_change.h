#pragma once

#include <cstddef>
#include <vector>

#include "registration/transaction/list_steps.h"
#include "registration/transaction/registry_value.h"
#include "registration/transaction/store.h"

namespace altium_registration {

/// Throws "Registry changed concurrently." unless the Global Projects key has exactly these values.
void RequireValues(Store& store, const std::vector<RegistryValue>& expected);

/// Changes the Global Projects key step by step, and records which steps were begun and done.
class ListChange {
 public:
  /// `from` is the content of the key before the first step.
  ListChange(Store& store, const std::vector<RegistryValue>& from) : store_(store), from_(from) {}

  /// Performs the steps on the key, whose content the caller has just verified. Throws the failure
  /// of a step, and "Registry changed concurrently." when another program has changed the key
  /// between two steps.
  void Apply(std::vector<ListStep> steps);

  [[nodiscard]] bool HasBegun() const { return begun_ > 0; }

  /// Returns the content that these steps left in the key. A failed step may or may not have taken
  /// effect. Throws "Registry changed concurrently." for any other content, which is another
  /// program's.
  [[nodiscard]] std::vector<RegistryValue> OwnContent() const;

 private:
  void RequireUndisturbed() const;
  void Perform(const ListStep& step);

  Store& store_;
  const std::vector<RegistryValue>& from_;
  std::vector<ListStep> steps_;
  std::size_t begun_ = 0;
  std::size_t done_ = 0;
};

}  // namespace altium_registration
