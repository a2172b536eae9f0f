#include "export/finalize_win32.h"

// Modes still to be written; each answers its failure code.
namespace kestrune {

int FinalizeExport(const std::wstring&, const std::wstring&, std::optional<std::int64_t>) {
  return 4;
}

std::wstring FinalizeFailureMessage() {
  return L"ODB++ export finalization failed.";
}

}  // namespace kestrune
