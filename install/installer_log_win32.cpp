#include "install/installer_log_win32.h"

#include <string>

#include "common/log/log_win32.h"
#include "common/text/text.h"

namespace kestrune {
namespace {

constexpr std::wstring_view kFailedStage = L"Installer failed";

}  // namespace

void InstallerLog::Failed(const Failure& failure, std::wstring_view guid) const {
  const std::wstring instance = guid.empty() ? L"" : L" GUID=" + std::wstring(guid);
  Write(kFailedStage, ErrorFields(failure) + instance + PathField(failure));
}

void InstallerLog::FailedWithoutMemory() const noexcept {
  Write(kFailedStage, L"Error=Not enough memory. GetLastError=8");
}

void InstallerLog::Skipped(std::wstring_view reason, std::wstring_view guid) const {
  Write(L"Installer skipped", L"Reason=" + std::wstring(reason) + L" GUID=" + std::wstring(guid));
}

void InstallerLog::DeploymentRefused(const Failure& refusal, std::wstring_view package) const {
  Write(kFailedStage, L"Error=" + refusal.text + refusal.subject + L" GetLastError=" +
                          Decimal(refusal.code) + L" Package=" + std::wstring(package));
}

void InstallerLog::ProgramKept(std::wstring_view package) const {
  Write(L"Installer note",
        L"The running program is the deployed one and was not replaced. Package=" +
            std::wstring(package));
}

void InstallerLog::Write(std::wstring_view stage, std::wstring_view detail) const noexcept {
  if (command_ != InstallerCommand::Status) {
    WriteLogEntry(calls_, stage, detail);
  }
}

}  // namespace kestrune
