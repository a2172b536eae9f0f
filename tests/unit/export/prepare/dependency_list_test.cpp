#include "export/prepare/dependency_list.h"

#include <gmock/gmock.h>

#include "common/text/text.h"

namespace kestrune {
namespace {

using std::string_literals::operator""s;
using testing::ElementsAre;
using testing::IsEmpty;

/// Decodes Latin-1 in place of the code page: bytes from 80 on become other characters than in
/// UTF-8.
std::wstring DecodeLatin1(std::string_view bytes) {
  return WidenBytes(bytes);
}

std::vector<std::wstring> Parse(const std::string& bytes) {
  return ParseDependencyList(bytes, DecodeLatin1);
}

std::string Utf16(const std::wstring& text) {
  std::string bytes = "\xFF\xFE";
  for (const wchar_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  return bytes;
}

TEST(DependencyList, NamesOnePathInEachLine) {
  EXPECT_THAT(Parse("C:\\a\\One.PcbDoc\r\nC:\\b\\Two.PcbDoc\r\n"),
              ElementsAre(L"C:\\a\\One.PcbDoc", L"C:\\b\\Two.PcbDoc"));
}

TEST(DependencyList, NeedsNoLastLineEnd) {
  EXPECT_THAT(Parse("a\nb"), ElementsAre(L"a", L"b"));
}

TEST(DependencyList, SkipsEmptyLines) {
  EXPECT_THAT(Parse(""), IsEmpty());
  EXPECT_THAT(Parse("\n\r\n\n"), IsEmpty());
  EXPECT_THAT(Parse("\r\na\r\n\r\nb\r\n\r\n"), ElementsAre(L"a", L"b"));
}

TEST(DependencyList, DropsOneFinalCarriageReturn) {
  EXPECT_THAT(Parse("a\r\r\n"), ElementsAre(L"a\r"));
  EXPECT_THAT(Parse("a\rb\n"), ElementsAre(L"a\rb"));
  EXPECT_THAT(Parse("\r\r\n"), ElementsAre(L"\r"));
  EXPECT_THAT(Parse("last\r"), ElementsAre(L"last"));
}

TEST(DependencyList, KeepsBlanksForTheyBelongToNames) {
  EXPECT_THAT(Parse("  a \t\r\n \n"), ElementsAre(L"  a \t", L" "));
}

TEST(DependencyList, ReadsUtf16AfterItsMark) {
  EXPECT_THAT(Parse(Utf16(L"C:\\\u0416.PcbDoc\r\n\r\nC:\\b\r\n")),
              ElementsAre(L"C:\\\u0416.PcbDoc", L"C:\\b"));
  EXPECT_THAT(Parse("\xFF\xFE"), IsEmpty());
}

TEST(DependencyList, DropsHalfUnitOfUtf16) {
  EXPECT_THAT(Parse(Utf16(L"ab")), ElementsAre(L"ab"));
  EXPECT_THAT(Parse(Utf16(L"ab") + "c"), ElementsAre(L"ab"));
}

TEST(DependencyList, ReadsUtf8AfterItsMark) {
  EXPECT_THAT(Parse("\xEF\xBB\xBF\xC3\xA4.PcbDoc\r\n"), ElementsAre(L"\u00E4.PcbDoc"));
  EXPECT_THAT(Parse("\xEF\xBB\xBF"), IsEmpty());
}

TEST(DependencyList, WithoutMarkIsAnsi) {
  EXPECT_THAT(Parse("\xC3\xA4\n"), ElementsAre(L"\u00C3\u00A4"));
}

TEST(DependencyList, HalfAMarkIsNoMark) {
  EXPECT_THAT(Parse("\xEF\xBB"), ElementsAre(L"\u00EF\u00BB"));
  EXPECT_THAT(Parse("\xFF"), ElementsAre(L"\u00FF"));
}

TEST(DependencyList, AsciiReadsEquallyInEveryEncoding) {
  const std::wstring text = L"C:\\a\\One.PcbDoc\r\nD:\\Two.PcbDoc\r\n";
  const std::string ascii = "C:\\a\\One.PcbDoc\r\nD:\\Two.PcbDoc\r\n";
  EXPECT_EQ(Parse(ascii), Parse(Utf16(text)));
  EXPECT_EQ(Parse(ascii), Parse("\xEF\xBB\xBF" + ascii));
}

TEST(RepeatedPaths, FirstOfEqualPathsIsKept) {
  EXPECT_THAT(WithoutRepeatedPaths({L"C:\\a", L"C:\\b", L"c:\\A", L"C:\\c", L"C:\\B"}),
              ElementsAre(L"C:\\a", L"C:\\b", L"C:\\c"));
}

TEST(RepeatedPaths, CaseIsIgnoredAlsoOutsideAscii) {
  EXPECT_THAT(WithoutRepeatedPaths({L"C:\\\u00C4", L"C:\\\u00E4", L"C:\\\u0416", L"C:\\\u0436"}),
              ElementsAre(L"C:\\\u00C4", L"C:\\\u0416"));
}

TEST(RepeatedPaths, DifferentPathsAllStay) {
  EXPECT_THAT(WithoutRepeatedPaths({L"C:\\a\\x", L"C:\\b\\x", L"C:\\a"}),
              ElementsAre(L"C:\\a\\x", L"C:\\b\\x", L"C:\\a"));
}

}  // namespace
}  // namespace kestrune
