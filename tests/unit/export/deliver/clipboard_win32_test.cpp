#include "export/deliver/clipboard_win32.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <vector>

#include "common/files/file_win32.h"
#include "common/text/text.h"
#include "tests/support/export/export_fixture_win32.h"

namespace kestrune {
namespace {

class ClipboardTest : public ExportTest {
 protected:
  /// Returns the clipboard's content as read by another process.
  std::string Seen() const {
    ProgramRun reader(TestProgramPath(L"clipboard_reader"), Quoted(Scratch(L"seen")));
    EXPECT_EQ(reader.WaitForExit(20000), 0);
    return FileBytes(Scratch(L"seen"));
  }

  static void PutText(const std::wstring& text) {
    ProgramRun setter(TestProgramPath(L"clipboard_reader"), L"--set " + Quoted(text));
    EXPECT_EQ(setter.WaitForExit(20000), 0);
  }

  Desktop desktop_;
};

TEST_F(ClipboardTest, ProvidesFileAndPath) {
  PutText(L"before");
  std::wstring error_text;
  ASSERT_TRUE(PlaceZipOnClipboard(L"C:\\O u t\\Gr\u00FC\u00DFe \u0416.zip", desktop_, error_text));
  EXPECT_EQ(error_text, L"");
  const std::string path =
      "C:\\O u t\\Gr\xC3\xBC\xC3\x9F"
      "e \xD0\x96.zip";
  const std::string seen = Seen();
  EXPECT_NE(seen.find("DropHeader=20,0,0,0,1\n"), std::string::npos) << seen;
  EXPECT_NE(seen.find("\nDrop=" + path + "\n"), std::string::npos) << seen;
  EXPECT_NE(seen.find("\nText=" + path + "\n"), std::string::npos) << seen;
}

TEST_F(ClipboardTest, BlocksHaveExactSizeAndTerminators) {
  const std::wstring path = L"C:\\Out\\Main.zip";
  std::wstring error_text;
  ASSERT_TRUE(PlaceZipOnClipboard(path, desktop_, error_text));
  ASSERT_TRUE(OpenClipboard(nullptr));
  void* const drop = GetClipboardData(CF_HDROP);
  void* const text = GetClipboardData(CF_UNICODETEXT);
  std::string drop_bytes;
  std::string text_bytes;
  if (drop != nullptr && text != nullptr) {
    drop_bytes.assign(static_cast<const char*>(GlobalLock(drop)), GlobalSize(drop));
    text_bytes.assign(static_cast<const char*>(GlobalLock(text)), GlobalSize(text));
    GlobalUnlock(drop);
    GlobalUnlock(text);
  }
  CloseClipboard();
  ASSERT_EQ(drop_bytes.size(), 2 * path.size() + 24);
  ASSERT_EQ(text_bytes.size(), 2 * path.size() + 2);
  const std::string units = Utf16WithMark(path).substr(2);
  EXPECT_EQ(text_bytes, units + std::string(2, '\0'));
  DROPFILES header{};
  header.pFiles = 20;
  header.fWide = 1;
  EXPECT_EQ(drop_bytes,
            std::string(reinterpret_cast<const char*>(&header), 20) + units + std::string(4, '\0'));
}

TEST_F(ClipboardTest, OpenClipboardIsUnchanged) {
  PutText(L"before");
  ProgramRun holder(TestProgramPath(L"clipboard_reader"),
                    L"--hold " + Quoted(Scratch(L"held")) + L" 20000");
  for (int i = 0; i < 500 && !Exists(Scratch(L"held")); ++i) {
    Sleep(20);
  }
  std::wstring error_text;
  EXPECT_FALSE(PlaceZipOnClipboard(L"C:\\Out\\Main.zip", desktop_, error_text));
  EXPECT_EQ(error_text, L"Cannot open the Windows Clipboard.");
  DeleteFileW(Scratch(L"held").c_str());
  EXPECT_EQ(holder.WaitForExit(20000), 0);
  const std::string seen = Seen();
  EXPECT_NE(seen.find("Text=before\n"), std::string::npos) << seen;
  EXPECT_EQ(seen.find("Drop"), std::string::npos) << seen;
}

/// Fails one allocation or one format, and records the blocks.
class RefusingClipboard final : public Desktop {
 public:
  HGLOBAL Allocate(std::size_t size) override {
    if (++allocations == refused_allocation) {
      return nullptr;
    }
    blocks.push_back(Desktop::Allocate(size));
    return blocks.back();
  }
  HANDLE SetClipboard(UINT format, HGLOBAL block) override {
    if (format == refused_format) {
      refused_block = block;
      return nullptr;
    }
    return Desktop::SetClipboard(format, block);
  }

  int allocations = 0;
  int refused_allocation = 0;
  UINT refused_format = 0;
  HGLOBAL refused_block = nullptr;
  std::vector<HGLOBAL> blocks;
};

bool IsFreed(HGLOBAL block) {
  return GlobalFlags(block) == GMEM_INVALID_HANDLE;
}

TEST_F(ClipboardTest, WithoutMemoryTheClipboardIsUnchanged) {
  for (const int refused : {1, 2}) {
    PutText(L"before");
    RefusingClipboard calls;
    calls.refused_allocation = refused;
    std::wstring error_text;
    EXPECT_FALSE(PlaceZipOnClipboard(L"C:\\Out\\Main.zip", calls, error_text));
    EXPECT_EQ(error_text, L"Cannot allocate Clipboard data.");
    ASSERT_EQ(calls.blocks.size(), 1U);
    EXPECT_TRUE(IsFreed(calls.blocks.front()));
    EXPECT_NE(Seen().find("Text=before\n"), std::string::npos);
  }
}

TEST_F(ClipboardTest, RejectedFormatIsFreedOtherStays) {
  for (const UINT refused : {UINT{CF_HDROP}, UINT{CF_UNICODETEXT}}) {
    RefusingClipboard calls;
    calls.refused_format = refused;
    std::wstring error_text;
    EXPECT_FALSE(PlaceZipOnClipboard(L"C:\\Out\\Main.zip", calls, error_text));
    EXPECT_EQ(error_text, L"Cannot place the ZIP file on the Windows Clipboard.");
    ASSERT_NE(calls.refused_block, nullptr);
    EXPECT_TRUE(IsFreed(calls.refused_block));
    const std::string seen = Seen();
    EXPECT_EQ(seen.find("Drop=") != std::string::npos, refused != CF_HDROP) << seen;
    EXPECT_EQ(seen.find("Text=") != std::string::npos, refused != CF_UNICODETEXT) << seen;
  }
}

}  // namespace
}  // namespace kestrune
