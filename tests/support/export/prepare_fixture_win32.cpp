#include "tests/support/export/prepare_fixture_win32.h"

#include "common/text/path.h"
#include "common/text/text_win32.h"
#include "tests/support/export/output_job_reader.h"

namespace kestrune {

void PrepareFixture::SetUp() {
  ExportTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) {
    return;
  }
  board_ = PutScratch(L"Main.PcbDoc", board_bytes_);
  list_ = PutScratch(L"dependencies.txt", "");
  manifest_ = PutScratch(
      L"layers.txt",
      "PlotKey=PlotTopLayerPlot\r\nPlotKey=PlotBottomLayerPlot\r\nPlotKey=PlotKeepOutLayerPlot\r\n"
      "LayerName=Mechanical Layer 1\r\n");
  output_job_ = JoinPath(folders_.runtime, L"Bridge.OutJob");
  PutFile(output_job_, SmallOutputJob());
}

void PrepareFixture::Depend(const std::vector<std::wstring>& paths) const {
  std::string text;
  for (const std::wstring& path : paths) {
    std::string bytes;
    EXPECT_TRUE(AnsiFromWide(path, bytes));
    text += bytes + "\r\n";
  }
  PutFile(list_, text);
}

std::wstring PrepareFixture::PutScratch(std::wstring_view name, std::string_view bytes) const {
  PutFile(Scratch(name), bytes);
  return Scratch(name);
}

RunOutcome PrepareFixture::RunPrepare(const std::wstring& status) const {
  return RunKestrune(L"--prepare " + Quoted(board_) + L" " + Quoted(list_) + L" " +
                     Quoted(manifest_) + (status.empty() ? L"" : L" " + Quoted(status)));
}

std::wstring PrepareFixture::InTemporary(std::wstring_view name) const {
  return JoinPath(folders_.temporary, name);
}

std::string PrepareFixture::BeginEntry(int dependencies) const {
  return Entry(L"Prepare begin", L"SourcePCB=" + board_ + L" Temp=" + folders_.temporary +
                                     L" Runtime=" + folders_.runtime + L" Dependencies=" +
                                     std::to_wstring(dependencies));
}

}  // namespace kestrune
