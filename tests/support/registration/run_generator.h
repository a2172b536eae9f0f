#pragma once

#include <string_view>
#include <vector>

#include "tests/support/registration/registration_run.h"

namespace altium_registration {

/// Returns every single fault at these moments: each call fails, a changing one also after its
/// effect; a replacement stops in its gap or deletes the file; a written access list comes out
/// otherwise than requested.
std::vector<Disturbance> FaultsAt(const std::vector<Moment>& moments);

/// Returns the end of the process before each changing call of these moments and after it.
std::vector<Disturbance> DeathsAt(const std::vector<Moment>& moments);

/// Returns the moments of an undisturbed run, or of a disturbed one.
std::vector<Moment> MomentsOf(RegistrationWorld& world, const Scenario& scenario);

/// Returns those of the moments at which an operation begins.
std::vector<Moment> OperationsOf(RegistrationWorld& world, const Scenario& scenario);

/// A run that changes file and list, and whose end state is rejected: both must be rolled back.
inline constexpr std::string_view kLateFailure = "install; Validate#3 fails";

/// Returns the scenarios that the file of rows must have: every single fault and death of an
/// installation and of its rollback (of calls that only read, the first of an operation), and
/// another program that changes or deletes the file, the key or both before every operation of an
/// installation, of its rollback and of an idempotent run.
std::vector<Scenario> ScenariosWithRows(RegistrationWorld& world);

}  // namespace altium_registration
