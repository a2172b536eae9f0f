// Sets up a machine with any number of host installations, made of files and registry entries that
// look like the host's own. Everything here changes the user's profile and the machine's list of
// programs; use it only with disposable profiles.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestrune {

/// Lists the toolbars that an installation of the host defines.
enum class HostToolbars { Legacy, ActiveBar, Both, None };

/// Describes an installation.
struct BoxInstance {
  /// Identifies the installation: its GUID, folder and entry are derived from it.
  unsigned number = 1;
  std::wstring display_name = L"Altium Designer";
  std::wstring version = L"24.1.2.44";
  HostToolbars toolbars = HostToolbars::ActiveBar;
  bool in_64_bit_view = true;
  /// File name of the host's program; empty for an installation without one.
  std::wstring program = L"X2.exe";
  bool has_profile = true;
  bool has_branch = true;
  bool has_rcs = true;
  /// The bytes of DXP.RCS.
  std::string rcs;
  /// Script projects in the instance's list.
  std::vector<std::wstring> projects;
};

/// Holds the paths of an installation.
struct MadeInstance {
  std::wstring guid;
  std::wstring display_name;
  std::wstring version;
  std::wstring uninstall_entry;
  bool in_64_bit_view = false;
  std::wstring directory;
  std::wstring program;
  std::wstring resource;
  std::wstring profile;
  std::wstring branch;
  std::wstring rcs;

  /// Returns the instance's list of script projects below HKEY_CURRENT_USER.
  [[nodiscard]] std::wstring ProjectsKey() const;
};

/// Returns a host of this version with a typical user's DXP.RCS. The version decides on that file
/// and on the toolbars.
BoxInstance UsedHost(unsigned number, int major);

/// Returns the `Change` records of a user who altered shortcuts.
std::string ShortcutRecords();

/// Returns the paths of an installation without creating it.
MadeInstance PlaceOf(const BoxInstance& instance);

MadeInstance MakeHost(const BoxInstance& instance);

/// Returns the installations of this machine in the order of their entries, 32-bit view first.
std::vector<MadeInstance> MadeHosts();

/// Sets or, with null, removes one text of an installation's entry.
void SetEntryText(const MadeInstance& instance, const wchar_t* name, const wchar_t* text);

/// Replaces the list of script projects in an instance's registry branch.
void SetProjects(const MadeInstance& instance, const std::vector<std::wstring>& projects);

/// Removes all installations, all profiles of the host and all files that the program made for the
/// user.
void ClearBox();

/// Creates a small package with all files of a deployment in `directory`. Every file has this
/// last-write time and contains `mark`.
void MakePackage(const std::wstring& directory, std::uint64_t time, const std::string& mark);

/// Returns the file names of the runtime directory, in the order of deployment.
const std::vector<std::wstring>& RuntimeFiles();

/// Returns the folders of user and machine and the registry keys that the host uses, one line for
/// each file, folder, key and value, sorted; UTF-8. The line of a file has its size, times,
/// attributes and digest.
using Snapshot = std::vector<std::string>;
Snapshot TakeSnapshot();

/// Returns the differences: "- " and each missing line of `before`, "+ " and each new line.
std::vector<std::string> CompareSnapshots(const Snapshot& before, const Snapshot& after);

/// Holds a script button on a toolbar.
struct HostButton {
  std::string toolbar;
  std::string beside;
  std::string caption;
  std::string hint;
  std::string image;
  std::string project;
  std::string procedure;
  /// Whether it is visible: the host's toolbar has that place, and no record hides the button.
  bool visible = false;
  /// Whether it starts a script: its project is loaded and has its procedure.
  bool starts = false;
};

/// Holds what a host reads when it starts.
struct HostView {
  /// Why the host could not read its customization file; empty when it could.
  std::string error;
  std::vector<HostButton> buttons;
  /// The script projects that it loads, in order.
  std::vector<std::wstring> projects;
};

/// Reads an instance as its host would, without the product's code.
HostView ReadAsHost(const MadeInstance& instance);

/// Returns the buttons of this product in a view: those that call its procedure.
std::vector<HostButton> OurButtons(const HostView& view);

}  // namespace kestrune
