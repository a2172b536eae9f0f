#include "tests/support/machine/machine_in_a_box_win32.h"

#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <map>
#include <stdexcept>

#include "common/files/file_time_win32.h"
#include "common/files/file_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/system/registry_win32.h"
#include "common/files/sha256_win32.h"
#include "common/text/text.h"
#include "tests/support/files_win32.h"
#include "tests/support/process/program_run_win32.h"
#include "tests/support/real_calls_win32.h"
#include "tests/support/registration/rcs_model.h"
#include "tests/support/remove_tree_win32.h"

namespace kestrune {
namespace {

constexpr wchar_t kUninstall[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr wchar_t kHostKey[] = L"Software\\Altium";
constexpr std::wstring_view kEntryPrefix = L"Altium Designer ";

std::wstring BoxRoot() {
  return EnvironmentVariable(L"SystemDrive") + L"\\KestruneBox";
}

std::wstring ProfilesRoot() {
  return EnvironmentVariable(L"USERPROFILE") + L"\\AppData\\Roaming\\Altium";
}

void Require(bool done, const char* what) {
  if (!done) {
    throw std::runtime_error(std::string(what) + ", error " + std::to_string(GetLastError()));
  }
}

void Put(const std::wstring& path, std::string_view bytes) {
  Require(TryCreateDirectories(std::wstring(ParentPath(path))) && TryWriteFile(path, bytes),
          "cannot write a file of the box");
}

RegistryKey CreateKey(HKEY root, const std::wstring& path, REGSAM view = 0) {
  RegistryKey key;
  const LSTATUS status = RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view,
                                         nullptr, key.Put(), nullptr);
  SetLastError(static_cast<DWORD>(status));
  Require(status == ERROR_SUCCESS, "cannot create a key of the box");
  return key;
}

void SetText(HKEY key, const wchar_t* name, const std::wstring& text) {
  RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                 static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

std::wstring Text(HKEY key, const wchar_t* name) {
  std::wstring text;
  DWORD type = 0;
  SystemCalls calls;
  return ReadRegistryText(calls, key, name, text, type) ? text : std::wstring();
}

REGSAM View(bool in_64_bit_view) {
  return in_64_bit_view ? KEY_WOW64_64KEY : KEY_WOW64_32KEY;
}

std::wstring Hexadecimal(unsigned value) {
  std::wstring digits;
  for (int shift = 28; shift >= 0; shift -= 4) {
    digits += L"0123456789abcdef"[value >> shift & 15U];
  }
  return digits;
}

std::wstring Upper(std::wstring text) {
  for (wchar_t& c : text) {
    c = c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
  }
  return text;
}

/// Returns the toolbars that the host's installation defines.
std::string ToolbarDefinitions(HostToolbars toolbars) {
  std::string text =
      "Tree MNPCBMenu Caption='Menu' TopLevel='True'\r\n"
      "  Link MNPCB_Help10 PLID='PLClient:Help' End\r\nEnd\r\n";
  if (toolbars == HostToolbars::Legacy || toolbars == HostToolbars::Both) {
    text +=
        "Tree TLPCBToolbar Caption='PCB Standard' TopLevel='True'\r\n"
        "  Link TBPCB_StandardToolbar750 PLID='PLPCB:Save' End\r\n"
        "  Separator TBPCB_StandardToolbar755 End\r\n"
        "  Link TBPCB_StandardToolbar760 PLID='PLPCB:Browse' End\r\nEnd\r\n";
  }
  if (toolbars == HostToolbars::ActiveBar || toolbars == HostToolbars::Both) {
    text +=
        "Tree TopBarPCB Caption='Active Bar' TopLevel='True'\r\n"
        "  Link TopBarPCB010 PLID='PLPCB:Filter' End\r\n"
        "  Tree TopBarPCB020 Caption='Snap'\r\n"
        "    Link TopBarPCB021 PLID='PLPCB:Snap' End\r\n  End\r\nEnd\r\n";
  }
  return text;
}

/// Returns every name of an uninstall entry of a simulated host, in one view.
std::vector<std::wstring> EntryNames(REGSAM view) {
  RegistryKey key;
  std::vector<std::wstring> names;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kUninstall, 0, KEY_READ | view, key.Put()) ==
      ERROR_SUCCESS) {
    SystemCalls calls;
    static_cast<void>(ListSubkeys(calls, key.Get(), names));
  }
  std::erase_if(names, [](const std::wstring& name) { return !name.starts_with(kEntryPrefix); });
  return names;
}

MadeInstance Place(const std::wstring& guid) {
  MadeInstance made;
  made.guid = guid;
  made.directory = JoinPath(BoxRoot(), L"AD " + guid.substr(1, 8));
  made.resource = JoinPath(made.directory, L"System\\AdvPcb.rcs");
  const std::wstring name = std::wstring(kEntryPrefix) + Upper(guid);
  made.uninstall_entry = name;
  made.profile = JoinPath(ProfilesRoot(), name);
  made.branch = std::wstring(kHostKey) + L"\\" + name;
  made.rcs = JoinPath(made.profile, L"DXP.RCS");
  return made;
}

MadeInstance ReadEntry(const std::wstring& name, bool in_64_bit_view) {
  MadeInstance made = Place(LowerAscii(name.substr(kEntryPrefix.size())));
  made.in_64_bit_view = in_64_bit_view;
  RegistryKey key;
  RegOpenKeyExW(HKEY_LOCAL_MACHINE, (std::wstring(kUninstall) + L"\\" + name).c_str(), 0,
                KEY_READ | View(in_64_bit_view), key.Put());
  made.display_name = Text(key.Get(), L"DisplayName");
  made.version = Text(key.Get(), L"DisplayVersion");
  return made;
}

// Snapshots.

std::string Printable(const BYTE* data, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += "0123456789ABCDEF"[data[i] >> 4U];
    text += "0123456789ABCDEF"[data[i] & 15U];
  }
  return text;
}

