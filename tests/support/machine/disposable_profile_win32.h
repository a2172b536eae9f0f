#pragma once

namespace kestrune {

/// Returns whether the program runs under Wine, where the profile is made for the tests.
bool RunsUnderWine();

/// Returns whether a test may change the user's profile and registry: always under Wine, on a real
/// Windows only when KESTRUNE_DISPOSABLE_PROFILE is 1.
bool ProfileIsDisposable();

}  // namespace kestrune

/// Skips the test when the profile is not disposable.
#define KESTRUNE_NEEDS_DISPOSABLE_PROFILE() \
  if (!kestrune::ProfileIsDisposable())     \
  GTEST_SKIP() << "changes the user's profile; set KESTRUNE_DISPOSABLE_PROFILE=1 to allow it"
