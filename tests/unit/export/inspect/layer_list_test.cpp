#include "export/inspect/layer_list.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

InspectedLayer Layer(const std::string& type, const std::string& name) {
  return {{type, name, "", ""}, FeaturesSize::Known, 7, LayerContent::Some};
}

std::string WrittenName(const std::string& name) {
  const std::string text = WriteLayerList({0, {Layer("", name)}});
  const std::string_view begin = "VERSION=1\r\nSTEPS=0\r\nLAYER=|";
  const std::string_view end = "|||7|some\r\nEND\r\n";
  EXPECT_TRUE(text.starts_with(begin));
  EXPECT_TRUE(text.ends_with(end));
  return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

TEST(LayerList, HasOneLinePerFactAndEnd) {
  LayerList list{2, {Layer("SIGNAL", "TOP")}};
  list.layers.push_back({{"DRILL", "D", "TOP", "BOT"}, FeaturesSize::Known, 0, LayerContent::None});
  list.layers.push_back(
      {{"DOCUMENT", "P", "", ""}, FeaturesSize::PackedTwice, 9, LayerContent::Unknown});
  list.layers.push_back({{"", "GONE", "", ""}});
  EXPECT_EQ(WriteLayerList(list),
            "VERSION=1\r\nSTEPS=2\r\n"
            "LAYER=SIGNAL|TOP|||7|some\r\n"
            "LAYER=DRILL|D|TOP|BOT|0|none\r\n"
            "LAYER=DOCUMENT|P|||packed|unknown\r\n"
            "LAYER=|GONE|||absent|none\r\n"
            "END\r\n");
}

TEST(LayerList, SizesAbove4GiBAreExact) {
  LayerList list{1, {Layer("SIGNAL", "A")}};
  list.layers[0].size = 0xFFFFFFFFFFFFFFFF;
  EXPECT_NE(WriteLayerList(list).find("|18446744073709551615|"), std::string::npos);
}

TEST(LayerList, NamesCannotBreakALine) {
  EXPECT_EQ(WrittenName("comp_+_top.1-2 ~!"), "comp_+_top.1-2 ~!");
  EXPECT_EQ(WrittenName("a|b%c\rd\ne\x7F"), "a%7Cb%25c%0Dd%0Ae%7F");
}

TEST(LayerList, NamesAreUtf8) {
  EXPECT_EQ(WrittenName("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x99\x82"),
            "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x99\x82");
  EXPECT_EQ(WrittenName("\xE4"), "%E4");
  EXPECT_EQ(WrittenName("x\xC3|\xE2\x82"), "x%C3%7C%E2%82");
}

TEST(LayerList, FailureHasReasonAndEnd) {
  EXPECT_EQ(WriteInspectionFailure(L"Not \u00E4."), "VERSION=1\r\nERROR=Not \xC3\xA4.\r\nEND\r\n");
}

TEST(LayerSummary, KnownTypesAreCountedOthersTogether) {
  const LayerList list{3,
                       {Layer("DRILL", "a"), Layer("Signal", "b"), Layer("", "c"),
                        Layer("SIGNAL", "d"), Layer("INVENTED", "e")}};
  EXPECT_EQ(SummarizeLayers(list), L"Steps=3 Layers=5 DRILL=1 SIGNAL=2 OTHER=2");
  EXPECT_EQ(SummarizeLayers({}), L"Steps=0 Layers=0");
}

}  // namespace
}  // namespace kestrune