std::string ValueText(DWORD type, const std::vector<BYTE>& data) {
  if (type == REG_SZ && data.size() >= 2 && data.size() % 2 == 0) {
    const std::string_view bytes(reinterpret_cast<const char*>(data.data()), data.size() - 2);
    return "text " + Utf8FromWide(WideFromUtf16Le(bytes));
  }
  return "type " + std::to_string(type) + " " + Printable(data.data(), data.size());
}

void AddValues(HKEY key, const std::string& path, Snapshot& snapshot) {
  for (DWORD index = 0;; ++index) {
    std::wstring name(16384, L'\0');
    DWORD length = 16384;
    DWORD type = 0;
    DWORD size = 0;
    if (RegEnumValueW(key, index, name.data(), &length, nullptr, &type, nullptr, &size) !=
        ERROR_SUCCESS) {
      return;
    }
    name.resize(length);
    std::vector<BYTE> data(size);
    RegQueryValueExW(key, name.c_str(), nullptr, &type, data.data(), &size);
    snapshot.push_back("value " + path + "\\\\" + Utf8FromWide(name) + " = " +
                       ValueText(type, data));
  }
}

void AddKey(HKEY root, const std::wstring& path, REGSAM view, const std::string& shown,
            Snapshot& snapshot) {
  RegistryKey key;
  if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | view, key.Put()) != ERROR_SUCCESS) {
    return;
  }
  snapshot.push_back("key " + shown);
  AddValues(key.Get(), shown, snapshot);
  std::vector<std::wstring> names;
  SystemCalls calls;
  static_cast<void>(ListSubkeys(calls, key.Get(), names));
  for (const std::wstring& name : names) {
    std::wstring below = path;
    below += L"\\" + name;
    AddKey(root, below, view, shown + "\\" + Utf8FromWide(name), snapshot);
  }
}

