// mailslot_listener.exe NAME_FILE MESSAGE_FILE COUNT TIMEOUT_MS: simulates a running
// application that receives exports.
//
// Opens the mailslot TAVORIN.Kestrune.<own process id>, writes that name (ASCII, no line end) to
// NAME_FILE, and receives COUNT messages. The bytes of the first go to MESSAGE_FILE unchanged,
// those of the second to MESSAGE_FILE.2, and so on. Every file appears complete.
//
// Exit code: 0 all messages were received, 1 the time was over first, 2 the mailslot or a file
// failed, 3 wrong arguments (so it ends at once when it is started with an export's argument line
// instead).
#include <windows.h>
#include <shellapi.h>

#include <string>

#include "common/system/owners_win32.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"

namespace {

/// Returns 0 when a message was received, 1 after the deadline, 2 after a failure.
int Receive(HANDLE slot, ULONGLONG deadline, std::string& message) {
  for (;;) {
    DWORD size = MAILSLOT_NO_MESSAGE;
    if (!GetMailslotInfo(slot, nullptr, &size, nullptr, nullptr)) {
      return 2;
    }
    if (size != MAILSLOT_NO_MESSAGE) {
      DWORD read = 0;
      message.resize(size);
      return ReadFile(slot, message.data(), size, &read, nullptr) && read == size ? 0 : 2;
    }
    if (GetTickCount64() >= deadline) {
      return 1;
    }
    Sleep(10);
  }
}

int Listen(const std::wstring& name_file, const std::wstring& message_file, unsigned long count,
           unsigned long timeout) {
  const ULONGLONG deadline = GetTickCount64() + timeout;
  const std::wstring name = L"TAVORIN.Kestrune." + kestrune::Decimal(GetCurrentProcessId());
  const kestrune::FileHandle slot(
      CreateMailslotW((L"\\\\.\\mailslot\\" + name).c_str(), 0, 0, nullptr));
  if (!slot || !kestrune::TryPublishFile(name_file, kestrune::Utf8FromWide(name))) {
    return 2;
  }
  for (unsigned long i = 1; i <= count; ++i) {
    std::string message;
    if (const int code = Receive(slot.Get(), deadline, message); code != 0) {
      return code;
    }
    if (!kestrune::TryPublishFile(
            i == 1 ? message_file : message_file + L"." + kestrune::Decimal(i), message)) {
      return 2;
    }
  }
  return 0;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int) {
  int count = 0;
  const kestrune::LocalMemory<wchar_t*> owner(CommandLineToArgvW(GetCommandLineW(), &count));
  wchar_t* const* const arguments = owner.Get();
  if (arguments == nullptr || count != 5) {
    return 3;
  }
  return Listen(arguments[1], arguments[2], wcstoul(arguments[3], nullptr, 10),
                wcstoul(arguments[4], nullptr, 10));
}
