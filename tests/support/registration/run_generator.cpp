#include "tests/support/registration/run_generator.h"

#include <algorithm>

namespace altium_registration {
namespace {

Scenario With(const Scenario& scenario, const Disturbance& disturbance) {
  Scenario longer = scenario;
  longer.disturbances.push_back(disturbance);
  return longer;
}

/// Appends the scenario once for each disturbance, with only this one added.
void AddEach(const Scenario& scenario, const std::vector<Disturbance>& disturbances,
             std::vector<Scenario>& scenarios) {
  for (const Disturbance& disturbance : disturbances) {
    scenarios.push_back(With(scenario, disturbance));
  }
}

/// Returns the moments after that of the scenario's last disturbance.
std::vector<Moment> After(const std::vector<Moment>& moments, const Scenario& scenario) {
  if (scenario.disturbances.empty()) {
    return moments;
  }
  const Moment& last = scenario.disturbances.back().moment;
  const auto struck =
      std::ranges::find_if(moments, [&](const Moment& moment) { return moment.IsSame(last); });
  // These are two iterators, whose moments are copied.
  // cppcheck-suppress returnDanglingLifetime
  return {std::min(struck + 1, moments.end()), moments.end()};
}

}  // namespace

std::vector<Disturbance> FaultsAt(const std::vector<Moment>& moments) {
  std::vector<Disturbance> faults;
  for (const Moment& moment : moments) {
    if (moment.call.empty()) {
      continue;
    }
    faults.push_back({moment, "fails"});
    if (moment.changes) {
      faults.push_back({moment, "fails after"});
    }
    if (moment.call == "Replace") {
      faults.push_back({moment, "stops in the gap"});
      faults.push_back({moment, "loses the file"});
    }
    if (moment.call == "SetSecurity") {
      faults.push_back({moment, "comes out otherwise"});
    }
  }
  return faults;
}

std::vector<Disturbance> DeathsAt(const std::vector<Moment>& moments) {
  std::vector<Disturbance> deaths;
  for (const Moment& moment : moments) {
    if (moment.changes) {
      deaths.push_back({moment, "dies"});
    }
    // The state after a creation is the same as that before the next call.
    if (moment.changes && moment.call != "Create") {
      deaths.push_back({moment, "dies after"});
    }
  }
  return deaths;
}

std::vector<Moment> MomentsOf(RegistrationWorld& world, const Scenario& scenario) {
  return After(Play(world, scenario).moments, scenario);
}

std::vector<Moment> OperationsOf(RegistrationWorld& world, const Scenario& scenario) {
  std::vector<Moment> moments = MomentsOf(world, scenario);
  std::erase_if(moments, [](const Moment& moment) {
    return !moment.call.empty() || moment.operation == "Close";
  });
  return moments;
}

std::vector<Scenario> ScenariosWithRows(RegistrationWorld& world) {
  std::vector<Scenario> scenarios;
  const Scenario late = Scenario::Parse(kLateFailure);
  for (const Scenario& scenario : {Scenario{"install"}, late}) {
    std::vector<Moment> moments = MomentsOf(world, scenario);
    std::erase_if(moments,
                  [](const Moment& moment) { return !moment.changes && moment.repeat > 1; });
    AddEach(scenario, FaultsAt(moments), scenarios);
    AddEach(scenario, DeathsAt(moments), scenarios);
  }
  for (const Scenario& scenario : {Scenario{"install"}, late, Scenario{"idempotent"}}) {
    for (const Moment& moment : OperationsOf(world, scenario)) {
      for (const char* what : {"file changes", "file deleted", "key deleted", "both change"}) {
        scenarios.push_back(With(scenario, {moment, what}));
      }
      scenarios.push_back(With(scenario, {moment, "all fail"}));
    }
  }
  return scenarios;
}

}  // namespace altium_registration
