#include "export/deliver/mailslot_notice_win32.h"

#include "common/ordinal.h"
#include "common/owners_win32.h"
#include "common/process_user_win32.h"
#include "common/text_win32.h"
#include "export/deliver/mailslot_name.h"

namespace kestrune {
namespace {

constexpr std::size_t kLongestMessage = 32767;  // bytes; a listener's buffer counts on it
constexpr DWORD kLongestImagePath = 32768;      // UTF-16 units, the longest path of Windows

bool IsRunning(HANDLE process) {
  return WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
}

bool IsInOurSession(DWORD process_id, ListenerCalls& calls) {
  DWORD theirs = 0;
  DWORD ours = 0;
  return calls.ReadLogOn(process_id, theirs) && calls.ReadLogOn(GetCurrentProcessId(), ours) &&
         theirs == ours;
}

bool HasImage(HANDLE process, const std::wstring& executable_path) {
  std::wstring image(kLongestImagePath, L'\0');
  DWORD length = kLongestImagePath;
  if (!QueryFullProcessImageNameW(process, 0, image.data(), &length)) {
    return false;
  }
  image.resize(length);
  return EqualIgnoringCase(image, executable_path);
}

}  // namespace

bool ListenerCalls::ReadLogOn(DWORD process_id, DWORD& log_on) {
  return ProcessIdToSessionId(process_id, &log_on) != FALSE;
}

bool ListenerCalls::IsOurUsers(HANDLE process) {
  ProcessUser theirs;
  ProcessUser ours;
  return theirs.Read(process) && ours.Read(GetCurrentProcess()) &&
         EqualSid(theirs.Sid(), ours.Sid());
}

void ListenerCalls::AllowForeground(DWORD process_id) {
  AllowSetForegroundWindow(process_id);
}

bool VerifyListenerProcess(HANDLE process, std::uint32_t process_id,
                           const std::wstring& executable_path, ListenerCalls& calls) {
  return process != nullptr && GetProcessId(process) == process_id && IsRunning(process) &&
         IsInOurSession(process_id, calls) && HasImage(process, executable_path) &&
         calls.IsOurUsers(process);
}

bool SendMailslotNotice(const std::wstring& mailslot_name, const std::wstring& argument_line) {
  std::string message;
  if (!IsMailslotName(mailslot_name) || !AnsiFromWide(argument_line, message) || message.empty() ||
      message.size() > kLongestMessage) {
    return false;
  }
  const FileHandle mailslot(CreateFileW((L"\\\\.\\mailslot\\" + mailslot_name).c_str(),
                                        GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  return mailslot &&
         WriteFile(mailslot.Get(), message.data(), static_cast<DWORD>(message.size()), &written,
                   nullptr) &&
         written == message.size();
}

bool SendToRunningInstance(const std::wstring& mailslot_name, const std::wstring& argument_line,
                           const std::wstring& executable_path, ListenerCalls& calls) {
  KernelHandle process;
  if (const DWORD process_id = ListenerProcessId(mailslot_name); process_id != 0) {
    process.Reset(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
    if (VerifyListenerProcess(process.Get(), process_id, executable_path, calls)) {
      calls.AllowForeground(process_id);
    }
  }
  return SendMailslotNotice(mailslot_name, argument_line);
}

bool SendToRunningInstance(const std::wstring& mailslot_name, const std::wstring& argument_line,
                           const std::wstring& executable_path) {
  ListenerCalls calls;
  return SendToRunningInstance(mailslot_name, argument_line, executable_path, calls);
}

}  // namespace kestrune
