#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// Turns text in the system's ANSI code page into UTF-16.
using AnsiDecoder = std::function<std::wstring(std::string_view)>;

/// The lines of a dependency list, in order, without the empty ones. A line ends at a line feed and
/// loses one carriage return before it; blanks are part of a name and stay.
///
/// A byte order mark of UTF-16LE or UTF-8 decides the encoding; a list without one is ANSI whatever
/// its bytes look like, because the script writes it so.
std::vector<std::wstring> ParseDependencyList(std::string_view bytes,
                                              const AnsiDecoder& decode_ansi);

/// Keeps the first of several equal paths, compared as Windows compares file names. The paths must
/// be full ones; the others keep their order.
std::vector<std::wstring> WithoutRepeatedPaths(const std::vector<std::wstring>& paths);

}  // namespace kestrune
