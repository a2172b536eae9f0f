#include "export/inspect/layer_list.h"

#include <algorithm>
#include <array>
#include <utility>

#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kFirstLine = "VERSION=1\r\n";
constexpr std::string_view kLastLine = "END\r\n";

/// Returns the length of the UTF-8 character that `text` begins with; 0 when it begins with none.
std::size_t Utf8Length(std::string_view text) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(text.size(), 4); ++length) {
    const std::string_view character = text.substr(0, length);
    if (Utf8FromWide(WideFromUtf8(character)) == character) {
      return length;
    }
  }
  return 0;
}

void AppendEscaped(std::string& line, char byte) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto value = static_cast<unsigned char>(byte);
  line += '%';
  line += kDigits[value >> 4];
  line += kDigits[value & 15];
}

/// Returns the name with separators, control characters and invalid UTF-8 escaped.
std::string Escaped(std::string_view name) {
  std::string text;
  while (!name.empty()) {
    const char c = name.front();
    const bool plain = c >= ' ' && c <= '~' && c != '%' && c != '|';
    const std::size_t length = plain ? 1 : static_cast<signed char>(c) < 0 ? Utf8Length(name) : 0;
    if (length == 0) {
      AppendEscaped(text, c);
    } else {
      text += name.substr(0, length);
    }
    name.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return text;
}

std::string SizeText(const InspectedLayer& layer) {
  switch (layer.features) {
    case FeaturesSize::FolderAbsent:
      return "absent";
    case FeaturesSize::PackedTwice:
      return "packed";
    case FeaturesSize::Known:
      break;
  }
  return std::to_string(layer.size);
}

std::string_view ContentText(LayerContent content) {
  switch (content) {
    case LayerContent::None:
      return "none";
    case LayerContent::Some:
      return "some";
    case LayerContent::Unknown:
      break;
  }
  return "unknown";
}

std::string LayerLine(const InspectedLayer& layer) {
  std::string line = "LAYER=";
  for (const std::string& name :
       {layer.row.type, layer.row.name, layer.row.start_name, layer.row.end_name}) {
    line += Escaped(name) + '|';
  }
  line += SizeText(layer) + '|';
  line += ContentText(layer.content);
  line += kLineEnd;
  return line;
}

/// Returns the type in lower case; empty for a type that is not one of ODB++.
std::string CountedType(const std::string& type) {
  constexpr std::array<std::string_view, 12> kTypes = {
      "signal", "power_ground", "mixed",     "solder_mask", "solder_paste", "silk_screen",
      "drill",  "rout",         "component", "dielectric",  "document",     "conductive_paste"};
  const std::string lower = LowerAscii(type);
  return std::find(kTypes.begin(), kTypes.end(), lower) != kTypes.end() ? lower : std::string();
}

std::wstring UpperAscii(const std::string& text) {
  std::wstring upper;
  for (const char c : text) {
    upper += static_cast<wchar_t>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  }
  return upper;
}

}  // namespace

std::string WriteLayerList(const LayerList& list) {
  std::string text(kFirstLine);
  text += "STEPS=" + std::to_string(list.steps);
  text += kLineEnd;
  for (const InspectedLayer& layer : list.layers) {
    text += LayerLine(layer);
  }
  text += kLastLine;
  return text;
}

std::string WriteInspectionFailure(std::wstring_view reason) {
  std::string text(kFirstLine);
  text += "ERROR=" + Utf8FromWide(reason);
  text += kLineEnd;
  text += kLastLine;
  return text;
}

std::wstring SummarizeLayers(const LayerList& list) {
  std::vector<std::pair<std::string, std::size_t>> counts;
  std::size_t others = 0;
  for (const InspectedLayer& layer : list.layers) {
    const std::string type = CountedType(layer.row.type);
    const auto found = std::find_if(counts.begin(), counts.end(),
                                    [&](const auto& count) { return count.first == type; });
    if (type.empty()) {
      ++others;
    } else if (found == counts.end()) {
      counts.emplace_back(type, 1);
    } else {
      ++found->second;
    }
  }
  std::wstring text = L"Steps=" + Decimal(list.steps) + L" Layers=" + Decimal(list.layers.size());
  for (const auto& [type, count] : counts) {
    text += L' ' + UpperAscii(type) + L'=' + Decimal(count);
  }
  return others == 0 ? text : text + L" OTHER=" + Decimal(others);
}

}  // namespace kestrune