std::string DigestOf(const std::wstring& path) {
  try {
    return Sha256OfFile(RealCalls(), ExtendedPath(path));
  } catch (const Failure&) {
    return "unreadable";
  }
}

void AddFolder(const std::wstring& folder, Snapshot& snapshot) {
  WIN32_FIND_DATAW entry{};
  const FindHandle find(FindFirstFileW(ExtendedPath(JoinPath(folder, L"*")).Get(), &entry));
  if (!find) {
    return;
  }
  snapshot.push_back("folder " + Utf8FromWide(folder));
  do {
    const std::wstring name = entry.cFileName;
    const std::wstring path = JoinPath(folder, name);
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      snapshot.push_back("file " + Utf8FromWide(path) + " size " +
                         std::to_string(entry.nFileSizeLow) + " time " +
                         std::to_string(JoinFileTime(entry.ftLastWriteTime)) + " attributes " +
                         std::to_string(entry.dwFileAttributes) + " sha256 " + DigestOf(path));
    } else if (name != L"." && name != L".." &&
               (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
      AddFolder(path, snapshot);
    }
  } while (FindNextFileW(find.Get(), &entry));
}

// Reading an instance as its host does.

std::map<unsigned long, std::wstring> ListedProjects(const MadeInstance& instance) {
  std::map<unsigned long, std::wstring> projects;
  RegistryKey key;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, instance.ProjectsKey().c_str(), 0, KEY_READ, key.Put()) !=
      ERROR_SUCCESS) {
    return projects;
  }
  for (DWORD index = 0;; ++index) {
    wchar_t name[256] = {};
    DWORD length = 256;
    if (RegEnumValueW(key.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      return projects;
    }
    const std::wstring text(name, length);
    if (LowerAscii(text).starts_with(L"item")) {
      projects[std::wcstoul(text.c_str() + 4, nullptr, 10)] = Text(key.Get(), name);
    }
  }
}

/// Returns the part of a command's parameters with this name.
std::string Parameter(const std::string& parameters, const std::string& name) {
  const std::string mark = name + "=";
  std::size_t at = 0;
  while (at <= parameters.size()) {
    const std::size_t bar = std::min(parameters.find('|', at), parameters.size());
    const std::string part = parameters.substr(at, bar - at);
    if (part.starts_with(mark)) {
      return part.substr(mark.size());
    }
    at = bar + 1;
  }
  return {};
}

bool StartsScript(const HostButton& button, const HostView& view) {
  const std::wstring project = WidenBytes(button.project);
  const bool loaded = std::any_of(
      view.projects.begin(), view.projects.end(),
      [&](const std::wstring& listed) { return LowerAscii(listed) == LowerAscii(project); });
  const std::size_t arrow = button.procedure.find('>');
  if (!loaded || arrow == std::string::npos ||
      QueryFileKindQuietly(RealCalls(), project) != FileKind::RegularFile) {
    return false;
  }
  const std::wstring unit =
      JoinPath(ParentPath(project), WidenBytes(button.procedure.substr(0, arrow)));
  std::string script;
  return TryReadFile(unit, 64U << 20U, script) &&
         LowerAscii(script).find("procedure " + LowerAscii(button.procedure.substr(arrow + 1))) !=
             std::string::npos;
}

