#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrune {

/// Returns a ZIP archive with its entries stored as they are: name and content of each, in order.
std::string StoredZip(const std::vector<std::pair<std::string, std::string>>& entries);

/// Returns the entries of an archive made by StoredZip, read through its central directory; none
/// when it is incomplete or a checksum is wrong.
std::vector<std::pair<std::string, std::string>> ReadStoredZip(std::string_view archive);

/// Returns a small but readable ODB++ archive of a board: matrix, information, and one step with
/// header, profile and one folder for each layer that the output job has switched on.
std::string OdbArchive(const std::vector<std::string>& layers);

/// Returns a small board: a compound file with one stream, as the host's own documents are.
std::string SmallBoard();

}  // namespace kestrune
