// A running application that listens on its mailslot.
#include <gtest/gtest.h>

#include <string>

#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "common/text/text_win32.h"
#include "tests/support/export/after_export_fixture_win32.h"

namespace kestrune {
namespace {

class MailslotTest : public AfterExportTest {
 protected:
  /// Starts a listener as the configured application itself; its name goes into the settings.
  ProgramRun Listen() {
    listener_ = Scratch(L"Some Viewer\\listener.exe");
    EXPECT_TRUE(CopyFileW(TestProgramPath(L"mailslot_listener").c_str(), listener_.c_str(), FALSE));
    ProgramRun run(listener_, Quoted(Scratch(L"name.txt")) + L" " +
                                  Quoted(Scratch(L"message.txt")) + L" 1 120000");
    while (!Exists(Scratch(L"name.txt")) && !run.WaitForExit(10)) {
    }
    name_ = WidenBytes(FileBytes(Scratch(L"name.txt")));
    return run;
  }

  std::string Message() const { return FileBytes(Scratch(L"message.txt")); }

  std::wstring listener_;
  std::wstring name_;
};

/// Holds a mailslot of this process under any name.
class OwnSlot {
 public:
  explicit OwnSlot(const std::wstring& name)
      : slot_(CreateMailslotW((L"\\\\.\\mailslot\\" + name).c_str(), 0, 0, nullptr)) {
    EXPECT_TRUE(static_cast<bool>(slot_)) << GetLastError();
  }

  /// Returns the next message; empty when there is none.
  std::string Next() {
    DWORD size = MAILSLOT_NO_MESSAGE;
    if (!GetMailslotInfo(slot_.Get(), nullptr, &size, nullptr, nullptr) ||
        size == MAILSLOT_NO_MESSAGE) {
      return {};
    }
    std::string message(size, '\0');
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(slot_.Get(), message.data(), size, &read, nullptr));
    return message;
  }

 private:
  FileHandle slot_;
};

TEST_F(MailslotTest, RunningApplicationReceivesTheWholeLine) {
  ProgramRun listener = Listen();
  Settings(L"[Target]\nEnabled=1\nExecutablePath=" + listener_ +
           L"\nArguments=\"%ODBPP%\" é\nMailslotName=" + name_ + L"\n");
  EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
  EXPECT_EQ(listener.WaitForExit(60'000), 0);
  std::string expected;
  ASSERT_TRUE(AnsiFromWide(std::wstring(kIdentity) + L" " + Quoted(default_destination_) + L" é",
                           expected));
  EXPECT_EQ(Message(), expected);
  ExpectClipboardUntouched();
}

TEST_F(MailslotTest, TheSpacingIsPartOfTheNotice) {
  ProgramRun listener = Listen();
  PutFile(folders_.native_zip, "archive");
  Settings(L"[Target]\nEnabled=1\nExecutablePath=" + listener_ + L"\nMailslotName=" + name_ +
           L"\n");
  EXPECT_TRUE(EndsSilentlyWith(0, RunKestrune(L"--finalize-auto " + Quoted(board_) + L" 12345")));
  EXPECT_EQ(listener.WaitForExit(60'000), 0);
  EXPECT_EQ(Message(), Utf8FromWide(kIdentity) + " -space:1.2345mil");
}

TEST_F(MailslotTest, ListenerOfAnotherImageGetsTheMessage) {
  ProgramRun listener = Listen();
  Configure(L"MailslotName=" + name_);
  EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
  EXPECT_EQ(listener.WaitForExit(60'000), 0);
  EXPECT_EQ(Message(), Utf8FromWide(kIdentity));
  EXPECT_TRUE(NoRecordComes());
}

TEST_F(MailslotTest, NumberWithoutProcessGetsTheMessage) {
  for (const wchar_t* name : {L"TAVORIN.Kestrune.0", L"TAVORIN.Kestrune.4294967295",
                              L"TAVORIN.Kestrune.99999999999999999999"}) {
    OwnSlot slot(name);
    Configure(std::wstring(L"MailslotName=") + name);
    EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
    EXPECT_EQ(slot.Next(), Utf8FromWide(kIdentity));
    EXPECT_EQ(slot.Next(), "");
    EXPECT_TRUE(NoRecordComes());
  }
}

TEST_F(MailslotTest, MissingListenerIsReplacedByAStart) {
  ProgramRun listener = Listen();
  listener.Terminate();
  Configure(L"MailslotName=" + name_);
  EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
  EXPECT_TRUE(Record().has_value());
}

TEST_F(MailslotTest, InvalidNameIsNeverOpened) {
  for (const wchar_t* name : {L"TAVORIN.Kestrune.1234abc", L"tavorin.kestrune.1234",
                              L"TAVORIN.Kestrune.", L"Other.1234", L"xTAVORIN.Kestrune.1"}) {
    OwnSlot slot(name);
    Configure(std::wstring(L"MailslotName=") + name);
    EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
    EXPECT_TRUE(Record().has_value()) << Utf8FromWide(name);
    EXPECT_EQ(slot.Next(), "") << Utf8FromWide(name);
  }
}

TEST_F(MailslotTest, LineOutsideTheCodePageIsStarted) {
  for (const wchar_t* character : {L"\x2212", L"\xFF21", L"п"}) {
    OwnSlot slot(L"TAVORIN.Kestrune.7777777");
    Configure(std::wstring(L"Arguments=") + character + L"\nMailslotName=TAVORIN.Kestrune.7777777");
    EXPECT_TRUE(EndsSilentlyWith(0, Finalize()));
    const std::optional<ChildRecord> record = Record();
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->command_line,
              Quoted(application_) + L" " + std::wstring(kIdentity) + L" " + character);
    EXPECT_EQ(slot.Next(), "");
  }
}

TEST_F(MailslotTest, AFailedExportSendsNothing) {
  OwnSlot slot(L"TAVORIN.Kestrune.7777777");
  Configure(L"MailslotName=TAVORIN.Kestrune.7777777");
  ASSERT_TRUE(DeleteFileW(native_.c_str()));
  EXPECT_TRUE(EndsWithBox(4, SeeLog(), MB_ICONERROR, Finalize()));
  EXPECT_EQ(slot.Next(), "");
}

TEST_F(MailslotTest, MissingApplicationGetsNoMessage) {
  OwnSlot slot(L"TAVORIN.Kestrune.7777777");
  Settings(
      L"[Target]\nEnabled=1\nExecutablePath=C:\\none.exe\n"
      L"MailslotName=TAVORIN.Kestrune.7777777\n");
  EXPECT_TRUE(EndsWithBox(
      0, NotStarted(L"The configured after-export executable does not exist: C:\\none.exe"),
      MB_ICONINFORMATION, Finalize()));
  EXPECT_EQ(slot.Next(), "");
}

}  // namespace
}  // namespace kestrune
