#include "common/text/placeholders.h"

#include <vector>

namespace kestrune {
namespace {

/// Holds a part of the text: written by the user, or inserted for a placeholder and not searched
/// again.
struct Segment {
  std::wstring_view text;
  bool inserted = false;
};

/// Splits a written segment at every occurrence of the placeholder, and inserts the value there.
void ReplaceInSegment(const Segment& segment, std::wstring_view placeholder,
                      std::wstring_view value, std::vector<Segment>& result) {
  std::size_t begin = 0;
  for (;;) {
    const std::size_t found = segment.text.find(placeholder, begin);
    if (found == std::wstring_view::npos) {
      break;
    }
    result.push_back({segment.text.substr(begin, found - begin), false});
    result.push_back({value, true});
    begin = found + placeholder.size();
  }
  result.push_back({segment.text.substr(begin), false});
}

std::vector<Segment> ReplaceInSegments(const std::vector<Segment>& segments,
                                       std::wstring_view placeholder, std::wstring_view value) {
  std::vector<Segment> result;
  for (const Segment& segment : segments) {
    if (segment.inserted) {
      result.push_back(segment);
    } else {
      ReplaceInSegment(segment, placeholder, value, result);
    }
  }
  return result;
}

}  // namespace

std::wstring FillPlaceholders(std::wstring_view text, std::span<const Placeholder> placeholders) {
  std::vector<Segment> segments = {{text, false}};
  for (const Placeholder& placeholder : placeholders) {
    segments = ReplaceInSegments(segments, placeholder.name, placeholder.value);
  }
  std::wstring filled;
  for (const Segment& segment : segments) {
    filled.append(segment.text);
  }
  return filled;
}

}  // namespace kestrune
