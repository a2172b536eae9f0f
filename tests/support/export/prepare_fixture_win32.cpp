#include "tests/support/export/prepare_fixture_win32.h"

#include "common/text/path.h"
#include "common/text/text.h"
#include "common/text/text_win32.h"
#include "tests/support/export/output_job_reader.h"

namespace kestrune {

void PrepareTest::SetUp() {
  ExportTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) {
    return;
  }
  board_ = Scratch(L"Main.PcbDoc");
  list_ = Scratch(L"dependencies.txt");
  manifest_ = Scratch(L"layers.txt");
  output_job_ = JoinPath(folders_.runtime, L"Bridge.OutJob");
  PutFile(board_, board_bytes_);
  PutFile(list_, "");
  PutFile(
      manifest_,
      "PlotKey=PlotTopLayerPlot\r\nPlotKey=PlotBottomLayerPlot\r\nPlotKey=PlotKeepOutLayerPlot\r\n"
      "LayerName=Mechanical Layer 1\r\n");
  PutFile(output_job_, SmallOutputJob());
}

void PrepareTest::Depend(const std::vector<std::wstring>& paths) const {
  std::string text;
  for (const std::wstring& path : paths) {
    std::string bytes;
    EXPECT_TRUE(AnsiFromWide(path, bytes));
    text += bytes + "\r\n";
  }
  PutFile(list_, text);
}

RunOutcome PrepareTest::Prepare() const {
  return PrepareBoard(board_);
}

RunOutcome PrepareTest::PrepareBoard(const std::wstring& board) const {
  return RunKestrune(L"--prepare " + Quoted(board) + L" " + Quoted(list_) + L" " +
                     Quoted(manifest_));
}

RunOutcome PrepareTest::PrepareWithStatus(const std::wstring& status) const {
  return RunKestrune(L"--prepare " + Quoted(board_) + L" " + Quoted(list_) + L" " +
                     Quoted(manifest_) + L" " + Quoted(status));
}

std::wstring PrepareTest::InTemporary(std::wstring_view name) const {
  return JoinPath(folders_.temporary, name);
}

std::string PrepareTest::BeginEntry(const std::wstring& board, int dependencies) const {
  return Entry(L"Prepare begin", L"SourcePCB=" + board + L" Temp=" + folders_.temporary +
                                     L" Runtime=" + folders_.runtime + L" Dependencies=" +
                                     std::to_wstring(dependencies));
}

std::string Entry(std::wstring_view stage, std::wstring_view detail) {
  std::wstring entry = L"Stage: ";
  entry += stage;
  if (!detail.empty()) {
    entry += L" | ";
    entry += detail;
  }
  return Utf8FromWide(entry);
}

}  // namespace kestrune
