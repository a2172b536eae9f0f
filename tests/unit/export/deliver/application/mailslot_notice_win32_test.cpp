#include "export/deliver/application/mailslot_notice_win32.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "common/files/file_win32.h"
#include "common/text/text.h"
#include "common/text/text_win32.h"
#include "tests/support/export/export_fixture_win32.h"
#include "tests/support/export/mailslot_win32.h"
#include "tests/support/real_calls_win32.h"

namespace kestrune {
namespace {

std::wstring OwnImage() {
  std::wstring image(32768, L'\0');
  DWORD length = 32768;
  EXPECT_TRUE(QueryFullProcessImageNameW(GetCurrentProcess(), 0, image.data(), &length));
  image.resize(length);
  return image;
}

KernelHandle OpenListener(DWORD process_id) {
  return KernelHandle(
      OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
}

/// Reports the log-on session and the user of a listener that a test chose.
class ScriptedListener final : public SystemCalls {
 public:
  BOOL GetSession(DWORD process_id, DWORD* session) override {
    const BOOL known = SystemCalls::GetSession(process_id, session);
    *session = ++asked == 1 ? listeners_log_on : 1;
    return known;
  }
  BOOL GetTokenData(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* data, DWORD size,
                    DWORD* needed) override {
    const BOOL answer = SystemCalls::GetTokenData(token, kind, data, size, needed);
    // The listener's user is read first, then this process's.
    if (data != nullptr && ++users_read == 1 && !same_user) {
      const PSID user = static_cast<TOKEN_USER*>(data)->User.Sid;
      ++*GetSidSubAuthority(user, *GetSidSubAuthorityCount(user) - 1U);
    }
    return answer;
  }

  int asked = 0;
  int users_read = 0;
  DWORD listeners_log_on = 1;
  bool same_user = true;
};

/// Records the processes that may come to the foreground.
class NotedForeground final : public Desktop {
 public:
  void AllowForeground(DWORD process_id) override { allowed.push_back(process_id); }

  std::vector<DWORD> allowed;
};

bool Send(const std::wstring& name, const std::wstring& line) {
  Desktop desktop;
  return SendMailslotNotice(name, line, desktop);
}

bool Offer(const std::wstring& name, const std::wstring& line, const std::wstring& image) {
  Desktop desktop;
  return SendToRunningInstance({RealCalls(), desktop}, name, line, image);
}

bool Verifies(HANDLE process, DWORD id, const std::wstring& image) {
  return VerifyListenerProcess(RealCalls(), process, id, image);
}

TEST(SendMailslotNotice, LineIsOneMessageWithoutTerminator) {
  const OwnMailslot slot;
  EXPECT_TRUE(Send(slot.Name(), L"-bridge:\"x\" C:\\Out\\Main.zip"));
  EXPECT_TRUE(Send(slot.Name(), L"b"));
  EXPECT_EQ(slot.Next(), "-bridge:\"x\" C:\\Out\\Main.zip");
  EXPECT_EQ(slot.Next(), "b");
  EXPECT_EQ(slot.Next(), std::nullopt);
}

TEST(SendMailslotNotice, EncodesInTheAnsiCodePage) {
  std::string expected;
  if (!AnsiFromWide(L"C:\\B\u00F6rse\\\u20AC.zip", expected)) {
    GTEST_SKIP() << "the system's code page does not hold these characters";
  }
  const OwnMailslot slot;
  EXPECT_TRUE(Send(slot.Name(), L"C:\\B\u00F6rse\\\u20AC.zip"));
  EXPECT_EQ(slot.Next(), expected);
}

TEST(SendMailslotNotice, LineOutsideCodePageIsNotSent) {
  if (GetACP() == CP_UTF8) {
    GTEST_SKIP() << "every character exists in this code page";
  }
  const OwnMailslot slot;
  // No equivalent, a best fit (minus sign, fullwidth letter), and half a surrogate pair.
  for (const wchar_t* line : {L"C:\\\u4E2D.zip", L"C:\\a\u2212b.zip", L"C:\\\uFF21.zip"}) {
    EXPECT_FALSE(Send(slot.Name(), line));
  }
  EXPECT_FALSE(Send(slot.Name(), L"C:\\a" + std::wstring(1, wchar_t{0xD800})));
  EXPECT_EQ(slot.Next(), std::nullopt);
}

TEST(SendMailslotNotice, AMessageHas1To32767Bytes) {
  const OwnMailslot slot;
  EXPECT_FALSE(Send(slot.Name(), L""));
  EXPECT_FALSE(Send(slot.Name(), std::wstring(32768, L'a')));
  EXPECT_EQ(slot.Next(), std::nullopt);
  EXPECT_TRUE(Send(slot.Name(), std::wstring(32767, L'a')));
  EXPECT_EQ(slot.Next(), std::string(32767, 'a'));
}

TEST(SendMailslotNotice, FailsWithoutListener) {
  EXPECT_FALSE(Send(L"TAVORIN.Kestrune.4000000001", L"a"));
}

TEST(SendMailslotNotice, RefusesANameThatIsNotOurs) {
  const OwnMailslot odd(L"12x");
  EXPECT_FALSE(Send(odd.Name(), L"a"));
  EXPECT_FALSE(Send(L"TAVORIN.Kestrune.", L"a"));
  EXPECT_EQ(odd.Next(), std::nullopt);
}

TEST(SendToRunningInstance, SendsToUnverifiedProcessesToo) {
  const OwnMailslot own;
  EXPECT_TRUE(Offer(own.Name(), L"verified", OwnImage()));
  EXPECT_TRUE(Offer(own.Name(), L"other image", L"C:\\other.exe"));
  EXPECT_EQ(own.Next(), "verified");
  EXPECT_EQ(own.Next(), "other image");
  for (const wchar_t* number : {L"0", L"4294967295", L"99999999999999999999"}) {
    const OwnMailslot slot(number);
    EXPECT_TRUE(Offer(slot.Name(), L"no process", OwnImage()));
    EXPECT_EQ(slot.Next(), "no process");
  }
}

TEST(SendToRunningInstance, OnlyVerifiedListenerMayComeForward) {
  const OwnMailslot own;
  NotedForeground verified;
  EXPECT_TRUE(SendToRunningInstance({RealCalls(), verified}, own.Name(), L"a", OwnImage()));
  EXPECT_EQ(verified.allowed, std::vector<DWORD>{GetCurrentProcessId()});
  NotedForeground other_image;
  EXPECT_TRUE(
      SendToRunningInstance({RealCalls(), other_image}, own.Name(), L"b", L"C:\\other.exe"));
  EXPECT_TRUE(other_image.allowed.empty());
}

TEST(SendToRunningInstance, ListenerOfOtherUserStaysInBackground) {
  const OwnMailslot own;
  NotedForeground desktop;
  ScriptedListener other_user;
  other_user.same_user = false;
  EXPECT_TRUE(SendToRunningInstance({other_user, desktop}, own.Name(), L"other user", OwnImage()));
  ScriptedListener other_log_on;
  other_log_on.listeners_log_on = 2;
  EXPECT_TRUE(
      SendToRunningInstance({other_log_on, desktop}, own.Name(), L"other log-on", OwnImage()));
  EXPECT_TRUE(desktop.allowed.empty());
  ScriptedListener same;
  EXPECT_TRUE(SendToRunningInstance({same, desktop}, own.Name(), L"same", OwnImage()));
  EXPECT_EQ(desktop.allowed, std::vector<DWORD>{GetCurrentProcessId()});
  EXPECT_EQ(own.Next(), "other user");
  EXPECT_EQ(own.Next(), "other log-on");
}

TEST(VerifyListenerProcess, AcceptsOurOwnKindIgnoringCase) {
  const DWORD id = GetCurrentProcessId();
  const KernelHandle process = OpenListener(id);
  EXPECT_TRUE(Verifies(process.Get(), id, OwnImage()));
  EXPECT_TRUE(Verifies(process.Get(), id, LowerAscii(OwnImage())));
}

TEST(VerifyListenerProcess, RefusesOtherProcessIdOrImage) {
  const DWORD id = GetCurrentProcessId();
  const KernelHandle process = OpenListener(id);
  EXPECT_FALSE(Verifies(nullptr, id, OwnImage()));
  EXPECT_FALSE(Verifies(process.Get(), id + 4, OwnImage()));
  EXPECT_FALSE(Verifies(process.Get(), id, OwnImage() + L"x"));
  EXPECT_FALSE(Verifies(process.Get(), id, L""));
}

class MailslotListenerTest : public ExportTest {
 protected:
  /// Waits until the listener has published its file.
  std::string Published(const std::wstring& path) const {
    for (int i = 0; i < 500 && !Exists(path); ++i) {
      Sleep(20);
    }
    return FileBytes(path);
  }
};

TEST_F(MailslotListenerTest, ListenerInAnotherProcessGetsTheBytes) {
  ProgramRun listener(TestProgramPath(L"mailslot_listener"),
                      Quoted(Scratch(L"name")) + L" " + Quoted(Scratch(L"message")) + L" 2 20000");
  ASSERT_TRUE(listener.Started());
  const std::wstring name = WidenBytes(Published(Scratch(L"name")));
  EXPECT_EQ(ListenerProcessId(name), listener.Id());
  const KernelHandle process = OpenListener(listener.Id());
  EXPECT_TRUE(Verifies(process.Get(), listener.Id(), TestProgramPath(L"mailslot_listener")));
  EXPECT_FALSE(Verifies(process.Get(), listener.Id(), OwnImage()));
  EXPECT_FALSE(Verifies(OpenListener(GetCurrentProcessId()).Get(), listener.Id(), OwnImage()))
      << "another process than the one that was opened";
  EXPECT_TRUE(Offer(name, L"first \"line\"", TestProgramPath(L"mailslot_listener")));
  EXPECT_TRUE(Offer(name, L"second", L"C:\\other.exe"));
  EXPECT_EQ(Published(Scratch(L"message")), "first \"line\"");
  EXPECT_EQ(Published(Scratch(L"message.2")), "second");
  EXPECT_EQ(listener.WaitForExit(10000), 0);
  EXPECT_FALSE(Verifies(process.Get(), listener.Id(), TestProgramPath(L"mailslot_listener")))
      << "a process that has ended is no listener";
  EXPECT_FALSE(Offer(name, L"late", TestProgramPath(L"mailslot_listener")));
}

}  // namespace
}  // namespace kestrune
