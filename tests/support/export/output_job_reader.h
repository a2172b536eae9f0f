#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrune {

/// Returns the text between separators; one empty part for an empty text.
std::vector<std::string> Split(std::string_view text, char separator);

/// Holds the ODB++ configuration of an output job as the host reads it: the value of the first
/// "Configuration1_Item1" line, cut into its fields. A field without "=" has an empty second part.
struct OutputConfiguration {
  bool found = false;
  std::vector<std::pair<std::string, std::string>> fields;

  /// Returns the value of a field; empty when there is none of that name.
  [[nodiscard]] std::string Value(std::string_view key) const;
  /// Returns the layers that are switched on, as the host's ODB++ writer would name them: plot
  /// fields by their key without the leading and trailing "Plot", numbered layers by their names.
  [[nodiscard]] std::vector<std::string> LayersSwitchedOn() const;
};

OutputConfiguration ReadOutputConfiguration(std::string_view output_job);

/// Holds one section of a project file: its name and its lines in order.
struct ProjectSection {
  std::string name;
  std::vector<std::pair<std::string, std::string>> lines;

  [[nodiscard]] std::string Value(std::string_view key) const;
};

/// Returns a project file's sections in order.
std::vector<ProjectSection> ReadProject(std::string_view text);

/// Returns a small output job whose first output is ODB++: two copper layers, masks, overlays, the
/// keep-out layer and three numbered mechanical layers, some switched on and some off.
std::string SmallOutputJob();

}  // namespace kestrune
