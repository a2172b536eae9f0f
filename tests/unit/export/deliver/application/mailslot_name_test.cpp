#include "export/deliver/application/mailslot_name.h"

#include <gtest/gtest.h>

#include <cwctype>
#include <string>

#include "common/text/text.h"

namespace kestrune {
namespace {

std::wstring Name(const std::wstring& number) {
  return std::wstring(kMailslotPrefix) + number;
}

TEST(ListenerProcessId, ReadsTheNumberAfterThePrefix) {
  EXPECT_EQ(ListenerProcessId(L"TAVORIN.Kestrune.1234"), 1234U);
  EXPECT_EQ(ListenerProcessId(Name(L"0001")), 1U);
  EXPECT_EQ(ListenerProcessId(Name(L"4294967294")), 4294967294U);
}

TEST(ListenerProcessId, ThereIsNoneInAnyOtherName) {
  for (const wchar_t* number :
       {L"", L"1234abc", L"abc", L" 1", L"1 ", L"-1", L"+1", L"1.0", L"\u0661", L"4294967295",
        L"4294967296", L"42949672950", L"99999999999999999999999999", L"0"}) {
    EXPECT_EQ(ListenerProcessId(Name(number)), 0U) << Utf8FromWide(number);
  }
  EXPECT_EQ(ListenerProcessId(L""), 0U);
  EXPECT_EQ(ListenerProcessId(L"1234"), 0U);
  EXPECT_EQ(ListenerProcessId(L"tavorin.Kestrune.1234"), 0U);
  EXPECT_EQ(ListenerProcessId(L"TAVORIN.Kestrune1234"), 0U);
  EXPECT_EQ(ListenerProcessId(L" TAVORIN.Kestrune.1234"), 0U);
}

TEST(IsMailslotName, TakesPrefixAndDigitsOfAnyNumber) {
  EXPECT_TRUE(IsMailslotName(Name(L"1")));
  EXPECT_TRUE(IsMailslotName(Name(L"0")));
  EXPECT_TRUE(IsMailslotName(Name(L"4294967295")));
  EXPECT_TRUE(IsMailslotName(Name(std::wstring(300, L'9'))));
}

TEST(IsMailslotName, RefusesEverythingElse) {
  for (const wchar_t* name :
       {L"", L"1", L"TAVORIN.Kestrune.", L"TAVORIN.Kestrune.1234abc", L"tavorin.kestrune.1",
        L"TAVORIN.Kestrune. 1", L"TAVORIN.Kestrune.1\\x", L"TAVORIN.Kestrune.-1"}) {
    EXPECT_FALSE(IsMailslotName(name));
  }
}

TEST(IsMailslotName, AcceptsTheDigitsOfTheLibrary) {
  for (wchar_t c = 1; c < 0xFFFF; ++c) {
    ASSERT_EQ(IsMailslotName(Name(std::wstring(1, c))),
              std::iswdigit(static_cast<std::wint_t>(c)) != 0);
  }
}

TEST(MailslotName, EveryNameWithProcessIsSendableName) {
  for (const wchar_t* number : {L"1", L"77", L"4294967294", L"00012"}) {
    EXPECT_NE(ListenerProcessId(Name(number)), 0U);
    EXPECT_TRUE(IsMailslotName(Name(number)));
  }
}

}  // namespace
}  // namespace kestrune
