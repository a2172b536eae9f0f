#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrune {

/// A ZIP archive with its entries stored as they are: name and content of each, in order.
std::string StoredZip(const std::vector<std::pair<std::string, std::string>>& entries);

/// The entries of an archive that StoredZip made, read through its central directory; empty when it
/// is not whole or a checksum is wrong.
std::vector<std::pair<std::string, std::string>> ReadStoredZip(std::string_view archive);

/// A small but readable ODB++ archive of a board: matrix, information, and one step with header,
/// profile and one folder for each layer that the output job has switched on.
std::string OdbArchive(const std::vector<std::string>& layers);

/// A small board: a compound file with one stream, as the host's own documents are.
std::string SmallBoard();

}  // namespace kestrune
