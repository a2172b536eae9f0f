#include "export/deliver/archive_name.h"

#include <gtest/gtest.h>

namespace kestrune {
namespace {

std::optional<std::wstring> Name(std::wstring_view name_template, std::wstring_view user = L"ann") {
  return ArchiveName(name_template, {L"Main", {2026, 3, 7, 9, 5, 2, 42}, user});
}

TEST(ArchiveName, HasBoardDateTimeAndUser) {
  EXPECT_EQ(Name(L"%BOARD%"), L"Main.zip");
  EXPECT_EQ(Name(L"%BOARD%_%DATE%_%TIME%_%USER%"), L"Main_2026-03-07_09-05-02_ann.zip");
  EXPECT_EQ(Name(L"fixed"), L"fixed.zip");
}

TEST(ArchiveName, KeepsAnEndingThatIsThere) {
  EXPECT_EQ(Name(L"%BOARD%.ZIP"), L"Main.ZIP");
  EXPECT_EQ(Name(L"%BOARD%.v2"), L"Main.v2.zip");
}

TEST(ArchiveName, UnknownPlaceholdersStayAsWritten) {
  EXPECT_EQ(Name(L"%board% %X%"), L"%board% %X%.zip");
}

TEST(ArchiveName, AValueIsNotFilledAgain) {
  EXPECT_EQ(Name(L"%USER%", L"%BOARD%"), L"%BOARD%.zip");
}

TEST(ArchiveName, RefusesWhatNoFileMayBeNamed) {
  for (const wchar_t* text :
       {L"a<b", L"a>b", L"a:b", L"a\"b", L"a|b", L"a?b", L"a*b", L"a\tb", L"a\u001Fb"}) {
    EXPECT_EQ(Name(text), std::nullopt) << text;
  }
}

TEST(ArchiveName, RefusesANameThatLeavesTheDirectory) {
  for (const wchar_t* text : {L"..\\a", L"a/b", L"C:a", L"\\\\server\\share\\a", L"sub\\a"}) {
    EXPECT_EQ(Name(text), std::nullopt) << text;
  }
  EXPECT_EQ(Name(L"%USER%", L"domain\\ann"), std::nullopt);
}

TEST(ArchiveName, RefusesAnEmptyResult) {
  EXPECT_EQ(Name(L""), std::nullopt);
  EXPECT_EQ(Name(L".zip"), std::nullopt);
  EXPECT_EQ(Name(L"%USER%", L""), std::nullopt);
}

TEST(ArchiveName, RefusesNamesOfDevices) {
  for (const wchar_t* text : {L"con", L"NUL", L"Aux.2", L"COM1", L"lpt9.x", L"nul .a"}) {
    EXPECT_EQ(Name(text), std::nullopt) << text;
  }
  EXPECT_EQ(Name(L"console"), L"console.zip");
  EXPECT_EQ(Name(L"COMA"), L"COMA.zip");
}

TEST(ArchiveName, HoldsAtMost255Units) {
  EXPECT_EQ(Name(std::wstring(251, L'a')), std::wstring(251, L'a') + L".zip");
  EXPECT_EQ(Name(std::wstring(252, L'a')), std::nullopt);
}

}  // namespace
}  // namespace kestrune
