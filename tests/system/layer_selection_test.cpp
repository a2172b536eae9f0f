// The output job made by `--prepare`, read as the host reads it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "common/text/path.h"
#include "common/text/text.h"
#include "tests/support/export/output_job_reader.h"
#include "tests/support/export/prepare_fixture_win32.h"
#include "tests/support/samples_win32.h"

namespace kestrune {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAreArray;

class LayerSelectionTest : public PrepareTest {
 protected:
  /// Returns this configuration line after `--prepare`.
  std::string Rewritten(const std::string& configuration, const std::string& manifest) {
    PutFile(output_job_, "[Group]\r\nConfiguration1_Item1=" + configuration);
    PutFile(manifest_, manifest);
    EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
    const std::string bytes = FileBytes(InTemporary(L"Bridge.OutJob"));
    const std::string before = "[Group]\r\nConfiguration1_Item1=";
    EXPECT_TRUE(bytes.starts_with(before));
    return bytes.substr(std::min(before.size(), bytes.size()));
  }

  /// Returns the changes that the last preparation logged.
  std::vector<std::string> Changes() const {
    const std::string stage = "Stage: ODB plot field changed | ";
    std::vector<std::string> changes;
    for (const std::string& entry : Log()) {
      if (entry.starts_with("Stage: Prepare begin")) {
        changes.clear();
      } else if (entry.starts_with(stage)) {
        changes.push_back(entry.substr(stage.size()));
      }
    }
    return changes;
  }
};

TEST_F(LayerSelectionTest, ExactlyTheManifestsLayersAreOn) {
  ASSERT_TRUE(EndsSilentlyWith(0, Prepare()));
  const OutputConfiguration configuration =
      ReadOutputConfiguration(FileBytes(InTemporary(L"Bridge.OutJob")));
  ASSERT_TRUE(configuration.found);
  EXPECT_THAT(configuration.LayersSwitchedOn(),
              ElementsAre("Mechanical Layer 1", "BottomLayer", "KeepOutLayer", "TopLayer"));
}

TEST_F(LayerSelectionTest, AddToAllPlotsIsSwitchedOff) {
  EXPECT_EQ(Rewritten("AddToAllPlots_A=True|AddToAllPlots_B=False|AddToAllPlots_C=false|"
                      "AddToAllPlots_XPlot=1|addtoallplots_D=True",
                      "PlotKey=AddToAllPlots_XPlot\n"),
            "AddToAllPlots_A=False|AddToAllPlots_B=False|AddToAllPlots_C=False|"
            "AddToAllPlots_XPlot=False|addtoallplots_D=True");
  EXPECT_THAT(Changes(), ElementsAre("AddToAllPlots_A=False", "AddToAllPlots_C=False",
                                     "AddToAllPlots_XPlot=False"));
}

TEST_F(LayerSelectionTest, PlotKeysMatchWholeIgnoringCase) {
  EXPECT_EQ(Rewritten("PlotXPlot=False", "PlotKey=plotxplot\n"), "PlotXPlot=True");
  EXPECT_EQ(Rewritten("PlotXPlot=False", "PlotKey=PLOTXPLOT"), "PlotXPlot=True");
  EXPECT_EQ(Rewritten("PlotXPlot=True", "PlotKey=X\nPlotKey=PlotX\n"), "PlotXPlot=False");
  EXPECT_EQ(Rewritten("PlotXPlot=True", "plotkey=PlotXPlot\n"), "PlotXPlot=False");
}

TEST_F(LayerSelectionTest, PlotFieldsHaveCaseSensitiveEnds) {
  EXPECT_EQ(Rewritten("plotXPlot=False|PlotXplot=False|Plot=False|PlotX=False",
                      "PlotKey=plotXPlot\nPlotKey=PlotXplot\nPlotKey=Plot\nPlotKey=PlotX\n"),
            "plotXPlot=False|PlotXplot=False|Plot=True|PlotX=False");
}

TEST_F(LayerSelectionTest, NumberedLayerIsMatchedByReducedName) {
  const std::string off = "Plot_V7_3=False|Plot_V7_3_name=Bottom Layer";
  const std::string on = "Plot_V7_3=True|Plot_V7_3_name=Bottom Layer";
  for (const char* name : {"bottom_layer", "BOTTOM-LAYER", "BottomLayer", " b o t t o m layer "}) {
    EXPECT_EQ(Rewritten(off, std::string("LayerName=") + name), on) << name;
  }
  for (const char* name : {"Bottom Layer 1", "Bottom", "", "\xC4"}) {
    EXPECT_EQ(Rewritten(on, std::string("LayerName=") + name), off) << name;
  }
}

TEST_F(LayerSelectionTest, NameFieldMayFollowOrPrecedeLayer) {
  EXPECT_EQ(Rewritten("Plot_V7_1_name=A|Plot_V7_1=False|Plot_V7_2=False|Plot_V7_2_name=B",
                      "LayerName=a\nLayerName=b"),
            "Plot_V7_1_name=A|Plot_V7_1=True|Plot_V7_2=True|Plot_V7_2_name=B");
}

TEST_F(LayerSelectionTest, PlotAtBothEndsIsMatchedWhole) {
  EXPECT_EQ(Rewritten("Plot_V7_Plot=False|Plot_V7_Plot_name=Top", "LayerName=Top"),
            "Plot_V7_Plot=False|Plot_V7_Plot_name=Top");
  EXPECT_EQ(Rewritten("Plot_V7_Plot=False|Plot_V7_Plot_name=Top", "PlotKey=plot_v7_plot"),
            "Plot_V7_Plot=True|Plot_V7_Plot_name=Top");
}

TEST_F(LayerSelectionTest, AnEmptyManifestSwitchesEveryLayerOff) {
  EXPECT_EQ(Rewritten("PlotAPlot=True|Plot_V7_1=True|Plot_V7_1_name=B|Other=True", ""),
            "PlotAPlot=False|Plot_V7_1=False|Plot_V7_1_name=B|Other=True");
}

TEST_F(LayerSelectionTest, EveryOtherByteStaysAsItWas) {
  const std::string before = std::string("\xEF\xBB\xBF\0\x1A\xC4", 6) + "junk=1\nX";
  const std::string after =
      "\r\n[Next]\nConfiguration1_Item1=PlotAPlot=False\rConfiguration1_Item2=PlotAPlot=False";
  PutFile(output_job_, before + "Configuration1_Item1=||a|=b|PlotAPlot=|c=d=e|\xFF=\xFE|" + after);
  PutFile(manifest_, "PlotKey=PlotAPlot");
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.OutJob")),
            before + "Configuration1_Item1=||a|=b|PlotAPlot=True|c=d=e|\xFF=\xFE|" + after);
  EXPECT_THAT(Changes(), ElementsAre("PlotAPlot=True"));
}

