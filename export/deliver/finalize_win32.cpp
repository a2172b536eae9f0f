#include "export/deliver/finalize_win32.h"

#include <windows.h>

#include <new>

#include "common/failure.h"
#include "common/failure_win32.h"
#include "common/file_win32.h"
#include "common/log_win32.h"
#include "common/path.h"
#include "common/product_files.h"
#include "common/text.h"
#include "common/windows_error_win32.h"
#include "export/deliver/after_export_win32.h"
#include "export/deliver/clipboard_win32.h"
#include "export/deliver/delivery_message.h"
#include "export/deliver/export_directory_win32.h"
#include "export/settings/user_settings_win32.h"

namespace kestrune {
namespace {

/// Where the archive is copied to, and where else if that fails.
struct Target {
  std::wstring default_directory;
  std::wstring file_name;
  std::wstring directory;
  bool is_configured = false;

  [[nodiscard]] std::wstring Destination() const { return JoinPath(directory, file_name); }
};

/// The export directory of the settings; empty where they name none or cannot be read, for the
/// default directory serves then.
std::wstring ConfiguredDirectory() {
  UserSettings settings;
  try {
    std::wstring settings_path;
    std::wstring error_text;
    return LoadUserSettings(settings, settings_path, error_text) ? settings.export_directory
                                                                 : std::wstring();
  } catch (const Failure&) {
    return {};
  }
}

Target ChooseTarget(const std::wstring& local_app_data, const std::wstring& source_pcb) {
  Target target;
  target.default_directory = JoinPath({local_app_data, kProductFolder, kDefaultExportFolder});
  target.directory = target.default_directory;
  target.file_name = std::wstring(FileStem(source_pcb)) + L".zip";
  const std::wstring written = ConfiguredDirectory();
  if (written.empty()) {
    return target;
  }
  WriteLogEntry(L"Configured export directory", written);
  std::wstring prepared;
  if (PrepareExportDirectory(written, prepared)) {
    target.directory = prepared;
    target.is_configured = true;
    WriteLogEntry(L"Using configured export directory", prepared);
  } else {
    WriteLogEntry(L"Configured export directory unavailable", written);
  }
  return target;
}

/// Where the host writes its archive for the temporary project.
std::optional<std::wstring> FindNativeArchive(FolderCalls& folders) {
  std::wstring root;
  std::wstring error_text;
  if (!TemporaryRoot(root, error_text, folders)) {
    return std::nullopt;
  }
  return JoinPath({root, kNativeOutputFolder, kNativeArchiveFolder, kNativeArchiveFile});
}

/// The archive's size; a failure when there is nothing to deliver.
std::uint64_t RequireArchive(const std::wstring& native_zip) {
  constexpr const wchar_t* text = L"Generated ZIP is missing or empty";
  FileEntry entry;
  DWORD code = 0;
  if (!QueryEntry(native_zip, entry, code)) {
    throw Failure{text, code};
  }
  if (entry.size == 0 || entry.kind != FileKind::RegularFile) {
    throw Failure{text};
  }
  return entry.size;
}

/// Whether an archive of this size has no room in place of the one that the destination holds.
/// Copying would empty that one first, and the user would be left without either.
bool FindsNoRoom(std::uint64_t size, const std::wstring& destination) {
  FileEntry former;
  DWORD code = 0;
  ULARGE_INTEGER free = {};
  // A folder on a network share is answered for only with a separator behind it.
  const std::wstring folder = ExtendedPath(JoinPath(ParentPath(destination), L"")).Text();
  return QueryEntry(destination, former, code) && former.kind == FileKind::RegularFile &&
         GetDiskFreeSpaceExW(folder.c_str(), &free, nullptr, nullptr) != FALSE &&
         size > free.QuadPart + former.size;
}

bool CopyNativeOutput(const std::wstring& native_zip, std::uint64_t size,
                      const std::wstring& destination, DWORD& code) {
  if (FindsNoRoom(size, destination)) {
    code = ERROR_DISK_FULL;
    return false;
  }
  const bool copied = CopyOver(native_zip, destination);
  code = GetLastError();
  return copied;
}

/// Copies the archive, falling back from a configured directory to the default one, which `target`
/// then names. A failure sets the user's message.
void CopyToTarget(const std::wstring& native_zip, std::uint64_t size, Target& target,
                  std::wstring& user_message) {
  DWORD code = 0;
  bool copied = CopyNativeOutput(native_zip, size, target.Destination(), code);
  if (!copied && target.is_configured) {
    WriteLogEntry(L"Configured export copy failed",
                  L"Path=" + target.Destination() + L" Error=" + WindowsErrorText(code));
    target.directory = target.default_directory;
    target.is_configured = false;
    copied = CopyNativeOutput(native_zip, size, target.Destination(), code);
  }
  if (!copied) {
    user_message = OverwriteFailureMessage(target.Destination(), WindowsErrorText(code));
    throw Failure{L"copy", code};
  }
  if (!target.is_configured) {
    WriteLogEntry(L"Using default export directory", target.default_directory);
  }
}

/// Creates the default directory, copies the archive and answers its size at the destination.
std::uint64_t CopyArchive(const std::wstring& native_zip, Target& target,
                          std::wstring& user_message) {
  if (!CreateDirectories(target.default_directory)) {
    ThrowLastError(L"create_directories");
  }
  const std::uint64_t size = RequireArchive(native_zip);
  CopyToTarget(native_zip, size, target, user_message);
  FileEntry entry;
  DWORD code = 0;
  if (!QueryEntry(target.Destination(), entry, code)) {
    throw Failure{L"file_size", code};
  }
  WriteLogEntry(L"Finalize copied",
                L"Destination=" + target.Destination() + L" Size=" + Decimal(entry.size));
  return entry.size;
}

/// Hands the copied archive over: to the application, else to the clipboard and the user.
FinalizeOutcome HandOver(const std::wstring& destination, std::uint64_t size,
                         std::optional<std::int64_t> space, Desktop& desktop) {
  const AfterExportResult application = RunAfterExport(destination, space, desktop);
  if (application.configured && application.delivered) {
    return {};
  }
  Delivery delivery;
  delivery.zip_path = destination;
  delivery.size = size;
  delivery.application_configured = application.configured;
  delivery.application_error = application.error_text;
  const bool on_clipboard = PlaceZipOnClipboard(destination, desktop, delivery.clipboard_error);
  return {on_clipboard ? kDelivered : kNotOnClipboard, DeliveryMessage(delivery),
          MessageIcon::Information};
}

FinalizeOutcome ReportFailure(const std::wstring& native_zip, DWORD code,
                              const std::wstring& user_message) {
  const bool exists = QueryFileKindQuietly(native_zip) != FileKind::Absent;
  WriteLogEntry(L"Finalize failed", std::wstring(L"NativeExists=") + (exists ? L"yes" : L"no") +
                                        L" NativeOutput=" + native_zip + L" GetLastError=" +
                                        Decimal(code));
  return {kFinalizeFailed, user_message.empty() ? FinalizeFailureMessage() : user_message,
          MessageIcon::Error};
}

}  // namespace

FinalizeOutcome DeliverExport(const std::wstring& local_app_data, const std::wstring& native_zip,
                              const std::wstring& source_pcb, std::optional<std::int64_t> space,
                              Desktop& desktop) {
  std::wstring user_message;
  try {
    Target target = ChooseTarget(local_app_data, source_pcb);
    WriteLogEntry(L"Finalize begin", L"SourcePCB=" + source_pcb + L" NativeOutput=" + native_zip +
                                         L" Destination=" + target.Destination());
    const std::uint64_t size = CopyArchive(native_zip, target, user_message);
    return HandOver(target.Destination(), size, space, desktop);
  } catch (const Failure& failure) {
    const DWORD last_error = GetLastError();
    return ReportFailure(native_zip, failure.code != 0 ? failure.code : last_error, user_message);
  } catch (const std::bad_alloc&) {
    return ReportFailure(native_zip, ERROR_NOT_ENOUGH_MEMORY, user_message);
  }
}

FinalizeOutcome FinalizeQuietly(const FinalizeCommand& command, FolderCalls& folders,
                                Desktop& desktop) {
  const std::optional<std::wstring> native_zip =
      command.native_zip ? command.native_zip : FindNativeArchive(folders);
  if (!native_zip) {
    return {kFinalizeNoFolder, {}, MessageIcon::Error};
  }
  std::wstring local_app_data;
  std::wstring error_text;
  if (!LocalAppDataDirectory(local_app_data, error_text, folders)) {
    return {kFinalizeNoFolder, error_text, MessageIcon::Error};
  }
  return DeliverExport(local_app_data, *native_zip, command.source_pcb, command.space, desktop);
}

int FinalizeExport(const FinalizeCommand& command, Desktop& desktop) {
  FolderCalls folders;
  const FinalizeOutcome outcome = FinalizeQuietly(command, folders, desktop);
  if (!outcome.message.empty()) {
    desktop.ShowMessage(outcome.message, outcome.icon);
  }
  return outcome.code;
}

std::wstring FinalizeFailureMessage() {
  return FinalizeFailureMessage(LogFilePath());
}

}  // namespace kestrune
