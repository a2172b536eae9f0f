#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <optional>
#include <string>

#include "common/system/owners_win32.h"
#include "common/text/text.h"
#include "export/deliver/application/mailslot_name.h"

namespace kestrune {

/// Holds a mailslot of this process. By default its name has the number of this process.
class OwnMailslot {
 public:
  explicit OwnMailslot(const std::wstring& number = Decimal(GetCurrentProcessId()))
      : name_(std::wstring(kMailslotPrefix) + number),
        slot_(CreateMailslotW((L"\\\\.\\mailslot\\" + name_).c_str(), 0, 0, nullptr)) {
    EXPECT_TRUE(static_cast<bool>(slot_)) << GetLastError();
  }
  [[nodiscard]] const std::wstring& Name() const { return name_; }

  /// Returns the next message; nothing when there is none.
  [[nodiscard]] std::optional<std::string> Next() const {
    DWORD size = MAILSLOT_NO_MESSAGE;
    EXPECT_TRUE(GetMailslotInfo(slot_.Get(), nullptr, &size, nullptr, nullptr));
    if (size == MAILSLOT_NO_MESSAGE) {
      return std::nullopt;
    }
    std::string message(size, '\0');
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(slot_.Get(), message.data(), size, &read, nullptr));
    EXPECT_EQ(read, size);
    return message;
  }

 private:
  std::wstring name_;
  FileHandle slot_;
};

}  // namespace kestrune
