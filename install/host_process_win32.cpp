#include "install/host_process_win32.h"

#include <windows.h>
#include <tlhelp32.h>

#include "common/owners_win32.h"
#include "install/host_product.h"

namespace kestrune {

bool IsHostRunning() {
  const FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  if (!snapshot || !Process32FirstW(snapshot.Get(), &entry)) {
    return false;
  }
  do {
    if (NamesHostProgram(entry.szExeFile)) {
      return true;
    }
  } while (Process32NextW(snapshot.Get(), &entry));
  return false;
}

}  // namespace kestrune
