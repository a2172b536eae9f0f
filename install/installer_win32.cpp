#include "install/installer_win32.h"

#include <windows.h>

#include <exception>
#include <new>
#include <vector>

#include "common/failure/failure.h"
#include "common/text/text.h"
#include "install/discovery/host_discovery_win32.h"
#include "install/discovery/host_process_win32.h"
#include "install/installer_log_win32.h"
#include "install/installer_report.h"
#include "install/instance_registration_win32.h"
#include "install/shared_runtime_win32.h"

namespace kestrune {
namespace {

/// Returns the current exception as a Failure. Throws std::bad_alloc.
Failure CurrentFailure() {
  try {
    throw;
  } catch (const Failure& failure) {
    return failure;
  } catch (const std::bad_alloc&) {
    return {kNotEnoughMemory, ERROR_NOT_ENOUGH_MEMORY};
  } catch (const std::exception& error) {
    return {L"Unexpected failure: " + WidenBytes(error.what())};
  } catch (...) {
    return {L"Unexpected failure."};
  }
}

/// Reports the current exception as the failure of the instance.
void ReportFailure(InstallerReport& report, const InstallerLog& log,
                   const HostInstance& instance) noexcept {
  try {
    const Failure failure = CurrentFailure();
    report.Fail(failure.text);
    log.Failed(failure, instance.guid);
  } catch (...) {
    report.FailWithoutMemory();
    log.FailedWithoutMemory();
  }
}

/// Handles one instance. Reports an exception as the failure of the instance, so that the other
/// instances are still handled.
void HandleOrReport(InstallerRun& run, const HostInstance& instance) noexcept {
  try {
    run.report.Append(InstanceHeader(instance));
    HandleInstance(run, instance);
  } catch (...) {
    ReportFailure(run.report, run.log, instance);
  }
}

void EndCommand(InstallerReport& report, const InstallerLog& log, InstallerCode code,
                const Failure& failure) {
  report.End(code, failure.text);
  log.Failed(failure);
}

void RunOverInstances(const InstallerOptions& options, const std::wstring& program_path,
                      SystemCalls& calls, InstallerReport& report, const InstallerLog& log) {
  const std::vector<HostInstance> instances =
      DiscoverHostInstances(calls, {options.major, options.profile});
  if (instances.empty()) {
    return EndCommand(report, log, kNoInstance, {L"No Altium instance found."});
  }
  if (options.command != InstallerCommand::Status && IsHostRunning(calls)) {
    return EndCommand(
        report, log, kHostRuns,
        {L"Close all Altium instances before changing shared runtime or registration."});
  }
  SharedRuntime runtime(calls, options, program_path, log);
  InstallerRun run{options.command, calls, runtime, report, log};
  for (const HostInstance& instance : instances) {
    HandleOrReport(run, instance);
  }
}

/// Runs the command. Throws only for unexpected reasons, such as running out of memory.
void RunOrEnd(const InstallerOptions& options, const std::wstring& program_path, SystemCalls& calls,
              InstallerReport& report, const InstallerLog& log) {
  try {
    RunOverInstances(options, program_path, calls, report, log);
  } catch (const Failure& failure) {
    EndCommand(report, log, kInstallerFailed, failure);
  }
}

}  // namespace

InstallerResult RunInstallerCommand(SystemCalls& calls, const InstallerOptions& options,
                                    const std::wstring& program_path) {
  InstallerReport report(options.command);
  const InstallerLog log(calls, options.command);
  try {
    RunOrEnd(options, program_path, calls, report, log);
  } catch (const std::bad_alloc&) {
    log.FailedWithoutMemory();
    report.EndWithoutMemory();
  }
  return report.Take();
}

}  // namespace kestrune
