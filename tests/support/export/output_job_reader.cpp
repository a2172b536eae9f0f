#include "tests/support/export/output_job_reader.h"

namespace kestrune {

std::vector<std::string> Split(std::string_view text, char separator) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator) {
      parts.emplace_back();
    } else {
      parts.back().push_back(c);
    }
  }
  return parts;
}

namespace {

std::vector<std::string> Lines(std::string_view text) {
  std::vector<std::string> lines = Split(text, '\n');
  for (std::string& line : lines) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
  }
  return lines;
}

std::pair<std::string, std::string> KeyAndValue(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    return {text, {}};
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

bool StartsAndEndsWithPlot(const std::string& key) {
  constexpr std::string_view kPlot = "Plot";
  return key.size() >= 2 * kPlot.size() && key.starts_with(kPlot) && key.ends_with(kPlot);
}

}  // namespace

std::string OutputConfiguration::Value(std::string_view key) const {
  for (const auto& [name, value] : fields) {
    if (name == key) {
      return value;
    }
  }
  return {};
}

std::vector<std::string> OutputConfiguration::LayersSwitchedOn() const {
  std::vector<std::string> layers;
  for (const auto& [key, value] : fields) {
    if (value != "True") {
      continue;
    }
    if (StartsAndEndsWithPlot(key)) {
      layers.push_back(key.substr(4, key.size() - 8));
    } else if (key.starts_with("Plot_V7_") && !key.ends_with("_name")) {
      layers.push_back(Value(key + "_name"));
    }
  }
  return layers;
}

OutputConfiguration ReadOutputConfiguration(std::string_view output_job) {
  constexpr std::string_view kKey = "Configuration1_Item1=";
  OutputConfiguration configuration;
  for (const std::string& line : Lines(output_job)) {
    if (line.starts_with(kKey)) {
      configuration.found = true;
      for (const std::string& field : Split(std::string_view(line).substr(kKey.size()), '|')) {
        configuration.fields.push_back(KeyAndValue(field));
      }
      break;
    }
  }
  return configuration;
}

std::string ProjectSection::Value(std::string_view key) const {
  for (const auto& [line_key, value] : lines) {
    if (line_key == key) {
      return value;
    }
  }
  return {};
}

std::vector<ProjectSection> ReadProject(std::string_view text) {
  std::vector<ProjectSection> sections;
  for (const std::string& line : Lines(text)) {
    if (line.size() > 2 && line.front() == '[' && line.back() == ']') {
      sections.push_back({line.substr(1, line.size() - 2), {}});
    } else if (!line.empty() && !sections.empty()) {
      sections.back().lines.push_back(KeyAndValue(line));
    }
  }
  return sections;
}

std::string SmallOutputJob() {
  return "[OutputJobFile]\r\n"
         "Version=1.0\r\n"
         "\r\n"
         "[OutputGroup1]\r\n"
         "Name=Bridge\r\n"
         "TargetOutputMedium=ODB\r\n"
         "OutputMedium1=ODB\r\n"
         "OutputMedium1_Type=GeneratedFiles\r\n"
         "OutputType1=ODB\r\n"
         "OutputName1=ODB++ Files\r\n"
         "OutputDocumentPath1=\r\n"
         "OutputEnabled1=1\r\n"
         "OutputEnabled1_OutputMedium1=1\r\n"
         "Configuration1_Name1=OutputConfigurationParameter1\r\n"
         "Configuration1_Item1=AddToAllPlots_V7_1=True|AddToAllPlots_Mechanical 1=False|"
         "Compression_zip=True|GenerateDRCRulesFile=False|ODBProfileLayer=-1000|"
         "Plot_V7_1=False|Plot_V7_1_name=Mechanical Layer 1|"
         "Plot_V7_2=True|Plot_V7_2_name=Mechanical Layer 2|"
         "Plot_V7_3=True|Plot_V7_3_name=Mechanical Layer 13|"
         "PlotBottomLayerPlot=False|PlotBottomOverlayPlot=False|PlotBottomPastePlot=True|"
         "PlotBottomSolderPlot=False|PlotKeepOutLayerPlot=True|PlotMidLayer1Plot=True|"
         "PlotTopLayerPlot=False|PlotTopOverlayPlot=True|PlotTopPastePlot=False|"
         "PlotTopSolderPlot=False\r\n"
         "\r\n"
         "[GeneratedFilesSettings]\r\n"
         "RelativeOutputPath1=ODB\r\n"
         "OpenOutputs1=0\r\n"
         "OpenODBOutput1=0\r\n";
}

}  // namespace kestrune