/// Returns the buttons that a customization file places, whether or not they work.
std::vector<HostButton> PlacedButtons(const rcs_model::Nodes& records,
                                      const std::string& resource) {
  std::map<std::string, const rcs_model::Node*> commands;
  std::vector<const rcs_model::Node*> deletions;
  rcs_model::Walk(records, [&](const rcs_model::Node& node, const rcs_model::Node*) {
    if (node.kind == "PL") {
      commands[node.identifier] = &node;
    } else if (node.kind == "Deletion") {
      deletions.push_back(&node);
    }
  });
  std::vector<HostButton> buttons;
  rcs_model::Walk(records, [&](const rcs_model::Node& node, const rcs_model::Node* parent) {
    const auto command = commands.find(node.Value("PLID"));
    if (node.kind != "Link" || parent == nullptr || parent->kind != "Insertion" ||
        command == commands.end()) {
      return;
    }
    HostButton button;
    button.toolbar = parent->Value("TargetID");
    button.beside = parent->Value("RefID0");
    button.caption = command->second->Value("Caption");
    button.hint = command->second->Value("Description");
    button.image = command->second->Value("Image");
    button.project = Parameter(command->second->Value("Params"), "ProjectName");
    button.procedure = Parameter(command->second->Value("Params"), "ProcName");
    const bool hidden =
        std::any_of(deletions.begin(), deletions.end(), [&](const rcs_model::Node* deletion) {
          return deletion->Value("DeleteID") == node.identifier &&
                 deletion->Value("TargetID") == button.toolbar;
        });
    button.visible =
        !hidden && rcs_model::HasAnchor(resource, button.toolbar, button.beside, {"Change"});
    buttons.push_back(button);
  });
  return buttons;
}

}  // namespace

std::wstring MadeInstance::ProjectsKey() const {
  return branch + L"\\DesignExplorer\\Preferences\\ScriptingSystem\\Global Projects";
}

BoxInstance UsedHost(unsigned number, int major) {
  BoxInstance host;
  host.number = number;
  host.version = std::to_wstring(major) + L".1.2.44";
  host.toolbars = major > 17 ? HostToolbars::ActiveBar : HostToolbars::Legacy;
  host.in_64_bit_view = major > 17;
  host.program = major > 17 ? L"X2.exe" : L"dxp.exe";
  const std::string trees[] = {"SchCustom", "PCBLibCustom", "TextCustom", "OutputJobCustom"};
  for (const std::string& tree : trees) {
    host.rcs += "Tree " + tree + " Caption='[Custom]' TopLevel='True'  End\r\n";
  }
  host.rcs +=
      "Tree PCBCustom Caption='[Custom]' TopLevel='True'\r\n"
      "  Link _User PLID='RunScript' End\r\nEnd\r\n"
      "PL RunScript Command='ScriptingSystem:RunScript' "
      "Params='ProjectName=C:\\Scripts\\It''s.PrjScr|ProcName=Silk.pas>Main' "
      "Caption='Silk' DefaultChecked=0  End\r\n";
  if (major <= 17) {
    host.rcs +=
        "Insertion _User1 TargetID='TLPCBToolbar' RefID0='TBPCB_StandardToolbar750'\r\n"
        "  Link _User2 PLID='RunScript' End\r\nEnd\r\n";
  } else {
    host.rcs +=
        "Insertion _User1 TargetID='MNPCBMenu' InsertType='After' RefID0='MNPCB_Help10'\r\n"
        "  Link _User2 PLID='RunScript' End\r\nEnd\r\n"
        "Deletion _User3 TargetID='MNPCBMenu' DeleteID='MNPCB_Tools10' End\r\n";
  }
  host.projects = {L"C:\\Scripts\\It's.PrjScr"};
  return host;
}

std::string ShortcutRecords() {
  return "Change _User241 TargetID='PLManRoute:PlaceLine' Field0='Shortcut1' Value0='E'  End\r\n"
         "Change _User242 TargetID='PLPCB:MoveBoardVertices' Field0='Shortcut1' Value0=4  End\r\n";
}

MadeInstance PlaceOf(const BoxInstance& instance) {
  MadeInstance made = Place(L"{" + Hexadecimal(instance.number) + L"-abcd-4222-8333-444455556666}");
  made.display_name = instance.display_name;
  made.version = instance.version;
  made.in_64_bit_view = instance.in_64_bit_view;
  made.program =
      instance.program.empty() ? std::wstring() : JoinPath(made.directory, instance.program);
  return made;
}

