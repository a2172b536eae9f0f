#include "export/prepare/prepare_win32.h"

#include <windows.h>

#include <limits>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

#include "common/failure/failure.h"
#include "common/failure/failure_win32.h"
#include "common/files/file_win32.h"
#include "common/log/log_win32.h"
#include "common/places/known_folders_win32.h"
#include "common/system/owners_win32.h"
#include "common/text/path.h"
#include "common/text/text.h"
#include "common/text/text_win32.h"
#include "common/files/tree_removal_win32.h"
#include "export/log_interface.h"
#include "export/prepare/bridge_project.h"
#include "export/prepare/dependency_list.h"
#include "export/prepare/layer_selection_win32.h"

namespace kestrune {
namespace {

/// The number of attempts to create a directory whose deletion is pending: a virus scanner closes
/// its handle within a fraction of a second.
constexpr int kCreateAttempts = 20;
constexpr DWORD kCreatePauseMilliseconds = 50;

constexpr wchar_t kCannotFinish[] = L"Cannot finish temporary project";

/// Holds the paths of one run.
struct Preparation {
  const PrepareCommand& command;
  std::wstring temporary_root;
  std::wstring runtime_root;
  std::vector<std::wstring> dependencies;
};

/// Returns the embedded boards in the list. A list that cannot be read counts as empty, since most
/// boards have no embedded boards. Throws std::bad_alloc.
std::vector<std::wstring> ReadDependencies(SystemCalls& calls, const std::wstring& list_path) {
  const std::optional<std::string> bytes =
      ReadFileIfPossible(calls, list_path, std::numeric_limits<std::uint64_t>::max());
  if (!bytes) {
    return {};
  }
  std::vector<std::wstring> paths =
      ParseDependencyList(*bytes, [](std::string_view ansi) { return WideFromAnsi(ansi); });
  for (std::wstring& path : paths) {
    const std::wstring full = FullPath(path);
    if (!full.empty()) {
      path = full;
    }
  }
  return WithoutRepeatedPaths(paths);
}

/// Returns the final path of a file or directory, with aliases resolved (short names, substituted
/// drives, junctions). Returns an empty path when it cannot be opened. FILE_FLAG_OPEN_REPARSE_POINT
/// as `link_flag` keeps a link in the last component unresolved.
std::wstring FinalPath(SystemCalls& calls, const std::wstring& path, DWORD link_flag) {
  const FileHandle file(
      calls.Create(ExtendedPath(path), {0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | link_flag}));
  std::wstring final_path;
  DWORD size = file ? MAX_PATH : 0;
  while (size > final_path.size()) {
    final_path.resize(size);
    size = calls.GetFinalPath(file.Get(), final_path.data(), size, 0);
    if (size < final_path.size()) {
      final_path.resize(size);
      return final_path;
    }
  }
  return {};
}

/// Returns whether emptying the temporary root would delete the file. A root that is a link is not
/// followed, since emptying removes only the link.
bool LiesInTemporaryRoot(SystemCalls& calls, const std::wstring& path, const std::wstring& root) {
  const std::wstring full_path = FullPath(path);
  const std::wstring full_root = FullPath(root);
  if (full_path.empty() || full_root.empty()) {
    throw Failure{L"absolute", ERROR_INVALID_NAME};
  }
  if (LiesInside(full_path, full_root)) {
    return true;
  }
  const std::wstring final_root = FinalPath(calls, root, FILE_FLAG_OPEN_REPARSE_POINT);
  const std::wstring final_path = FinalPath(calls, path, 0);
  return !final_root.empty() && !final_path.empty() && LiesInside(final_path, final_root);
}

/// Returns why a source must not be exported; empty when it may be.
std::wstring RejectionOf(SystemCalls& calls, const std::wstring& path, const std::wstring& root) {
  if (path.empty() || LiesInTemporaryRoot(calls, path, root)) {
    return std::wstring(L"Cannot export the Bridge temporary PCB or an embedded board from its ")
        .append(kFragmentInside)
        .append(L". Open the original PCB project, not Bridge.PcbDoc from Recent.");
  }
  if (QueryFileKind(calls, path) != FileKind::RegularFile) {
    return std::wstring(L"A source PCB or embedded board ")
        .append(kFragmentGone)
        .append(L". Temporary files were not removed.");
  }
  return {};
}

std::wstring FirstRejection(SystemCalls& calls, const Preparation& run) {
  try {
    std::wstring rejection = RejectionOf(calls, run.command.source_pcb, run.temporary_root);
    for (std::size_t i = 0; rejection.empty() && i < run.dependencies.size(); ++i) {
      rejection = RejectionOf(calls, run.dependencies[i], run.temporary_root);
    }
    return rejection;
  } catch (...) {
    return L"Cannot validate source PCB paths. Temporary files were not removed.";
  }
}

/// Creates the root. Tries several times: the deletion of its predecessor is pending until the last
/// handle is closed.
void CreateRoot(SystemCalls& calls, const std::wstring& root) {
  for (int attempt = 1;; ++attempt) {
    try {
      return CreateDirectories(calls, root);
    } catch (const Failure& failure) {
      if (failure.code != ERROR_ACCESS_DENIED || attempt == kCreateAttempts) {
        throw;
      }
    }
    calls.Wait(kCreatePauseMilliseconds);
  }
}

/// Creates an empty temporary root and keeps it from being replaced.
class TemporaryFolder {
 public:
  /// Empties and creates the root. Any local user could replace the product's folder with a link,
  /// and emptying it would then delete another user's files. Both folders are therefore kept open,
  /// which prevents their replacement while the project is built.
  TemporaryFolder(SystemCalls& calls, const std::wstring& root) {
    const std::wstring product_folder(ParentPath(root));
    CreateDirectories(calls, product_folder);
    product_folder_ = HoldRealDirectory(calls, product_folder);
    RemoveTree(calls, root);
    CreateRoot(calls, root);
    root_ = HoldRealDirectory(calls, root);
  }

