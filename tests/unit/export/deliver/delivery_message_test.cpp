#include "export/deliver/delivery_message.h"

#include <gtest/gtest.h>

#include <locale>
#include <random>
#include <sstream>

namespace kestrune {
namespace {

TEST(SizeText, BelowMegabyteWholeKilobytesWithRestDropped) {
  EXPECT_EQ(SizeText(0), L"0 KB");
  EXPECT_EQ(SizeText(1023), L"0 KB");
  EXPECT_EQ(SizeText(1024), L"1 KB");
  EXPECT_EQ(SizeText(2047), L"1 KB");
  EXPECT_EQ(SizeText(1048575), L"1023 KB");
}

TEST(SizeText, FromAMegabyteOnSixSignificantDigits) {
  EXPECT_EQ(SizeText(1048576), L"1 MB");
  EXPECT_EQ(SizeText(1048577), L"1 MB");
  EXPECT_EQ(SizeText(1572864), L"1.5 MB");
  EXPECT_EQ(SizeText(12345678), L"11.7738 MB");
  EXPECT_EQ(SizeText(12345600), L"11.7737 MB");
  EXPECT_EQ(SizeText(std::uint64_t{5} << 30), L"5120 MB");
  EXPECT_EQ(SizeText(std::uint64_t{1000000} << 20), L"1e+06 MB");
  EXPECT_EQ(SizeText(std::uint64_t{1234567} << 20), L"1.23457e+06 MB");
}

TEST(SizeText, EqualsTheDefaultFormattingOfAStream) {
  std::mt19937_64 random(1);
  for (int i = 0; i < 4000; ++i) {
    const std::uint64_t bytes = (random() >> (i % 44)) | 1048576;
    std::wostringstream stream;
    stream.imbue(std::locale::classic());
    stream << static_cast<double>(bytes) / 1048576.0;
    ASSERT_EQ(SizeText(bytes), stream.str() + L" MB") << bytes;
  }
}

Delivery Delivered() {
  Delivery delivery;
  delivery.zip_path = L"C:\\Out\\Main.zip";
  delivery.size = 1572864;
  return delivery;
}

TEST(DeliveryMessage, NamesArchiveSizeAndClipboard) {
  EXPECT_EQ(DeliveryMessage(Delivered()),
            L"ODB++ export successful.\n\nZIP:\nC:\\Out\\Main.zip\n\nSize: 1.5 MB"
            L"\n\nThe ZIP file and its path were copied to the Clipboard.");
}

TEST(DeliveryMessage, WarnsWhenTheClipboardFailed) {
  Delivery delivery = Delivered();
  delivery.clipboard_error = L"Cannot open the Windows Clipboard.";
  EXPECT_EQ(DeliveryMessage(delivery),
            L"ODB++ export successful.\n\nZIP:\nC:\\Out\\Main.zip\n\nSize: 1.5 MB"
            L"\n\nWarning: Cannot open the Windows Clipboard.");
}

TEST(DeliveryMessage, EndsWithReasonOfUnstartedApplication) {
  Delivery delivery = Delivered();
  delivery.application_configured = true;
  delivery.application_error = L"The configured after-export executable does not exist: C:\\x.exe";
  EXPECT_EQ(DeliveryMessage(delivery),
            L"ODB++ export successful.\n\nZIP:\nC:\\Out\\Main.zip\n\nSize: 1.5 MB"
            L"\n\nThe ZIP file and its path were copied to the Clipboard."
            L"\n\nThe configured application was not started.\n"
            L"The configured after-export executable does not exist: C:\\x.exe");
}

TEST(DeliveryMessage, OmitsErrorOfUnconfiguredApplication) {
  Delivery delivery = Delivered();
  delivery.application_error = L"The Windows LocalAppData directory is unavailable.";
  EXPECT_EQ(DeliveryMessage(delivery), DeliveryMessage(Delivered()));
}

TEST(FailureMessages, HaveTheirTexts) {
  EXPECT_EQ(OverwriteFailureMessage(L"C:\\Out\\Main.zip", L"Sharing violation."),
            L"Cannot overwrite the destination ZIP.\n\nC:\\Out\\Main.zip\n\nSharing violation.");
  EXPECT_EQ(FinalizeFailureMessage(L"C:\\Logs\\bridge.log"),
            L"ODB++ export finalization failed.\nStage: Copying native output\n"
            L"See log: C:\\Logs\\bridge.log");
}

}  // namespace
}  // namespace kestrune
