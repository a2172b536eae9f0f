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
