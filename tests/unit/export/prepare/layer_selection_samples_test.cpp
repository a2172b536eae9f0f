#include <gtest/gtest.h>

#include "common/text/text.h"
#include "export/prepare/layer_selection.h"
#include "tests/support/export/layer_edit.h"
#include "tests/support/export/output_job_reader.h"
#include "tests/support/samples.h"

namespace kestrune {
namespace {

constexpr std::string_view kConfiguration = "Configuration1_Item1=";

std::string KeyOf(std::string_view field) {
  return std::string(field.substr(0, field.find('=')));
}

/// Returns the job's first configuration line, without its name.
std::string_view LineOf(std::string_view job) {
  const std::string_view rest = job.substr(job.find(kConfiguration) + kConfiguration.size());
  return rest.substr(0, rest.find_first_of("\r\n"));
}

/// Returns a manifest that names everything the line offers.
std::string ManifestOfAll(std::string_view line) {
  std::string manifest;
  for (const std::string& field : Split(line, '|')) {
    const std::string key = KeyOf(field);
    if (key.ends_with("_name")) {
      manifest += "LayerName=" + field.substr(key.size() + 1) + "\r\n";
    }
    manifest += "PlotKey=" + key + "\r\n";
  }
  return manifest;
}

class OutJobSamples : public testing::Test {
 protected:
  void SetUp() override {
    if (samples_.empty()) {
      GTEST_SKIP() << "no real output jobs here; KESTRUNE_SAMPLES names their folder";
    }
  }

  /// Selects in every sample that has a configuration, once for each kind of manifest.
  template <class Check>
  void ForEachSelection(Check check) {
    int checked = 0;
    for (const kestrune_tests::Sample& sample : samples_) {
      if (sample.bytes.find(kConfiguration) == std::string::npos) {
        EXPECT_FALSE(SelectLayers(sample.bytes, {})) << sample.name;
        continue;
      }
      for (const std::string& manifest :
           {std::string(), ManifestOfAll(LineOf(sample.bytes)),
            std::string("PlotKey=plottoplayerplot\nLayerName=TOP LAYER\nLayerName=Bottom_Layer")}) {
        SCOPED_TRACE(sample.name);
        const UsedLayers used = ParseUsedLayers(manifest);
        const std::optional<LayerSelection> selection = SelectLayers(sample.bytes, used);
        ASSERT_TRUE(selection);
        check(sample.bytes, used, *selection);
        ++checked;
      }
    }
    EXPECT_GT(checked, 0) << "no sample has a configuration line";
  }

  std::vector<kestrune_tests::Sample> samples_ = kestrune_tests::ReadSamples("outjob", ".OutJob");
};

TEST_F(OutJobSamples, OnlyValuesOfFirstConfigurationLineChange) {
  ForEachSelection([](const std::string& job, const UsedLayers&, const LayerSelection& selection) {
    const std::string edited = Applied(job, selection);
    EXPECT_EQ(edited.substr(0, selection.begin), job.substr(0, selection.begin));
    EXPECT_TRUE(std::string_view(edited).substr(0, selection.begin).ends_with(kConfiguration));
    EXPECT_TRUE(edited.ends_with(job.substr(selection.end)));
    const std::vector<std::string> before = Split(LineOf(job), '|');
    const std::vector<std::string> after = Split(LineOf(edited), '|');
    ASSERT_EQ(before.size(), after.size());
    std::size_t changed = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
      EXPECT_EQ(KeyOf(before[i]), KeyOf(after[i]));
      if (before[i] != after[i]) {
        ASSERT_LT(changed, selection.changes.size());
        const PlotFieldChange& change = selection.changes[changed++];
        EXPECT_EQ(after[i], change.field + (change.enabled ? "=True" : "=False"));
      }
    }
    EXPECT_EQ(changed, selection.changes.size());
  });
}

TEST_F(OutJobSamples, PlotFieldsFollowTheManifest) {
  ForEachSelection(
      [](const std::string& job, const UsedLayers& used, const LayerSelection& selection) {
        for (const std::string& field : Split(LineOf(Applied(job, selection)), '|')) {
          const std::string key = KeyOf(field);
          if (key.starts_with("AddToAllPlots_")) {
            EXPECT_EQ(field, key + "=False");
          } else if (key.starts_with("Plot") && key.ends_with("Plot")) {
            EXPECT_EQ(field, key + (used.plot_keys.contains(LowerAscii(key)) ? "=True" : "=False"));
          }
        }
      });
}

TEST_F(OutJobSamples, SelectingAgainChangesNothing) {
  ForEachSelection(
      [](const std::string& job, const UsedLayers& used, const LayerSelection& selection) {
        const std::optional<LayerSelection> again = SelectLayers(Applied(job, selection), used);
        ASSERT_TRUE(again);
        EXPECT_TRUE(again->changes.empty());
        EXPECT_EQ(again->value, selection.value);
      });
}

}  // namespace
}  // namespace kestrune
