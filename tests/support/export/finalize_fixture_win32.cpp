#include "tests/support/export/finalize_fixture_win32.h"

#include <gmock/gmock.h>

namespace kestrune {
namespace {

constexpr wchar_t kBefore[] = L"what the user copied before";

}  // namespace

void FinalizeFixture::SetUp() {
  ExportTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) {
    return;
  }
  PutFile(native_, native_bytes_);
  FillClipboard(kBefore);
}

RunOutcome FinalizeFixture::Finalize() const {
  return RunKestrune(L"--finalize " + Quoted(native_) + L" " + Quoted(board_));
}

std::wstring FinalizeFixture::Delivered(const std::wstring& destination, std::wstring_view size) {
  return std::wstring(L"ODB++ export successful.\n\nZIP:\n" + destination + L"\n\nSize: ")
      .append(size)
      .append(L"\n\nThe ZIP file and its path were copied to the Clipboard.");
}

std::wstring FinalizeFixture::NotOverwritten(const std::wstring& destination, DWORD code) {
  return L"Cannot overwrite the destination ZIP.\n\n" + destination + L"\n\n" + SystemText(code);
}

std::wstring FinalizeFixture::SeeLog() const {
  return L"ODB++ export finalization failed.\nStage: Copying native output\nSee log: " +
         folders_.log;
}

std::string FinalizeFixture::BeginEntry(const std::wstring& destination) const {
  return Entry(L"Finalize begin", L"SourcePCB=" + board_ + L" NativeOutput=" + native_ +
                                      L" Destination=" + destination);
}

std::string FinalizeFixture::CopiedEntry(const std::wstring& destination) const {
  return Entry(L"Finalize copied",
               L"Destination=" + destination + L" Size=" + std::to_wstring(native_bytes_.size()));
}

void FinalizeFixture::ExpectOnClipboard(const std::wstring& destination) {
  const ClipboardContent content = ReadClipboard();
  ASSERT_TRUE(content.readable);
  EXPECT_THAT(content.files, ::testing::ElementsAre(destination));
  EXPECT_EQ(content.text, destination);
}

void FinalizeFixture::ExpectClipboardUntouched() {
  const ClipboardContent content = ReadClipboard();
  ASSERT_TRUE(content.readable);
  EXPECT_TRUE(content.files.empty());
  EXPECT_EQ(content.text, kBefore);
}

std::wstring SystemText(DWORD code) {
  wchar_t buffer[1024] = {};
  FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                 buffer, 1024, nullptr);
  std::wstring text = buffer;
  while (!text.empty() && (text.back() == L'\r' || text.back() == L'\n')) {
    text.pop_back();
  }
  return text;
}

HeldClipboard::HeldClipboard(const std::wstring& marker)
    : marker_(marker),
      holder_(TestProgramPath(L"clipboard_reader"), L"--hold " + Quoted(marker) + L" 120000") {
  while (!Exists(marker_) && !holder_.WaitForExit(10)) {
  }
  EXPECT_TRUE(Exists(marker_));
}

HeldClipboard::~HeldClipboard() {
  DeleteFileW(marker_.c_str());
  EXPECT_EQ(holder_.WaitForExit(60'000), 0);
}

}  // namespace kestrune
