#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "registration/rcs/toolbar_edit.h"
#include "tests/support/registration/rcs_edit.h"
#include "tests/support/registration/rcs_laws.h"
#include "tests/support/samples.h"

namespace altium_registration {
namespace {

using kestrune_tests::Edited;
using kestrune_tests::EditText;

const Spec kSpec = {"C:\\K\\Kestrune.PrjScr", "C:\\K\\i.bmp", "Export PCB through Kestrune",
                    "TLPCBToolbar", "TBPCB_StandardToolbar760"};

TEST(ToolbarSamples, InstallAndRemoveWorkOnRealFiles) {
  const auto samples = kestrune_tests::ReadSamples("rcs", ".RCS");
  if (samples.empty()) {
    GTEST_SKIP() << "The real customization files are not here.";
  }
  const std::vector<std::string> change = {"Change"};
  for (const auto& sample : samples) {
    SCOPED_TRACE(sample.name);
    const bool altered = sample.bytes.find("Change ") != std::string::npos;
    const Edited plain = EditText(sample.bytes, kSpec, true);
    EXPECT_EQ(plain.success, !altered);
    EXPECT_EQ(plain.error, altered ? L"Unknown RCS record: Change" : L"");
    EXPECT_EQ(rcs_laws::BrokenEditLaw(sample.bytes, kSpec, true, change), "");
    EXPECT_EQ(EditText(sample.bytes, kSpec, false, change).text, sample.bytes);

    const Edited installed = EditText(sample.bytes, kSpec, true, change);
    ASSERT_TRUE(installed.success);
    EXPECT_EQ(rcs_laws::BrokenEditLaw(installed.text, kSpec, false, change), "");
    const Edited removed = EditText(installed.text, kSpec, false, change);
    EXPECT_TRUE(rcs_laws::IsSubsequence(sample.bytes, removed.text));
  }
}

TEST(ToolbarSamples, RealCustomTreeReceivesExactBytes) {
  const auto samples = kestrune_tests::ReadSamples("rcs", "DXP-minimal.RCS");
  if (samples.empty()) {
    GTEST_SKIP() << "The real customization files are not here.";
  }
  const std::string tree = "Tree PCBCustom Caption='[Custom]' TopLevel='True'  ";
  const std::string& bytes = samples.front().bytes;
  const std::size_t end = bytes.find(tree) + tree.size();
  ASSERT_EQ(bytes.compare(end, 3, "End"), 0);
  EXPECT_EQ(EditText(bytes, kSpec, true).text,
            bytes.substr(0, end) + "\r\n    Link KestruneCommandLink PLID='PLKestrune' End\r\n" +
                bytes.substr(end) +
                "PL PLKestrune Command='ScriptingSystem:RunScript' "
                "Params='ProjectName=C:\\K\\Kestrune.PrjScr|ProcName=Kestrune.pas>RunKestrune' "
                "Caption='Kestrune' Image='C:\\K\\i.bmp' "
                "Description='Export PCB through Kestrune' DefaultChecked=0 End\r\n"
                "Insertion KestruneToolbar TargetID='TLPCBToolbar' "
                "RefID0='TBPCB_StandardToolbar760'\r\n"
                "    Link KestruneToolbarLink PLID='PLKestrune' End\r\n"
                "End\r\n");
}

}  // namespace
}  // namespace altium_registration
