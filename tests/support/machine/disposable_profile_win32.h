#pragma once

namespace kestrune {

/// Whether the program runs under Wine, whose profiles here are made for the tests.
bool RunsUnderWine();

/// Whether a test may change the user's profile and registry: always under Wine, on a real Windows
/// only when KESTRUNE_DISPOSABLE_PROFILE=1 says that nobody will miss them.
bool ProfileIsDisposable();

}  // namespace kestrune

/// Skips the test where the profile belongs to somebody.
#define KESTRUNE_NEEDS_DISPOSABLE_PROFILE() \
  if (!kestrune::ProfileIsDisposable())     \
  GTEST_SKIP() << "changes the user's profile; set KESTRUNE_DISPOSABLE_PROFILE=1 to allow it"
