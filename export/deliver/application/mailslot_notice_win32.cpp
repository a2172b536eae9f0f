#include "export/deliver/application/mailslot_notice_win32.h"

#include "common/text/ordinal.h"
#include "common/system/owners_win32.h"
#include "common/text/text_win32.h"
#include "export/deliver/application/mailslot_name.h"

namespace kestrune {
namespace {

constexpr std::size_t kLongestMessage = 32767;  // bytes; the size of a listener's buffer
constexpr DWORD kLongestImagePath = 32768;      // UTF-16 units, the longest path of Windows

bool IsRunning(HANDLE process) {
  return WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
}

bool IsInOurSession(DWORD process_id, Desktop& desktop) {
  DWORD theirs = 0;
  DWORD ours = 0;
  return desktop.ReadSession(process_id, theirs) &&
         desktop.ReadSession(GetCurrentProcessId(), ours) && theirs == ours;
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

bool VerifyListenerProcess(HANDLE process, std::uint32_t process_id,
                           const std::wstring& executable_path, Desktop& desktop) {
  return process != nullptr && GetProcessId(process) == process_id && IsRunning(process) &&
         IsInOurSession(process_id, desktop) && HasImage(process, executable_path) &&
         desktop.IsOurUsers(process);
}

bool SendMailslotNotice(const std::wstring& mailslot_name, const std::wstring& argument_line,
                        Desktop& desktop) {
  std::string message;
  return IsMailslotName(mailslot_name) && AnsiFromWide(argument_line, message) &&
         !message.empty() && message.size() <= kLongestMessage &&
         desktop.SendToMailslot(mailslot_name, message);
}

bool SendToRunningInstance(const std::wstring& mailslot_name, const std::wstring& argument_line,
                           const std::wstring& executable_path, Desktop& desktop) {
  KernelHandle process;
  if (const DWORD process_id = ListenerProcessId(mailslot_name); process_id != 0) {
    process.Reset(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
    if (VerifyListenerProcess(process.Get(), process_id, executable_path, desktop)) {
      desktop.AllowForeground(process_id);
    }
  }
  return SendMailslotNotice(mailslot_name, argument_line, desktop);
}

}  // namespace kestrune
