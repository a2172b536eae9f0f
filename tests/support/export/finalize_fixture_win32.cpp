#include "tests/support/export/finalize_fixture_win32.h"

#include <gmock/gmock.h>

#include "common/text/path.h"

namespace kestrune {
namespace {

constexpr wchar_t kBefore[] = L"what the user copied before";

}  // namespace

void FinalizeTest::SetUp() {
  ExportTest::SetUp();
  if (IsSkipped() || HasFatalFailure()) {
    return;
  }
  native_ = Scratch(L"native\\Bridge.zip");
  default_destination_ = JoinPath(folders_.default_export, L"Main.zip");
  PutFile(native_, native_bytes_);
  FillClipboard(kBefore);
}

RunOutcome FinalizeTest::Finalize() const {
  return FinalizeBoard(board_);
}

RunOutcome FinalizeTest::FinalizeBoard(const std::wstring& board) const {
  return RunKestrune(L"--finalize " + Quoted(native_) + L" " + Quoted(board), 120'000);
}

std::wstring FinalizeTest::Delivered(const std::wstring& destination, std::wstring_view size) {
  std::wstring text = L"ODB++ export successful.\n\nZIP:\n" + destination + L"\n\nSize: ";
  text += size;
  return text + L"\n\nThe ZIP file and its path were copied to the Clipboard.";
}

std::wstring FinalizeTest::SeeLog() const {
  return L"ODB++ export finalization failed.\nStage: Copying native output\nSee log: " +
         folders_.log;
}

void FinalizeTest::ExpectOnClipboard(const std::wstring& destination) {
  const ClipboardContent content = ReadClipboard();
  ASSERT_TRUE(content.readable);
  EXPECT_THAT(content.files, ::testing::ElementsAre(destination));
  EXPECT_EQ(content.text, destination);
}

void FinalizeTest::ExpectClipboardUntouched() {
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

}  // namespace kestrune