MadeInstance MakeHost(const BoxInstance& instance) {
  MadeInstance made = PlaceOf(instance);
  const RegistryKey entry =
      CreateKey(HKEY_LOCAL_MACHINE, std::wstring(kUninstall) + L"\\" + made.uninstall_entry,
                View(made.in_64_bit_view));
  SetText(entry.Get(), L"DisplayName", made.display_name);
  SetText(entry.Get(), L"DisplayVersion", made.version);
  SetText(entry.Get(), L"InstallLocation", made.directory);
  SetText(entry.Get(), L"UninstallString",
          L"\"" + made.directory + L"\\Installation.exe\" -Uninstall -B-UniqueID:\"" +
              Upper(made.guid) + L"\"");
  SetText(entry.Get(), L"DisplayIcon", L"\"" + made.program + L"\",0");
  Put(made.resource, ToolbarDefinitions(instance.toolbars));
  if (!made.program.empty()) {
    Put(made.program, "not a program");
  }
  if (instance.has_profile) {
    Require(TryCreateDirectories(made.profile), "cannot create a profile of the box");
    if (instance.has_rcs) {
      Put(made.rcs, instance.rcs);
    }
  }
  if (instance.has_branch) {
    CreateKey(HKEY_CURRENT_USER, made.branch);
    if (!instance.projects.empty()) {
      SetProjects(made, instance.projects);
    }
  }
  return made;
}

std::vector<MadeInstance> MadeHosts() {
  std::vector<MadeInstance> hosts;
  for (const bool in_64_bit_view : {false, true}) {
    for (const std::wstring& name : EntryNames(View(in_64_bit_view))) {
      hosts.push_back(ReadEntry(name, in_64_bit_view));
    }
  }
  return hosts;
}

void SetEntryText(const MadeInstance& instance, const wchar_t* name, const wchar_t* text) {
  const RegistryKey entry =
      CreateKey(HKEY_LOCAL_MACHINE, std::wstring(kUninstall) + L"\\" + instance.uninstall_entry,
                View(instance.in_64_bit_view));
  if (text == nullptr) {
    RegDeleteValueW(entry.Get(), name);
  } else {
    SetText(entry.Get(), name, text);
  }
}

void SetProjects(const MadeInstance& instance, const std::vector<std::wstring>& projects) {
  RegDeleteTreeW(HKEY_CURRENT_USER, instance.ProjectsKey().c_str());
  const RegistryKey key = CreateKey(HKEY_CURRENT_USER, instance.ProjectsKey());
  for (std::size_t i = 0; i < projects.size(); ++i) {
    SetText(key.Get(), (L"Item" + std::to_wstring(i)).c_str(), projects[i]);
  }
}

void ClearBox() {
  for (const bool in_64_bit_view : {false, true}) {
    RegistryKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kUninstall, 0, KEY_ALL_ACCESS | View(in_64_bit_view),
                      key.Put()) == ERROR_SUCCESS) {
      for (const std::wstring& name : EntryNames(View(in_64_bit_view))) {
        RegDeleteTreeW(key.Get(), name.c_str());
      }
    }
  }
  RegDeleteTreeW(HKEY_CURRENT_USER, kHostKey);
  Require(RemoveTree(BoxRoot()) && RemoveTree(ProfilesRoot()) &&
              RemoveTree(EnvironmentVariable(L"USERPROFILE") + L"\\AppData\\Local\\Kestrune"),
          "cannot clear the box");
}

