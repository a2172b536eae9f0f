#pragma once

#include <new>
#include <string>
#include <utility>
#include <vector>

#include "common/desktop/desktop_win32.h"

namespace kestrune {

/// Records message boxes instead of showing them.
class NotedBoxes final : public Desktop {
 public:
  using Box = std::pair<std::wstring, MessageIcon>;

  void ShowMessage(const std::wstring& text, MessageIcon icon) override {
    if (boxes_fail) {
      throw std::bad_alloc();
    }
    boxes.emplace_back(text, icon);
  }

  std::vector<Box> boxes;
  /// Whether there is no memory for a box.
  bool boxes_fail = false;
};

}  // namespace kestrune