 private:
  FileHandle product_folder_;
  FileHandle root_;
};

/// Copies a file and clears the read-only attribute, which boards under version control often have:
/// the host could not save the copy, and the next run could not delete it.
void CopyWritable(SystemCalls& calls, const std::wstring& source, const std::wstring& target) {
  const ExtendedPath from(source);
  const ExtendedPath to(target);
  if (!calls.Copy(from, to, FALSE)) {
    ThrowLastError(L"copy", source);
  }
  ClearReadOnly(calls, target);
}

bool SelectLayersAndLog(SystemCalls& calls, const std::wstring& out_job,
                        const std::wstring& manifest) {
  std::vector<PlotFieldChange> changes;
  std::wstring error_text;
  if (!SelectOutJobLayers(calls, out_job, manifest, changes, error_text)) {
    WriteLogEntry(calls, kStageLayers, L"Manifest=" + manifest + L" Error=" + error_text);
    return false;
  }
  WriteLogEntry(calls, L"ODB used layers", L"Manifest=" + manifest);
  for (const PlotFieldChange& change : changes) {
    WriteLogEntry(calls, L"ODB plot field changed",
                  WideFromAnsi(change.field) + (change.enabled ? L"=True" : L"=False"));
  }
  return true;
}

/// Writes the project file. Finish throws the first failure of any function, since errors of
/// copying the dependencies have precedence.
class ProjectFile {
 public:
  ProjectFile(SystemCalls& calls, const std::wstring& path) : file_(calls, path) {}

  /// Writes text in the system's ANSI code page, which the host reads. A character outside it is a
  /// failure, since the host would search for a document of another name.
  void Append(std::wstring_view text) {
    std::string bytes;
    if (AnsiFromWide(WithWindowsLineEnds(text), bytes)) {
      file_.Write(bytes);
    } else {
      file_.Fail(ERROR_NO_UNICODE_TRANSLATION);
    }
  }

  void Finish() { file_.Finish(kCannotFinish); }

