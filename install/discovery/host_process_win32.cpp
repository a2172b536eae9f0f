#include "install/discovery/host_process_win32.h"

#include "common/system/owners_win32.h"
#include "install/discovery/host_product.h"

namespace kestrune {

bool IsHostRunning(SystemCalls& calls) {
  const FileHandle snapshot(calls.SnapshotProcesses());
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  if (!snapshot || !calls.FirstProcess(snapshot.Get(), &entry)) {
    return false;
  }
  do {
    if (NamesHostProgram(entry.szExeFile)) {
      return true;
    }
  } while (calls.NextProcess(snapshot.Get(), &entry));
  return false;
}

}  // namespace kestrune
