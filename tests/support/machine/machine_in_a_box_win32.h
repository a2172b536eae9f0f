// A machine with any number of host installations, made out of files and registry entries that
// look like the host's own. Everything here changes the user's profile and the machine's list of
// programs: only for profiles that nobody will miss.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestrune {

/// The toolbars that an installation of the host defines.
enum class HostToolbars { Legacy, ActiveBar, Both, None };

/// What one installation is to look like.
struct BoxInstance {
  /// Tells installations apart: their GUIDs, folders and entries are made from it.
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
  /// Script projects that the user's host loads already.
  std::vector<std::wstring> projects;
};

/// Where the parts of an installation lie.
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

  /// The instance's list of script projects below HKEY_CURRENT_USER.
  [[nodiscard]] std::wstring ProjectsKey() const;
};

/// A host of this version with a user who has used it for a while. The version decides what the
/// user's DXP.RCS looks like and which toolbars there are.
BoxInstance UsedHost(unsigned number, int major);

/// The records of a user who also altered shortcuts, which hosts write as `Change`.
std::string ShortcutRecords();

/// Where an installation with this number would lie; nothing is made.
MadeInstance PlaceOf(const BoxInstance& instance);

MadeInstance MakeHost(const BoxInstance& instance);

/// The installations that stand on this machine, in the order of their entries, 32-bit view first.
std::vector<MadeInstance> MadeHosts();

/// Sets or, with null, removes one text of an installation's entry.
void SetEntryText(const MadeInstance& instance, const wchar_t* name, const wchar_t* text);

/// Puts the list of script projects into an instance's registry branch, in place of what is there.
void SetProjects(const MadeInstance& instance, const std::vector<std::wstring>& projects);

/// Removes all installations, all profiles of the host and what the program made for the user.
void ClearBox();

/// A small package with all that a deployment takes, in `directory`. Every file has this last-write
/// time and holds `mark`.
void MakePackage(const std::wstring& directory, std::uint64_t time, const std::string& mark);

/// File names of the runtime directory, in the order in which they come there.
const std::vector<std::wstring>& RuntimeFiles();

/// The folders of the user and the machine and the registry keys that matter to the host, one line
/// for each file, folder, key and value, sorted; UTF-8. Files have their size, times, attributes
/// and digest in it.
using Snapshot = std::vector<std::string>;
Snapshot TakeSnapshot();

/// What differs: the lines of `before` that are gone after a "- ", the new ones after a "+ ".
std::vector<std::string> CompareSnapshots(const Snapshot& before, const Snapshot& after);

/// A script button on a toolbar.
struct HostButton {
  std::string toolbar;
  std::string beside;
  std::string caption;
  std::string hint;
  std::string image;
  std::string project;
  std::string procedure;
  /// Whether it shows: the host's own toolbar has that place, and no record hides the button.
  bool visible = false;
  /// Whether pressing it starts a script: its project is loaded, and its procedure is there.
  bool starts = false;
};

/// What a host sees when it starts.
struct HostView {
  /// Why the host could not read its customization file; empty when it could.
  std::string error;
  std::vector<HostButton> buttons;
  /// The script projects that it loads, in order.
  std::vector<std::wstring> projects;
};

/// Reads an instance as its host would, with none of the product's own code for it.
HostView ReadAsHost(const MadeInstance& instance);

/// The buttons of this product in a view: those that call its procedure.
std::vector<HostButton> OurButtons(const HostView& view);

}  // namespace kestrune
