#include "export/wait/window_placement.h"

namespace kestrune {
namespace {

std::int32_t CentredStart(std::int32_t area_begin, std::int32_t area_end, std::int32_t window_begin,
                          std::int32_t window_end) {
  const std::int64_t room = std::int64_t{area_end} - area_begin;
  const std::int64_t length = std::int64_t{window_end} - window_begin;
  return room > length ? static_cast<std::int32_t>(area_begin + (room - length) / 2) : area_begin;
}

}  // namespace

ScreenPoint CentredIn(const ScreenRectangle& work_area, const ScreenRectangle& window) {
  return {CentredStart(work_area.left, work_area.right, window.left, window.right),
          CentredStart(work_area.top, work_area.bottom, window.top, window.bottom)};
}

}  // namespace kestrune