void MakePackage(const std::wstring& directory, std::uint64_t time, const std::string& mark) {
  const std::pair<const wchar_t*, std::string> files[] = {
      {L"Script\\Kestrune.PrjScr", "[Design]\r\nVersion=1.0\r\n"},
      {L"Script\\Kestrune_WaitForm.pas", "Procedure Wait;\r\n"},
      {L"Script\\Kestrune_WaitForm.dfm", "object Form\r\nend\r\n"},
      {L"Runtime\\Bridge.OutJob", "[OutputJobFile]\r\nVersion=1.0\r\n"},
      {L"Assets\\odbpp-toolbar-legacy.bmp", "BM"},
      {L"Assets\\odbpp-toolbar-activebar.png", "PNG"},
      {L"Assets\\odbpp-toolbar-ad26-16.png", "PNG16"},
      {L"Script\\Kestrune.pas",
       "{ @RUNTIME_ROOT@ }\r\n{ @TEMP_ROOT@ }\r\nProcedure RunKestrune;\r\n"}};
  for (const auto& [name, text] : files) {
    const std::wstring path = JoinPath(directory, name);
    Put(path, text + mark);
    const FileHandle file(CreateFileW(ExtendedPath(path).Get(), FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const FILETIME last_write = SplitFileTime(time);
    Require(file && SetFileTime(file.Get(), nullptr, nullptr, &last_write),
            "cannot date a file of the package");
  }
}

const std::vector<std::wstring>& RuntimeFiles() {
  static const std::vector<std::wstring> files = {L"Kestrune.exe",
                                                  L"Kestrune.PrjScr",
                                                  L"Kestrune_WaitForm.pas",
                                                  L"Kestrune_WaitForm.dfm",
                                                  L"Bridge.OutJob",
                                                  L"odbpp-toolbar-legacy.bmp",
                                                  L"odbpp-toolbar-activebar.png",
                                                  L"odbpp-toolbar-ad26-16.png",
                                                  L"Kestrune.pas"};
  return files;
}

Snapshot TakeSnapshot() {
  Snapshot snapshot;
  for (const std::wstring& folder :
       {EnvironmentVariable(L"USERPROFILE"), EnvironmentVariable(L"PUBLIC"),
        EnvironmentVariable(L"ProgramData"), BoxRoot()}) {
    AddFolder(folder, snapshot);
  }
  AddKey(HKEY_CURRENT_USER, L"Software", 0, "HKCU\\Software", snapshot);
  AddKey(HKEY_LOCAL_MACHINE, kUninstall, KEY_WOW64_32KEY, "HKLM (32-bit)\\Uninstall", snapshot);
  AddKey(HKEY_LOCAL_MACHINE, kUninstall, KEY_WOW64_64KEY, "HKLM (64-bit)\\Uninstall", snapshot);
  std::sort(snapshot.begin(), snapshot.end());
  return snapshot;
}

std::vector<std::string> CompareSnapshots(const Snapshot& before, const Snapshot& after) {
  std::vector<std::string> gone;
  std::vector<std::string> come;
  std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                      std::back_inserter(gone));
  std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                      std::back_inserter(come));
  std::vector<std::string> lines;
  lines.reserve(gone.size() + come.size());
  for (const std::string& line : gone) {
    lines.push_back("- " + line);
  }
  for (const std::string& line : come) {
    lines.push_back("+ " + line);
  }
  return lines;
}

HostView ReadAsHost(const MadeInstance& instance) {
  HostView view;
  for (const auto& [number, project] : ListedProjects(instance)) {
    if (number != view.projects.size()) {
      break;  // A gap ends the list.
    }
    view.projects.push_back(project);
  }
  std::string rcs;
  std::string resource;
  if (!TryReadFile(instance.rcs, 64U << 20U, rcs) ||
      !TryReadFile(instance.resource, 64U << 20U, resource)) {
    view.error = "cannot read the customization files";
    return view;
  }
  try {
    view.buttons = PlacedButtons(rcs_model::Parse(rcs, true, {"Change"}), resource);
  } catch (const rcs_model::Refusal& refusal) {
    view.error = refusal.text;
    return view;
  }
  for (HostButton& button : view.buttons) {
    button.starts = button.visible && StartsScript(button, view);
  }
  return view;
}

std::vector<HostButton> OurButtons(const HostView& view) {
  std::vector<HostButton> ours = view.buttons;
  std::erase_if(ours, [](const HostButton& button) {
    return LowerAscii(button.procedure) != "kestrune.pas>runkestrune";
  });
  return ours;
}

}  // namespace kestrune
