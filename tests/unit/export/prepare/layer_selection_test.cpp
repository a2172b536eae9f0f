#include "export/prepare/layer_selection.h"

#include <gmock/gmock.h>

#include <random>

#include "tests/support/export/layer_edit.h"

namespace kestrune {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// Returns the job's text after the selection; fails the test when there is no configuration line.
std::string Select(const std::string& job, const std::string& manifest,
                   std::vector<PlotFieldChange>* changes = nullptr) {
  const std::optional<LayerSelection> selection = SelectLayers(job, ParseUsedLayers(manifest));
  if (!selection) {
    ADD_FAILURE() << "no configuration line in: " << job;
    return {};
  }
  if (changes != nullptr) {
    *changes = selection->changes;
  }
  return Applied(job, *selection);
}

/// Returns the configuration line alone.
std::string SelectFields(const std::string& fields, const std::string& manifest,
                         std::vector<PlotFieldChange>* changes = nullptr) {
  const std::string prefix = "Configuration1_Item1=";
  return Select(prefix + fields, manifest, changes).substr(prefix.size());
}

TEST(UsedLayers, CollectsPlotKeysAndLayerNames) {
  const UsedLayers used = ParseUsedLayers(
      "PlotKey=PlotTopPlot\r\nLayerName=Top Layer\r\nLayerName=TOP_LAYER\r\nPlotKey=b\r\n");
  EXPECT_THAT(used.plot_keys, UnorderedElementsAre("plottopplot", "b"));
  EXPECT_THAT(used.layer_names, UnorderedElementsAre("toplayer"));
}

TEST(UsedLayers, TrimsBlanksAroundKeyAndValue) {
  const UsedLayers used = ParseUsedLayers(" \t PlotKey \t=\t aB \r\n LayerName = x \r");
  EXPECT_THAT(used.plot_keys, UnorderedElementsAre("ab"));
  EXPECT_THAT(used.layer_names, UnorderedElementsAre("x"));
}

TEST(UsedLayers, OtherBlanksBelongToTheText) {
  EXPECT_THAT(ParseUsedLayers("PlotKey=\v a").plot_keys, UnorderedElementsAre("\v a"));
  EXPECT_THAT(ParseUsedLayers("\fPlotKey=a").plot_keys, IsEmpty());
}

TEST(UsedLayers, IgnoresWhatItDoesNotKnow) {
  const UsedLayers used = ParseUsedLayers("\nPlotKey\n\n=a\nplotkey=a\nLAYERNAME=a\nOther=a\n");
  EXPECT_THAT(used.plot_keys, IsEmpty());
  EXPECT_THAT(used.layer_names, IsEmpty());
}

TEST(UsedLayers, SplitsAtTheFirstEqualsSign) {
  EXPECT_THAT(ParseUsedLayers("PlotKey=a=b").plot_keys, UnorderedElementsAre("a=b"));
}

TEST(UsedLayers, ByteOrderMarkBelongsToFirstKey) {
  const UsedLayers used = ParseUsedLayers("\xEF\xBB\xBFPlotKey=a\nPlotKey=b");
  EXPECT_THAT(used.plot_keys, UnorderedElementsAre("b"));
}

TEST(UsedLayers, AnEmptyLayerNameIsAName) {
  EXPECT_THAT(ParseUsedLayers("LayerName=\n").layer_names, UnorderedElementsAre(""));
}

TEST(LayerName, KeepsAsciiLettersAndDigitsLowered) {
  for (const char* name : {"Top Layer", "TOP_LAYER", "top-layer", "\tTop\xC4(Layer)|"}) {
    EXPECT_EQ(NormalisedLayerName(name), "toplayer") << name;
  }
  EXPECT_EQ(NormalisedLayerName("AZ az 09 @[`{/:"), "azaz09");
  EXPECT_EQ(NormalisedLayerName("\xD0\xD1"), "");
}

TEST(LayerSelection, NeedsTheConfigurationLine) {
  EXPECT_EQ(SelectLayers("", {}), std::nullopt);
  EXPECT_EQ(SelectLayers("Configuration1_Item10=a", {}), std::nullopt);
  EXPECT_EQ(SelectLayers("Configuration1_Item1", {}), std::nullopt);
  EXPECT_EQ(SelectLayers("configuration1_item1=a", {}), std::nullopt);
}

TEST(LayerSelection, LineAtVeryEndIsFound) {
  EXPECT_EQ(Select("a\r\nConfiguration1_Item1=PlotAPlot=True", ""),
            "a\r\nConfiguration1_Item1=PlotAPlot=False");
}

TEST(LayerSelection, NameCountsAlsoInsideLongerWord) {
  EXPECT_EQ(Select("xConfiguration1_Item1=PlotAPlot=True\n", ""),
            "xConfiguration1_Item1=PlotAPlot=False\n");
}

TEST(LayerSelection, ValueEndsAtLineEnd) {
  const std::string rest = "PlotBPlot=True|PlotCPlot=True";
  for (const std::string end : {"\r\n", "\n", "\r", "\n\r"}) {
    EXPECT_EQ(Select("Configuration1_Item1=PlotAPlot=True" + end + rest, ""),
              "Configuration1_Item1=PlotAPlot=False" + end + rest);
  }
}

TEST(LayerSelection, OnlyTheFirstConfigurationLineIsTouched) {
  EXPECT_EQ(Select("Configuration1_Item10=PlotAPlot=True\nConfiguration1_Item1=PlotAPlot=True\n"
                   "Configuration1_Item1=PlotAPlot=True\n",
                   ""),
            "Configuration1_Item10=PlotAPlot=True\nConfiguration1_Item1=PlotAPlot=False\n"
            "Configuration1_Item1=PlotAPlot=True\n");
}

TEST(LayerSelection, BytesAroundLineStayAsTheyAre) {
  const std::string before("\xEF\xBB\xBF\x00\x1A\xFF\r\n|=\r\r\n", 13);
  const std::string after("\r\n\x00\x1A\x80|PlotAPlot=True", 19);
  EXPECT_EQ(Select(before + "Configuration1_Item1=PlotAPlot=True" + after, ""),
            before + "Configuration1_Item1=PlotAPlot=False" + after);
}

TEST(LayerSelection, EmptyAndMalformedFieldsStay) {
  for (const char* fields :
       {"", "|", "||", "|a||b=c|", "PlotAPlot|=|==|Plot_V7_1_name|Plot_V7_1"}) {
    std::vector<PlotFieldChange> changes;
    EXPECT_EQ(SelectFields(fields, "LayerName=\nPlotKey=PlotAPlot", &changes), fields);
    EXPECT_THAT(changes, IsEmpty());
  }
}

TEST(LayerSelection, AddToAllPlotsIsSwitchedOff) {
  std::vector<PlotFieldChange> changes;
  EXPECT_EQ(SelectFields("AddToAllPlots_A=True|AddToAllPlots_B=False|AddToAllPlots_C=false|"
                         "AddToAllPlots_=|AddToAllPlots=True|addtoallplots_D=True",
                         "LayerName=A\nPlotKey=AddToAllPlots_A", &changes),
            "AddToAllPlots_A=False|AddToAllPlots_B=False|AddToAllPlots_C=False|"
            "AddToAllPlots_=False|AddToAllPlots=True|addtoallplots_D=True");
  EXPECT_THAT(changes, ElementsAre(PlotFieldChange{"AddToAllPlots_A", false},
                                   PlotFieldChange{"AddToAllPlots_C", false},
                                   PlotFieldChange{"AddToAllPlots_", false}));
}

TEST(LayerSelection, AddToAllPlotsHasPrecedence) {
  EXPECT_EQ(SelectFields("AddToAllPlots_xPlot=True", "PlotKey=AddToAllPlots_xPlot"),
            "AddToAllPlots_xPlot=False");
  EXPECT_EQ(SelectFields("AddToAllPlots_V7_1_name=Layer 1", "LayerName=Layer 1"),
            "AddToAllPlots_V7_1_name=False");
}

TEST(LayerSelection, PlotFieldNeedsItsWholeKey) {
  for (const char* manifest : {"PlotKey=plotxplot", "PlotKey=PLOTXPLOT", "PlotKey=PlotXPlot"}) {
    EXPECT_EQ(SelectFields("PlotXPlot=False", manifest), "PlotXPlot=True") << manifest;
  }
  EXPECT_EQ(SelectFields("PlotXPlot=True", "PlotKey=X"), "PlotXPlot=False");
}

TEST(LayerSelection, PlotEndsAreExactAndMayOverlap) {
  EXPECT_EQ(SelectFields("plotxPlot=True|Plotxplot=True|PlotX=True|XPlot=True", ""),
            "plotxPlot=True|Plotxplot=True|PlotX=True|XPlot=True");
  EXPECT_EQ(SelectFields("Plot=True|PlotPlot=True", "PlotKey=plot"), "Plot=True|PlotPlot=False");
}

TEST(LayerSelection, LayerIsOnByDisplayName) {
  const std::string fields =
      "Plot_V7_3=False|Plot_V7_3_name=Bottom Layer|Plot_V7_4=True|"
      "Plot_V7_4_name=Mechanical 4";
  std::vector<PlotFieldChange> changes;
  EXPECT_EQ(SelectFields(fields, "LayerName=bottom_layer", &changes),
            "Plot_V7_3=True|Plot_V7_3_name=Bottom Layer|Plot_V7_4=False|"
            "Plot_V7_4_name=Mechanical 4");
  EXPECT_THAT(changes,
              ElementsAre(PlotFieldChange{"Plot_V7_3", true}, PlotFieldChange{"Plot_V7_4", false}));
}

TEST(LayerSelection, LayerFieldMayPrecedeOrFollowName) {
  EXPECT_EQ(SelectFields("Plot_V7_1_name=A|Plot_V7_1=False|Plot_V7_2=False|Plot_V7_2_name=A",
                         "LayerName=a"),
            "Plot_V7_1_name=A|Plot_V7_1=True|Plot_V7_2=True|Plot_V7_2_name=A");
}

TEST(LayerSelection, LayerKeysAreExact) {
  EXPECT_EQ(SelectFields("Plot_v7_1=x|Plot_V7_1 =x|Plot_V7_11=x|Plot_V7_1_name=A", "LayerName=A"),
            "Plot_v7_1=x|Plot_V7_1 =x|Plot_V7_11=x|Plot_V7_1_name=A");
}

TEST(LayerSelection, NameWithoutAsciiMatchesTheEmptyName) {
  const std::string fields = "Plot_V7_1=False|Plot_V7_1_name=\xD1\xCB\xCE\xC9";
  EXPECT_EQ(SelectFields(fields, "LayerName=\xC4\n"),
            "Plot_V7_1=True|Plot_V7_1_name=\xD1\xCB\xCE\xC9");
  EXPECT_EQ(SelectFields(fields, ""), fields);
}

TEST(LayerSelection, NameAffixesMayShareTheirBlank) {
  EXPECT_EQ(SelectFields("Plot_V7=False|Plot_V7_name=A", "LayerName=A"),
            "Plot_V7=True|Plot_V7_name=A");
}

TEST(LayerSelection, NameFieldCanItselfBeLayerField) {
  EXPECT_EQ(SelectFields("Plot_V7_1_name=B|Plot_V7_1_name_name=A", "LayerName=A"),
            "Plot_V7_1_name=True|Plot_V7_1_name_name=A");
}

TEST(LayerSelection, PlotAtBothEndsWinsOverLayer) {
  const std::string fields = "Plot_V7_Plot=False|Plot_V7_Plot_name=A";
  EXPECT_EQ(SelectFields(fields, "LayerName=A"), fields);
  EXPECT_EQ(SelectFields(fields, "PlotKey=plot_v7_plot"), "Plot_V7_Plot=True|Plot_V7_Plot_name=A");
}

TEST(LayerSelection, LastOfTwoNamesOfLayerCounts) {
  EXPECT_EQ(SelectFields("Plot_V7_1=x|Plot_V7_1_name=A|Plot_V7_1_name=B", "LayerName=B"),
            "Plot_V7_1=True|Plot_V7_1_name=A|Plot_V7_1_name=B");
  EXPECT_EQ(SelectFields("Plot_V7_1=x|Plot_V7_1_name=A|Plot_V7_1_name=B", "LayerName=A"),
            "Plot_V7_1=False|Plot_V7_1_name=A|Plot_V7_1_name=B");
}

TEST(LayerSelection, ValuesAreComparedByteByByte) {
  std::vector<PlotFieldChange> changes;
  EXPECT_EQ(SelectFields("PlotAPlot=true|PlotAPlot= True|PlotAPlot=True|PlotAPlot=",
                         "PlotKey=PlotAPlot", &changes),
            "PlotAPlot=True|PlotAPlot=True|PlotAPlot=True|PlotAPlot=True");
  EXPECT_THAT(changes,
              ElementsAre(PlotFieldChange{"PlotAPlot", true}, PlotFieldChange{"PlotAPlot", true},
                          PlotFieldChange{"PlotAPlot", true}));
}

TEST(LayerSelection, FieldsSplitAtFirstEqualsSign) {
  EXPECT_EQ(SelectFields("PlotAPlot=True=x|a=PlotAPlot=True", ""),
            "PlotAPlot=False|a=PlotAPlot=True");
}

TEST(LayerSelection, EmptyManifestSwitchesEveryPlotFieldOff) {
  EXPECT_EQ(
      SelectFields("PlotTopPlot=True|Plot_V7_1=True|Plot_V7_1_name=A|Compression_zip=True", ""),
      "PlotTopPlot=False|Plot_V7_1=False|Plot_V7_1_name=A|Compression_zip=True");
}

TEST(LayerSelection, TheOrderOfTheFieldsDecidesNothing) {
  std::vector<std::string> fields;
  std::string manifest;
  for (int i = 0; i < 150; ++i) {
    const std::string n = std::to_string(i);
    fields.push_back("Plot_V7_" + n + "=");
    if (i % 5 != 0) {
      fields.push_back("Plot_V7_" + n + "_name=Layer " + n);
    }
    if (i % 3 == 0) {
      manifest += "LayerName=LAYER_" + n + "\n";
    }
  }
  std::mt19937 random(7);
  for (int round = 0; round < 20; ++round) {
    std::string line;
    std::string expected;
    for (const std::string& field : fields) {
      const int n = std::stoi(field.substr(8));
      const std::string value = n % 5 == 0 ? "" : n % 3 == 0 ? "True" : "False";
      line += field + "|";
      expected += field.ends_with('=') ? field + value + "|" : field + "|";
    }
    EXPECT_EQ(SelectFields(line, manifest), expected);
    std::shuffle(fields.begin(), fields.end(), random);
  }
}

TEST(LayerSelection, SelectingTwiceChangesNothingMore) {
  const std::string manifest = "PlotKey=PlotAPlot\nLayerName=A";
  const std::string once = Select(
      "x\r\nConfiguration1_Item1=AddToAllPlots_1=True|PlotAPlot=|PlotBPlot=True|Plot_V7_1=False|"
      "Plot_V7_1_name=A\r\n",
      manifest);
  std::vector<PlotFieldChange> changes;
  EXPECT_EQ(Select(once, manifest, &changes), once);
  EXPECT_THAT(changes, IsEmpty());
}

}  // namespace
}  // namespace kestrune
