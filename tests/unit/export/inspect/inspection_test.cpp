#include "export/inspect/inspection.h"

#include <gtest/gtest.h>

#include "tests/support/byte_source_of.h"
#include "tests/support/refusal.h"
#include "tests/support/samples.h"
#include "tests/support/export/zip_builder.h"

namespace kestrune {
namespace {

constexpr char kOneLayer[] = "STEP {\nNAME=PCB\n}\nLAYER {\nTYPE=SIGNAL\nNAME=TOP\n}\n";
constexpr char kHeadings[] = "#\n#Layer_Color=128\n#\n$0 r10\n@0 .geometry\n#Layer features\n#\n";

std::string Listed(const std::vector<ZipPart>& parts) {
  return WriteLayerList(InspectArchive(ByteSourceOf(BuildZip(parts))));
}

std::wstring InspectionRefusal(const std::vector<ZipPart>& parts) {
  return RefusalOf([&] { Listed(parts); });
}

/// Returns size and content of a layer TOP with these files.
std::string TopLayer(std::vector<ZipPart> parts, const std::string& matrix = "odb/matrix/matrix") {
  parts.insert(parts.begin(), {matrix, kOneLayer, 8});
  const std::string text = Listed(parts);
  const std::string_view begin = "VERSION=1\r\nSTEPS=1\r\nLAYER=SIGNAL|TOP|||";
  const std::string_view end = "\r\nEND\r\n";
  EXPECT_TRUE(text.starts_with(begin) && text.ends_with(end)) << text;
  return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

TEST(Inspection, ALayerWithoutFolderIsAbsent) {
  EXPECT_EQ(TopLayer({}), "absent|none");
  EXPECT_EQ(TopLayer({{"odb/steps/pcb/layers/bottom/features", "P 0 0\n"}}), "absent|none");
}

TEST(Inspection, AFolderWithoutFeaturesHasSizeZero) {
  EXPECT_EQ(TopLayer({{"odb/steps/pcb/layers/top/attrlist", "x"}}), "0|none");
  EXPECT_EQ(TopLayer({{"odb/steps/pcb/layers/top/", ""}}), "0|none");
  EXPECT_EQ(TopLayer({{"odb/steps/pcb/layers/top/features", ""}}), "0|none");
}

TEST(Inspection, AnObjectMakesContent) {
  for (const std::string object :
       {"P 0 0 0 P 0 0", "L 1 1 1 2 0 P 0", "A 1", "T 1", "B 1", "S P 0;1"}) {
    const std::string features = kHeadings + object + "\r\n";
    EXPECT_EQ(TopLayer({{"odb/steps/pcb/layers/top/features", features, 8}}),
              std::to_string(features.size()) + "|some");
  }
}

TEST(Inspection, HeadingsAloneAreNoContent) {
  const std::string features = std::string(kHeadings) + "UNITS=MM\nU MM\nF 0\n&0 text\nOB 0 0 I\n";
  EXPECT_EQ(TopLayer({{"odb/steps/pcb/layers/top/features", features}}),
            std::to_string(features.size()) + "|none");
}

TEST(Inspection, FileAbove4KiBIsContent) {
  ZipPart part{"odb/steps/pcb/layers/top/features", std::string(4097, '#'), 14, 0, "?"};
  EXPECT_EQ(TopLayer({part}), "4097|some");
  part.content.pop_back();
  EXPECT_EQ(TopLayer({part}), "4096|unknown");
  part.method = 0;
  part.packed.reset();
  EXPECT_EQ(TopLayer({part}), "4096|none");
}

TEST(Inspection, AFilePackedTwiceHasNoSize) {
  EXPECT_EQ(TopLayer({{"odb/steps/pcb/layers/top/features.Z", "??"}}), "packed|unknown");
  EXPECT_EQ(TopLayer({{"odb/steps/pcb/layers/top/features.Z", ""}}), "0|none");
}

TEST(Inspection, SeveralStepsAreAddedUp) {
  EXPECT_EQ(TopLayer({{"odb/steps/a/layers/top/features", "#234"},
                      {"odb/steps/b/layers/top/features", "P 1 1\n"},
                      {"odb/steps/c/layers/top/features", "#"}}),
            "11|some");
  EXPECT_EQ(TopLayer({{"odb/steps/a/layers/top/features.Z", "??"},
                      {"odb/steps/b/layers/top/features", "#"}}),
            "packed|unknown");
}

TEST(Inspection, RootMayHaveAnyNameOrNone) {
  EXPECT_EQ(
      TopLayer({{"Board 1/Steps/PCB/Layers/TOP/Features", "P 1 1\n"}}, "board 1/MATRIX/Matrix"),
      "6|some");
  EXPECT_EQ(TopLayer({{"steps/pcb/layers/top/features", "P 1 1\n"}}, "matrix/matrix"), "6|some");
  EXPECT_EQ(
      TopLayer({{"odb\\steps\\pcb\\layers\\top\\features", "P 1 1\n"}}, "odb\\matrix\\matrix"),
      "6|some");
  EXPECT_EQ(TopLayer({{"other/steps/pcb/layers/top/features", "P 1 1\n"}}), "absent|none");
}

TEST(Inspection, PathsThatLeadElsewhereCountForNothing) {
  for (const std::string path :
       {"odb/../odb/steps/pcb/layers/top/features", "/odb/steps/pcb/layers/top/features",
        "C:/odb/steps/pcb/layers/top/features", "odb//steps/pcb/layers/top/features",
        "odb/./steps/pcb/layers/top/features", "../odb/steps/pcb/layers/top/features",
        "odb/steps/pcb/layers/top/features/x", "odb/steps/pcb/layers/top"}) {
    EXPECT_EQ(TopLayer({{path, "P 1 1\n"}}),
              path == "odb/steps/pcb/layers/top/features/x" ? "0|none" : "absent|none")
        << path;
  }
  EXPECT_EQ(InspectionRefusal({{"../matrix/matrix", kOneLayer}}),
            L"The archive has no ODB++ matrix (matrix/matrix).");
  EXPECT_EQ(InspectionRefusal({{"a/b/matrix/matrix", kOneLayer}}),
            L"The archive has no ODB++ matrix (matrix/matrix).");
}

TEST(Inspection, TwoTablesAreRefused) {
  EXPECT_EQ(InspectionRefusal({{"a/matrix/matrix", kOneLayer}, {"b/matrix/matrix", kOneLayer}}),
            L"The archive has two ODB++ matrices.");
}

TEST(Inspection, TwoLayersOfOneNameAreRefused) {
  EXPECT_EQ(InspectionRefusal({{"matrix/matrix", "LAYER {\nNAME=a\n}\nLAYER {\nNAME=A\n}\n"}}),
            L"Two layers have the same name.");
  EXPECT_EQ(InspectionRefusal({{"matrix/matrix", "LAYER {\n}\nLAYER {\n}\n"}}), L"");
}

TEST(Inspection, MatrixAbove4MiBIsRefused) {
  ZipPart part{"matrix/matrix", "#"};
  part.size = 4 * 1024 * 1024;
  EXPECT_EQ(InspectionRefusal({part}), L"A file of the archive is damaged.");
  part.size = 4 * 1024 * 1024 + 1;
  EXPECT_EQ(InspectionRefusal({part}), L"A file of the archive is too large.");
}

TEST(Inspection, ADamagedSmallFileIsRefused) {
  ZipPart part{"odb/steps/pcb/layers/top/features", "P 1 1\n"};
  part.checksum = 1;
  EXPECT_EQ(InspectionRefusal({{"odb/matrix/matrix", kOneLayer}, part}),
            L"A file of the archive is damaged.");
}

TEST(Inspection, AtMost1024SmallFilesAreRead) {
  std::vector<ZipPart> parts;
  for (int i = 0; i < 1024; ++i) {
    parts.push_back({"odb/steps/" + std::to_string(i) + "/layers/top/features", "#"});
  }
  EXPECT_EQ(TopLayer(parts), "1024|none");
  parts.push_back({"odb/steps/last/layers/top/features", "#"});
  EXPECT_EQ(TopLayer(parts), "1025|unknown");
}

TEST(Inspection, OnlySmallFilesAreRead) {
  std::vector<ZipPart> parts = {{"odb/matrix/matrix", kOneLayer},
                                {"odb/steps/pcb/layers/top/features", std::string(500000, 'x')},
                                {"odb/steps/pcb/eda/data", std::string(500000, 'y')}};
  const ByteSource whole = ByteSourceOf(BuildZip(parts));
  std::uint64_t read = 0;
  std::size_t calls = 0;
  InspectArchive({whole.size, [&](std::uint64_t offset, std::size_t count) {
                    read += count;
                    ++calls;
                    return whole.read(offset, count);
                  }});
  EXPECT_LE(calls, 5U);
  // The end record is somewhere in the last 64 KiB.
  EXPECT_LE(read, 65536U + 1024U);
}

struct SampleList {
  const char* name;
  const char* list;
};

constexpr SampleList kSampleLists[] = {
    {"Antenna_915Mhz_ODB.zip",
     "VERSION=1\r\nSTEPS=1\r\n"
     "LAYER=COMPONENT|COMP_+_TOP|||0|none\r\n"
     "LAYER=SILK_SCREEN|TOP_OVERLAY|||4595|some\r\n"
     "LAYER=SOLDER_PASTE|TOP_PASTE|||586|some\r\n"
     "LAYER=SOLDER_MASK|TOP_SOLDER|||940|some\r\n"
     "LAYER=SIGNAL|TOP_LAYER|||6457|some\r\n"
     "LAYER=SIGNAL|BOTTOM_LAYER|||4521|some\r\n"
     "LAYER=SOLDER_MASK|BOTTOM_SOLDER|||535|some\r\n"
     "LAYER=SOLDER_PASTE|BOTTOM_PASTE|||176|none\r\n"
     "LAYER=SILK_SCREEN|BOTTOM_OVERLAY|||108|none\r\n"
     "LAYER=DRILL|DRILL|TOP_LAYER|BOTTOM_LAYER|3747|some\r\n"
     "LAYER=POWER_GROUND|INTERNAL_PLANE_1|||519|some\r\n"
     "LAYER=POWER_GROUND|INTERNAL_PLANE_2|||517|some\r\n"
     "LAYER=DRILL|DRILL_GUIDE|||106|none\r\n"
     "LAYER=DOCUMENT|KEEP-OUT_LAYER|||222|some\r\n"
     "LAYER=DOCUMENT|MECHANICAL_1|||111|none\r\n"
     "LAYER=DOCUMENT|MECHANICAL_2|||110|none\r\n"
     "LAYER=DOCUMENT|MECHANICAL_3|||108|none\r\n"
     "LAYER=DOCUMENT|MECHANICAL_4|||108|none\r\n"
     "LAYER=DOCUMENT|MECHANICAL_8|||108|none\r\n"
     "LAYER=DOCUMENT|MECHANICAL_13|||710|some\r\n"
     "LAYER=DOCUMENT|MECHANICAL_14|||110|none\r\n"
     "LAYER=DOCUMENT|MECHANICAL_15|||977|some\r\n"
     "LAYER=DOCUMENT|DRILL_DRAWING|||249|some\r\n"
     "LAYER=|MULTI-LAYER|||534|some\r\n"
     "LAYER=|DIELECTRIC_1|||106|none\r\n"
     "END\r\n"},
    {"Offset_Attenuator.zip",
     "VERSION=1\r\nSTEPS=1\r\n"
     "LAYER=COMPONENT|COMP_+_TOP|||0|none\r\n"
     "LAYER=SOLDER_PASTE|TOP_PASTE|||3056|some\r\n"
     "LAYER=SILK_SCREEN|TOP_OVERLAY|||388163|some\r\n"
     "LAYER=SOLDER_MASK|TOP_SOLDER|||4490|some\r\n"
     "LAYER=SIGNAL|M1_TOP|||52521|some\r\n"
     "LAYER=DIELECTRIC|DIELECTRIC_2-3|||106|none\r\n"
     "LAYER=SIGNAL|M4_BOTTOM|||27043|some\r\n"
     "LAYER=SOLDER_MASK|BOTTOM_SOLDER|||1549|some\r\n"
     "LAYER=SILK_SCREEN|BOTTOM_OVERLAY|||1643|some\r\n"
     "LAYER=SOLDER_PASTE|BOTTOM_PASTE|||176|none\r\n"
     "LAYER=DRILL|DRILL_NON-PLATED_M4_BOTTOM-M1_TOP|M1_TOP|M4_BOTTOM|303|some\r\n"
     "LAYER=DRILL|DRILL_PLATED_M4_BOTTOM-M1_TOP|M1_TOP|M4_BOTTOM|2474|some\r\n"
     "LAYER=COMPONENT|COMP_+_BOT|||0|none\r\n"
     "LAYER=DOCUMENT|KEEP-OUT_LAYER|||1311|some\r\n"
     "LAYER=DOCUMENT|BOARD_OUTLINE|||913|some\r\n"
     "LAYER=DOCUMENT|FABRICATION|||618765|some\r\n"
     "END\r\n"}};

TEST(Inspection, SamplesGiveListsUnpackedByHand) {
  const std::vector<kestrune_tests::Sample> samples = kestrune_tests::ReadSamples("odb", ".zip");
  if (samples.empty()) {
    GTEST_SKIP() << "no samples";
  }
  ASSERT_EQ(samples.size(), std::size(kSampleLists));
  for (std::size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(samples[i].name, kSampleLists[i].name);
    EXPECT_EQ(WriteLayerList(InspectArchive(ByteSourceOf(samples[i].bytes))), kSampleLists[i].list);
  }
}

}  // namespace
}  // namespace kestrune
