#include "tests/support/machine/open_resources_win32.h"

#include <algorithm>
#include <cwchar>
#include <stdexcept>
#include <vector>

namespace kestrune {
namespace {

/// The information class of NtQuerySystemInformation for this list, in the layout for a 32-bit
/// program.
constexpr ULONG kExtendedHandleInformation = 64;
constexpr LONG kLengthMismatch = static_cast<LONG>(0xC0000004);

struct HandleEntry {
  void* object;
  ULONG_PTR process_id;
  ULONG_PTR handle;
  ULONG access;
  USHORT creator;
  USHORT type;
  ULONG attributes;
  ULONG reserved;
};

struct HandleListHead {
  ULONG_PTR count;
  ULONG_PTR reserved;
};

using QuerySystem = LONG(NTAPI*)(ULONG, void*, ULONG, ULONG*);

std::vector<HandleEntry> HandlesOfAllProcesses() {
  const auto query = reinterpret_cast<QuerySystem>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
  std::vector<HandleEntry> list(4096);
  for (;;) {
    const std::size_t size = list.size() * sizeof(HandleEntry);
    const LONG status = query == nullptr ? -1
                                         : query(kExtendedHandleInformation, list.data(),
                                                 static_cast<ULONG>(size), nullptr);
    if (status == kLengthMismatch) {
      list.resize(list.size() * 2);
      continue;
    }
    if (status < 0) {
      throw std::runtime_error("the system does not list its handles");
    }
    const auto* const head = reinterpret_cast<const HandleListHead*>(list.data());
    const auto* const first = reinterpret_cast<const HandleEntry*>(head + 1);
    return {first, first + head->count};
  }
}

}  // namespace

OpenResources CountOpenResources() {
  OpenResources resources;
  resources.handles = static_cast<std::size_t>(std::ranges::count(
      HandlesOfAllProcesses(), ULONG_PTR{GetCurrentProcessId()}, &HandleEntry::process_id));
  resources.gui_objects = GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS) +
                          GetGuiResources(GetCurrentProcess(), GR_USEROBJECTS);
  return resources;
}

int RepeatedRounds(int usual) {
  wchar_t text[16] = {};
  const DWORD length = GetEnvironmentVariableW(L"KESTRUNE_SOAK_ROUNDS", text, 16);
  return length > 0 && length < 16 ? static_cast<int>(std::wcstol(text, nullptr, 10)) : usual;
}

}  // namespace kestrune
