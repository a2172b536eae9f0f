#include "export/deliver/finalize_win32.h"

#include <windows.h>
#include <lmcons.h>

#include <new>

#include "common/log/clock_time_win32.h"
#include "common/failure/failure.h"
#include "common/files/file_win32.h"
#include "common/log/log_win32.h"
#include "common/text/path.h"
#include "common/places/known_folders_win32.h"
#include "common/places/product_files.h"
#include "common/text/text.h"
#include "common/failure/windows_error_win32.h"
#include "export/deliver/application/after_export_win32.h"
#include "export/deliver/archive_name.h"
#include "export/deliver/archive_space_win32.h"
#include "export/deliver/clipboard_win32.h"
#include "export/deliver/delivery_message.h"
#include "export/deliver/export_directory_win32.h"
#include "export/log_interface.h"
#include "export/settings/user_settings_win32.h"

namespace kestrune {
namespace {

/// Holds the destination of the archive, and the fallback if copying there fails.
struct Target {
  std::wstring default_directory;
  std::wstring file_name;
  std::wstring directory;
  bool is_configured = false;

  [[nodiscard]] std::wstring Destination() const { return JoinPath(directory, file_name); }
};

/// Returns the user's settings; defaults where they cannot be read.
UserSettings SettingsOrDefaults(SystemCalls& calls) {
  UserSettings settings;
  try {
    std::wstring settings_path;
    std::wstring error_text;
    return LoadUserSettings(calls, settings, settings_path, error_text) ? settings : UserSettings();
  } catch (const Failure&) {
    return {};
  }
}

std::wstring UserName(SystemCalls& calls) {
  wchar_t name[UNLEN + 1] = {};
  DWORD size = UNLEN + 1;
  return calls.GetUser(name, &size) ? name : L"";
}

/// Returns the archive's name: that of the board, unless the settings have a usable template.
std::wstring ChooseName(SystemCalls& calls, const std::wstring& name_template,
                        const std::wstring& source_pcb) {
  const std::wstring_view board = FileStem(source_pcb);
  if (!name_template.empty()) {
    const std::wstring user = UserName(calls);
    if (const auto name = ArchiveName(name_template, {board, LocalTimeNow(calls), user})) {
      return *name;
    }
    WriteLogEntry(calls, L"Configured archive name unavailable", name_template);
  }
  return std::wstring(board) + L".zip";
}

Target ChooseTarget(SystemCalls& calls, const std::wstring& local_app_data,
                    const std::wstring& source_pcb) {
  const UserSettings settings = SettingsOrDefaults(calls);
  Target target;
  target.default_directory = JoinPath({local_app_data, kProductFolder, kDefaultExportFolder});
  target.directory = target.default_directory;
  target.file_name = ChooseName(calls, settings.archive_name, source_pcb);
  const std::wstring& written = settings.export_directory;
  if (written.empty()) {
    return target;
  }
  WriteLogEntry(calls, L"Configured export directory", written);
  std::wstring prepared;
  if (PrepareExportDirectory(calls, written, prepared)) {
    target.directory = prepared;
    target.is_configured = true;
    WriteLogEntry(calls, L"Using configured export directory", prepared);
  } else {
    WriteLogEntry(calls, L"Configured export directory unavailable", written);
  }
  return target;
}

/// Returns where the host writes its archive for the temporary project.
std::optional<std::wstring> FindNativeArchive(SystemCalls& calls) {
  std::wstring root;
  std::wstring error_text;
  if (!TemporaryRoot(calls, root, error_text)) {
    return std::nullopt;
  }
  return JoinPath({root, kNativeOutputFolder, kNativeArchiveFolder, kNativeArchiveFile});
}

void RequireArchive(SystemCalls& calls, const std::wstring& native_zip) {
  constexpr const wchar_t* text = L"Generated ZIP is missing or empty";
  const FileEntry entry = QueryEntry(calls, native_zip, text);
  if (entry.size == 0 || entry.kind != FileKind::RegularFile) {
    throw Failure{text, 0, native_zip};
  }
}

/// Copies a file over an existing one. Returns ERROR_SUCCESS or the code of the call.
DWORD CopyOver(SystemCalls& calls, const std::wstring& source, const std::wstring& target) {
  const ExtendedPath from(source);
  const ExtendedPath to(target);
  return calls.Copy(from, to, FALSE) ? ERROR_SUCCESS : GetLastError();
}

/// Copies the archive, falling back from a configured directory to the default one, which `target`
/// then names. A failure sets the user's message.
void CopyArchive(SystemCalls& calls, const std::wstring& native_zip, Target& target,
                 std::wstring& user_message) {
  for (;;) {
    const std::wstring destination = target.Destination();
    DWORD code = ERROR_DISK_FULL;
    if (!LacksSpaceToOverwrite(calls, native_zip, destination)) {
      code = CopyOver(calls, native_zip, destination);
    }
    if (code == ERROR_SUCCESS) {
      // CopyFile copies the read-only attribute of the original, which would make the next export
      // fail.
      ClearReadOnly(calls, destination);
      break;
    }
    const std::wstring error = WindowsErrorText(code);
    if (!target.is_configured) {
      user_message = OverwriteFailureMessage(destination, error);
      throw Failure{L"copy", code, destination};
    }
    std::wstring details = L"Path=" + destination;
    details.append(L" Error=").append(error);
    WriteLogEntry(calls, L"Configured export copy failed", details);
    target.directory = target.default_directory;
    target.is_configured = false;
  }
  if (!target.is_configured) {
    WriteLogEntry(calls, L"Using default export directory", target.default_directory);
  }
}

/// Logs the copy and returns its size in bytes.
std::uint64_t LogCopy(SystemCalls& calls, const std::wstring& destination) {
  const FileEntry entry = QueryEntry(calls, destination, L"file_size");
  WriteLogEntry(calls, kStageDelivered,
                L"Destination=" + destination + L" Size=" + Decimal(entry.size));
  return entry.size;
}

/// Hands the copied archive to the application, or else places it on the clipboard.
FinalizeOutcome HandOver(const Doors& doors, const std::wstring& destination, std::uint64_t size,
                         std::optional<std::int64_t> space) {
  const AfterExportResult application = RunAfterExport(doors, destination, space);
  if (application.configured && application.delivered) {
    return {};
  }
  Delivery delivery;
  delivery.zip_path = destination;
  delivery.size = size;
  delivery.application_configured = application.configured;
  delivery.application_error = application.error_text;
  const bool on_clipboard =
      PlaceZipOnClipboard(destination, doors.desktop, delivery.clipboard_error);
  return {on_clipboard ? kDelivered : kNotOnClipboard, DeliveryMessage(delivery),
          MessageIcon::Information};
}

FinalizeOutcome ReportFailure(SystemCalls& calls, const std::wstring& native_zip,
                              const Failure& failure, const std::wstring& user_message) {
  const bool exists = QueryFileKindQuietly(calls, native_zip) != FileKind::Absent;
  WriteLogEntry(calls, L"Finalize error", L"Error=" + failure.text + PathField(failure));
  WriteLogEntry(calls, kStageUndelivered,
                std::wstring(L"NativeExists=") + (exists ? L"yes" : L"no") + L" NativeOutput=" +
                    native_zip + CodeField(failure));
  return {kFinalizeFailed, user_message.empty() ? FinalizeFailureMessage(calls) : user_message,
          MessageIcon::Error};
}

}  // namespace

FinalizeOutcome DeliverExport(const std::wstring& local_app_data, const std::wstring& native_zip,
                              const std::wstring& source_pcb, std::optional<std::int64_t> space,
                              const Doors& doors) {
  SystemCalls& calls = doors.system;
  std::wstring user_message;
  try {
    // Keeps the archive open, if possible: a preparation that another run starts meanwhile then
    // fails, instead of replacing the archive with that of another board.
    FileHandle held(calls.Create(ExtendedPath(native_zip), {GENERIC_READ, FILE_SHARE_READ}));
    Target target = ChooseTarget(calls, local_app_data, source_pcb);
    WriteLogEntry(calls, L"Finalize begin",
                  L"SourcePCB=" + source_pcb + L" NativeOutput=" + native_zip + L" Destination=" +
                      target.Destination());
    CreateDirectories(calls, target.default_directory);
    RequireArchive(calls, native_zip);
    CopyArchive(calls, native_zip, target, user_message);
    held.Reset();
    const std::uint64_t size = LogCopy(calls, target.Destination());
    return HandOver(doors, target.Destination(), size, space);
  } catch (const Failure& failure) {
    return ReportFailure(calls, native_zip, failure, user_message);
  } catch (const std::bad_alloc&) {
    return ReportFailure(calls, native_zip, {kNotEnoughMemory, ERROR_NOT_ENOUGH_MEMORY},
                         user_message);
  }
}

int FinalizeExport(const FinalizeCommand& command, const Doors& doors) {
  const std::optional<std::wstring> native_zip =
      command.native_zip ? command.native_zip : FindNativeArchive(doors.system);
  if (!native_zip) {
    return kFinalizeNoFolder;
  }
  std::wstring local_app_data;
  std::wstring error_text;
  if (!LocalAppDataDirectory(doors.system, local_app_data, error_text)) {
    doors.desktop.ShowMessage(error_text, MessageIcon::Error);
    return kFinalizeNoFolder;
  }
  const FinalizeOutcome outcome =
      DeliverExport(local_app_data, *native_zip, command.source_pcb, command.space, doors);
  if (!outcome.message.empty()) {
    doors.desktop.ShowMessage(outcome.message, outcome.icon);
  }
  return outcome.code;
}

std::wstring FinalizeFailureMessage(SystemCalls& calls) {
  return FinalizeFailureMessage(LogFilePath(calls));
}

}  // namespace kestrune
