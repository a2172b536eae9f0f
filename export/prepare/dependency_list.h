#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrune {

/// Converts text in the system's ANSI code page to UTF-16.
using AnsiDecoder = std::function<std::wstring(std::string_view)>;

/// Returns the lines of a dependency list, in order, without the empty ones. A line ends at a line
/// feed; one carriage return before it is dropped. Blanks are kept, since they may belong to a
/// name.
///
/// A byte order mark of UTF-16LE or UTF-8 decides the encoding; a list without one is always read
/// as ANSI, because that is what the script writes.
std::vector<std::wstring> ParseDependencyList(std::string_view bytes,
                                              const AnsiDecoder& decode_ansi);

/// Returns the paths without repetitions, in their order; paths are compared as Windows compares
/// file names. Requires full paths.
std::vector<std::wstring> WithoutRepeatedPaths(const std::vector<std::wstring>& paths);

}  // namespace kestrune