TEST_F(LayerSelectionTest, ALongerNumberIsAnotherConfiguration) {
  PutFile(output_job_,
          "Configuration1_Item10=PlotAPlot=False\nConfiguration1_Item1=PlotAPlot=False\n");
  PutFile(manifest_, "PlotKey=PlotAPlot");
  EXPECT_TRUE(EndsSilentlyWith(0, Prepare()));
  EXPECT_EQ(FileBytes(InTemporary(L"Bridge.OutJob")),
            "Configuration1_Item10=PlotAPlot=False\nConfiguration1_Item1=PlotAPlot=True\n");
}

TEST_F(LayerSelectionTest, WithoutChangesFileAndLogStayEqual) {
  EXPECT_EQ(Rewritten("PlotAPlot=True|AddToAllPlots_A=False", "PlotKey=PlotAPlot"),
            "PlotAPlot=True|AddToAllPlots_A=False");
  EXPECT_TRUE(Changes().empty());
  EXPECT_FALSE(Exists(InTemporary(L"Bridge.OutJob.tmp")));
}

TEST_F(LayerSelectionTest, ByteOrderMarkHidesOnlyFirstKey) {
  EXPECT_EQ(Rewritten("PlotAPlot=True|PlotBPlot=False",
                      "\xEF\xBB\xBFPlotKey=PlotAPlot\r\n \tPlotKey \t= PlotBPlot \t\r\n"),
            "PlotAPlot=False|PlotBPlot=True");
}

/// Returns the text before and after the configuration line of an output job.
std::pair<std::string, std::string> Surroundings(const std::string& bytes) {
  const std::string key = "Configuration1_Item1=";
  const std::size_t begin = bytes.find(key) + key.size();
  const std::size_t end = std::min(bytes.find_first_of("\r\n", begin), bytes.size());
  return {bytes.substr(0, begin), bytes.substr(end)};
}

TEST_F(LayerSelectionTest, RealJobsChangeOnlyInPlotFields) {
  KESTRUNE_NEEDS_SAMPLES();
  PutFile(manifest_,
          "PlotKey=PlotTopLayerPlot\nPlotKey=PlotBottomSolderPlot\nLayerName=Mechanical Layer 17\n"
          "LayerName=Mechanical Layer 31\n");
  int rewritten = 0;
  for (const std::wstring& sample : SampleFiles(L"outjob")) {
    SCOPED_TRACE(Utf8FromWide(sample));
    const std::string before = FileBytes(sample);
    PutFile(output_job_, before);
    if (before.find("Configuration1_Item1=") == std::string::npos) {
      EXPECT_TRUE(EndsSilentlyWith(8, Prepare()));
      EXPECT_EQ(FileBytes(InTemporary(L"Bridge.OutJob")), before);
      continue;
    }
    ++rewritten;
    ASSERT_TRUE(EndsSilentlyWith(0, Prepare()));
    const std::string after = FileBytes(InTemporary(L"Bridge.OutJob"));
    EXPECT_EQ(Surroundings(after), Surroundings(before));
    const OutputConfiguration old_fields = ReadOutputConfiguration(before);
    const OutputConfiguration new_fields = ReadOutputConfiguration(after);
    ASSERT_EQ(new_fields.fields.size(), old_fields.fields.size());
    std::vector<std::string> changed;
    for (std::size_t i = 0; i < old_fields.fields.size(); ++i) {
      const auto& [key, value] = new_fields.fields[i];
      EXPECT_EQ(key, old_fields.fields[i].first);
      if (value != old_fields.fields[i].second) {
        EXPECT_TRUE(key.starts_with("AddToAllPlots_") || key.starts_with("Plot")) << key;
        changed.push_back(key + "=" + value);
      }
      if (key.starts_with("AddToAllPlots_")) {
        EXPECT_EQ(value, "False") << key;
      }
    }
    EXPECT_EQ(Changes(), changed);
    for (const std::string& layer : new_fields.LayersSwitchedOn()) {
      EXPECT_TRUE(layer == "TopLayer" || layer == "BottomSolder" ||
                  layer == "Mechanical Layer 17" || layer == "Mechanical Layer 31")
          << layer;
    }
  }
  EXPECT_GT(rewritten, 10);
}

}  // namespace
}  // namespace kestrune
