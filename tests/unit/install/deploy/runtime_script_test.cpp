#include "install/deploy/runtime_script.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

TEST(ScriptTemplate, WithoutPlaceholdersStaysAsItIs) {
  const std::string script("begin\n x := '@RUNTIME_ROOT';\r\n@temp_root@ \xFF\0 x", 46);
  EXPECT_EQ(FillScriptTemplate(script, "R", "T"), script);
  EXPECT_EQ(FillScriptTemplate("", "R", "T"), "");
}

TEST(ScriptTemplate, EveryOccurrenceIsReplaced) {
  EXPECT_EQ(FillScriptTemplate("@RUNTIME_ROOT@|@TEMP_ROOT@|@TEMP_ROOT@|@RUNTIME_ROOT@", "R", "T"),
            "R|T|T|R");
  EXPECT_EQ(FillScriptTemplate("@RUNTIME_ROOT@@RUNTIME_ROOT@@TEMP_ROOT@", "R", "T"), "RRT");
}

TEST(ScriptTemplate, InsertedPathsAreNeverSearched) {
  EXPECT_EQ(FillScriptTemplate("@RUNTIME_ROOT@+@TEMP_ROOT@", "@TEMP_ROOT@", "@RUNTIME_ROOT@"),
            "@TEMP_ROOT@+@RUNTIME_ROOT@");
  // Nor does an inserted end complete a placeholder that the script only began.
  EXPECT_EQ(FillScriptTemplate("@TEMP@RUNTIME_ROOT@", "_ROOT@", "T"), "@TEMP_ROOT@");
}

TEST(ScriptTemplate, OverlappingPlaceholdersGoToRuntimeDirectoryFirst) {
  EXPECT_EQ(FillScriptTemplate("@RUNTIME_ROOT@TEMP_ROOT@", "R", "T"), "RTEMP_ROOT@");
  EXPECT_EQ(FillScriptTemplate("@TEMP_ROOT@RUNTIME_ROOT@", "R", "T"), "@TEMP_ROOTR");
}

TEST(ScriptTemplate, PathsAreInsertedVerbatim) {
  EXPECT_EQ(FillScriptTemplate("'@RUNTIME_ROOT@'", "C:\\Users\\O'Hara \xE4\\%x%", "T"),
            "'C:\\Users\\O'Hara \xE4\\%x%'");
}

TEST(IncomingScript, IsNamedAfterTheLocalTime) {
  EXPECT_EQ(IncomingScriptName({2025, 1, 31, 23, 59, 59, 42}),
            L"script-20250131_235959_042.incoming");
  EXPECT_EQ(IncomingScriptName({2026, 11, 2, 3, 4, 5, 678}),
            L"script-20261102_030405_678.incoming");
}

}  // namespace
}  // namespace kestrune
