#include "export/deliver/application/mailslot_notice_win32.h"

#include "common/text/ordinal.h"
#include "common/places/process_user_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/text_win32.h"
#include "export/deliver/application/mailslot_name.h"

namespace kestrune {
namespace {

constexpr std::size_t kLongestMessage = 32767;  // bytes; the size of a listener's buffer
constexpr DWORD kLongestImagePath = 32768;      // UTF-16 units, the longest path of Windows

bool IsRunning(SystemCalls& calls, HANDLE process) {
  return calls.WaitForEnd(process, 0) == WAIT_TIMEOUT;
}

bool IsInOurSession(SystemCalls& calls, DWORD process_id) {
  DWORD theirs = 0;
  DWORD ours = 0;
  return calls.GetSession(process_id, &theirs) && calls.GetSession(GetCurrentProcessId(), &ours) &&
         theirs == ours;
}

bool HasImage(SystemCalls& calls, HANDLE process, const std::wstring& executable_path) {
  std::wstring image(kLongestImagePath, L'\0');
  DWORD length = kLongestImagePath;
  if (!calls.GetImagePath(process, image.data(), &length)) {
    return false;
  }
  image.resize(length);
  return EqualIgnoringCase(image, executable_path);
}

bool IsOurUsers(SystemCalls& calls, HANDLE process) {
  ProcessUser theirs;
  ProcessUser ours;
  return theirs.Read(calls, process) && ours.Read(calls, GetCurrentProcess()) &&
         EqualSid(theirs.Sid(), ours.Sid());
}

}  // namespace

bool VerifyListenerProcess(SystemCalls& calls, HANDLE process, std::uint32_t process_id,
                           const std::wstring& executable_path) {
  return process != nullptr && calls.GetId(process) == process_id && IsRunning(calls, process) &&
         IsInOurSession(calls, process_id) && HasImage(calls, process, executable_path) &&
         IsOurUsers(calls, process);
}

bool SendMailslotNotice(const std::wstring& mailslot_name, const std::wstring& argument_line,
                        Desktop& desktop) {
  std::string message;
  return IsMailslotName(mailslot_name) && AnsiFromWide(argument_line, message) &&
         !message.empty() && message.size() <= kLongestMessage &&
         desktop.SendToMailslot(mailslot_name, message);
}

bool SendToRunningInstance(const Doors& doors, const std::wstring& mailslot_name,
                           const std::wstring& argument_line, const std::wstring& executable_path) {
  KernelHandle process;
  if (const DWORD process_id = ListenerProcessId(mailslot_name); process_id != 0) {
    process.Reset(
        doors.system.OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, process_id));
    if (VerifyListenerProcess(doors.system, process.Get(), process_id, executable_path)) {
      doors.desktop.AllowForeground(process_id);
    }
  }
  return SendMailslotNotice(mailslot_name, argument_line, doors.desktop);
}

}  // namespace kestrune
