#include "registration/global_projects.h"

#include <gtest/gtest.h>

namespace altium_registration {
namespace {

TEST(GlobalProjects, AbsentKeyPlansOneEntry) {
  std::vector<RegistryValue> plan;
  std::wstring error;
  ASSERT_TRUE(PlanGlobalProjects({}, L"C:\\K\\Kestrune.PrjScr", true, plan, error));
  ASSERT_EQ(plan.size(), 1U);
  EXPECT_EQ(plan[0].name, L"Item0");
}

}  // namespace
}  // namespace altium_registration