 private:
  FileWriter file_;
};

/// Throws Failure for the first dependency whose name the code page cannot represent, before any is
/// copied. Stops at a dependency whose name is taken, since AddDependency ends the run there.
void RequireNamesInCodePage(const std::vector<std::wstring>& dependencies) {
  BridgeFileNames names;
  for (const std::wstring& path : dependencies) {
    const std::wstring_view name = FileName(path);
    std::string bytes;
    if (!names.Take(name)) {
      return;
    }
    if (!AnsiFromWide(name, bytes)) {
      throw Failure{kCannotFinish, ERROR_NO_UNICODE_TRANSLATION, path};
    }
  }
}

int RejectName(SystemCalls& calls, const std::wstring& path) {
  WriteLogEntry(calls, kStageCollision, path);
  return kPrepareNameCollision;
}

/// Copies one embedded board and adds it to the project. Returns the exit code.
int AddDependency(SystemCalls& calls, const std::wstring& path, std::size_t number,
                  const std::wstring& root, BridgeFileNames& names, ProjectFile& project) {
  if (QueryFileKind(calls, path) != FileKind::RegularFile) {
    WriteLogEntry(calls, kStageMissing, path);
    return kPrepareMissingDependency;
  }
  const std::wstring_view name = FileName(path);
  if (!names.Take(name)) {
    return RejectName(calls, path);
  }
  const std::wstring copy = JoinPath(root, name);
  const ExtendedPath from(path);
  const ExtendedPath to(copy);
  if (!calls.Copy(from, to, TRUE)) {
    const DWORD code = GetLastError();
    // The name is free but the file exists: a short name, for example, may denote a file of the
    // project.
    if (code == ERROR_FILE_EXISTS || code == ERROR_ALREADY_EXISTS) {
      return RejectName(calls, path);
    }
    throw Failure{L"copy", code, path};
  }
  ClearReadOnly(calls, copy);
  project.Append(DependencySection(number, name));
  WriteLogEntry(calls, L"Prepare dependency", L"Source=" + path + L" Copy=" + copy);
  return kPrepared;
}

/// Writes the file whose presence signals to the script that the project is complete. Characters
/// that the code page cannot represent are replaced, since a missing file would fail the export.
void WriteReadyFile(SystemCalls& calls, const std::wstring& root, const std::wstring& source_pcb) {
  try {
    WriteWholeFile(calls, JoinPath(root, kReadyFile),
                   AnsiFromWideLossy(WithWindowsLineEnds(source_pcb)));
  } catch (const Failure& failure) {
    throw Failure{L"Cannot write ready.txt", failure.code, root};
  }
}

/// Makes all changes of the temporary root. Returns the exit code or throws Failure.
int BuildProject(SystemCalls& calls, const Preparation& run) {
  const std::wstring& root = run.temporary_root;
  const std::wstring out_job_path = JoinPath(root, kBridgeOutJob);
  const std::wstring project_path = JoinPath(root, kBridgeProject);
  [[maybe_unused]] const TemporaryFolder held(calls, root);
  CopyWritable(calls, run.command.source_pcb, JoinPath(root, kBridgeBoard));
  CopyWritable(calls, JoinPath(run.runtime_root, kBridgeOutJob), out_job_path);
  if (!SelectLayersAndLog(calls, out_job_path, run.command.used_layer_manifest)) {
    return kPrepareLayerSelectionFailed;
  }

  RequireNamesInCodePage(run.dependencies);
  ProjectFile project(calls, project_path);
  project.Append(BridgeProjectHead());
  BridgeFileNames names;
  std::size_t number = kFirstDependency;
  for (const std::wstring& dependency : run.dependencies) {
    const int code = AddDependency(calls, dependency, number, root, names, project);
    if (code != kPrepared) {
      return code;
    }
    ++number;
  }
  project.Append(OutJobSection(number));
  project.Finish();

  WriteReadyFile(calls, root, run.command.source_pcb);
  WriteLogEntry(calls, L"Prepare complete",
                L"Project=" + project_path + L" OutJob=" + out_job_path + L" Dependencies=" +
                    Decimal(run.dependencies.size()));
  return kPrepared;
}

void LogFailure(SystemCalls& calls, const Failure& failure) {
  WriteLogEntry(calls, kStageFailed, ErrorFields(failure) + PathField(failure));
}

}  // namespace

int PrepareTemporaryProject(SystemCalls& calls, const PrepareCommand& command) {
  Preparation run{command, {}, {}, {}};
  std::wstring local_app_data;
  std::wstring error_text;
  if (!LocalAppDataDirectory(calls, local_app_data, error_text)) {
    return kPrepareNoLocalAppData;
  }
  if (!TemporaryRoot(calls, run.temporary_root, error_text)) {
    return kPrepareNoPublicDocuments;
  }
  run.runtime_root = RuntimeRoot(local_app_data);
  try {
    run.dependencies = ReadDependencies(calls, command.dependency_list);
    WriteLogEntry(calls, L"Prepare begin",
                  L"SourcePCB=" + command.source_pcb + L" Temp=" + run.temporary_root +
                      L" Runtime=" + run.runtime_root + L" Dependencies=" +
                      Decimal(run.dependencies.size()));
    const std::wstring rejection = FirstRejection(calls, run);
    if (!rejection.empty()) {
      WriteLogEntry(calls, kStageRejected, rejection);
      return kPrepareRejected;
    }
    return BuildProject(calls, run);
  } catch (const Failure& failure) {
    LogFailure(calls, failure);
  } catch (const std::bad_alloc&) {
    LogFailure(calls, {kNotEnoughMemory, ERROR_NOT_ENOUGH_MEMORY});
  }
  return kPrepareFailed;
}

}  // namespace kestrune
