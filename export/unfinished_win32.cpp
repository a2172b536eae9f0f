#include "export/finalize_win32.h"
#include "export/native_wait_win32.h"
#include "export/prepare_win32.h"
#include "export/window_position_win32.h"

// Modes still to be written; each answers its failure code.
namespace kestrune {

int PrepareTemporaryProject(const std::wstring&, const std::wstring&, const std::wstring&) {
  return 4;
}

int WaitForNativeOutput(const std::wstring&, const std::wstring&, const std::wstring&) {
  return 5;
}

int PositionWindow(std::uint64_t, std::uint64_t) {
  return 3;
}

int FinalizeExport(const std::wstring&, const std::wstring&, std::optional<std::int64_t>) {
  return 4;
}

std::wstring FinalizeFailureMessage() {
  return L"ODB++ export finalization failed.";
}

}  // namespace kestrune
