#include "common/files/tree_removal_win32.h"

#include <optional>
#include <vector>

#include "common/failure/failure.h"
#include "common/failure/windows_error_win32.h"

namespace kestrune {
namespace {

/// The number of waits for a pending deletion: a virus scanner closes its handle within a fraction
/// of a second.
constexpr int kWaits = 20;
constexpr DWORD kWaitMilliseconds = 50;

/// ERROR_REPARSE_POINT_ENCOUNTERED, which not every SDK names.
constexpr DWORD kReparsePointEncountered = 4395;

constexpr wchar_t kRemove[] = L"remove";

bool IsDirectory(DWORD attributes) {
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

/// Returns whether a reparse point is a link to another place. Others, such as cloud files, are
/// ordinary entries. An unknown tag counts as a link, which is the safe choice.
bool IsLink(DWORD attributes, DWORD tag) {
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         (tag == 0 || IsReparseTagNameSurrogate(tag));
}

bool IsDotEntry(const wchar_t* name) {
  return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

/// Returns the entry of a path in its directory listing.
std::optional<WIN32_FIND_DATAW> ReadListing(SystemCalls& calls, const ExtendedPath& path) {
  WIN32_FIND_DATAW entry{};
  const FindHandle find(calls.FindFirst(path, &entry));
  return find ? std::optional(entry) : std::nullopt;
}

/// Holds the stat of a path, links not followed, or the code of the call that failed.
struct Stat {
  DWORD code = ERROR_SUCCESS;
  DWORD attributes = 0;
  bool is_link = false;
};

Stat StatOfPath(SystemCalls& calls, const ExtendedPath& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!calls.GetAttributes(path, &data)) {
    return {GetLastError()};
  }
  Stat stat{ERROR_SUCCESS, data.dwFileAttributes};
  if ((stat.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    const auto listed = ReadListing(calls, path);
    stat.is_link = IsLink(stat.attributes, listed ? listed->dwReserved0 : 0);
  }
  return stat;
}

/// Returns the stat of an open handle, since its path may denote another entry by now.
Stat StatOfHandle(SystemCalls& calls, const FileHandle& handle) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (!calls.GetInformation(handle.Get(), &information)) {
    return {GetLastError()};
  }
  Stat stat{ERROR_SUCCESS, information.dwFileAttributes};
  if ((stat.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    FILE_ATTRIBUTE_TAG_INFO tag{};
    const bool known = calls.GetTag(handle.Get(), &tag) != FALSE;
    stat.is_link = IsLink(stat.attributes, known ? tag.ReparseTag : 0);
  }
  return stat;
}

FileHandle OpenDirectory(SystemCalls& calls, const ExtendedPath& path) {
  // The sharing mode takes effect only with a right to the content; a right to the attributes is
  // not enough.
  return FileHandle(
      calls.Create(path, {FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING,
                          FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr}));
}

/// Removes one tree and counts its remaining waits.
class Removal {
 public:
  explicit Removal(SystemCalls& calls) : calls_(calls) {}

  /// Removes the root directory. Removes its content only if Windows reports that there is some.
  void RemoveRoot(const ExtendedPath& root) {
    while (!calls_.DeleteDirectory(root)) {
      const DWORD code = GetLastError();
      if (MeansAbsent(code)) {
        return;
      }
      if (code == ERROR_DIR_NOT_EMPTY) {
        RemoveContent(root);
      } else if (!tried_content_) {
        Fail(root, code);
      } else {
        WaitOrFail(root, code);
      }
    }
  }

  /// Removes a file, a link or an empty directory. Returns false after one wait for a pending
  /// deletion; the caller then checks the path again.
  bool RemoveEntry(const ExtendedPath& path, DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
      calls_.SetAttributes(path, attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    }
    if (IsDirectory(attributes) ? calls_.DeleteDirectory(path) : calls_.Delete(path)) {
      return true;
    }
    const DWORD code = GetLastError();
    if (MeansAbsent(code)) {
      return true;
    }
    WaitOrFail(path, code);
    return false;
  }

 private:
  struct OpenFolder {
    ExtendedPath path;
    FileHandle handle;
    DWORD attributes = 0;
  };

  [[noreturn]] static void Fail(const ExtendedPath& path, DWORD code) {
    throw Failure{kRemove, code, path.Shown()};
  }

  /// Waits when the code is one of the two that a pending deletion causes; throws Failure for any
  /// other code, and when no wait is left.
  void WaitOrFail(const ExtendedPath& path, DWORD code) {
    if ((code != ERROR_ACCESS_DENIED && code != ERROR_DIR_NOT_EMPTY) || waits_ == 0) {
      Fail(path, code);
    }
    --waits_;
    calls_.Wait(kWaitMilliseconds);
  }

  /// Removes the content of the root: descends to the first directory without subdirectories,
  /// removes it, and continues in its parent. Avoids recursion, since a tree can be as deep as the
  /// longest path. A second call waits first: the content of the first is then pending deletion.
  void RemoveContent(const ExtendedPath& root) {
    if (tried_content_) {
      WaitOrFail(root, ERROR_DIR_NOT_EMPTY);
    }
    tried_content_ = true;
    Enter(root);
    while (!open_.empty()) {
      if (const auto subdirectory = RemoveUpToSubdirectory(open_.back().path)) {
        Enter(open_.back().path.Entry(*subdirectory));
        continue;
      }
      const ExtendedPath path = open_.back().path;
      const DWORD attributes = open_.back().attributes;
      open_.pop_back();
      if (!open_.empty()) {
        RemoveEntry(path, attributes);
      }
    }
  }

  /// Opens a directory and keeps it open while its entries are removed. If it has become a link or
  /// a file, removes that; if it has disappeared, succeeds.
  void Enter(const ExtendedPath& path) {
    FileHandle handle = OpenDirectory(calls_, path);
    if (!handle) {
      const DWORD code = GetLastError();
      if (!MeansAbsent(code)) {
        WaitOrFail(path, code);
      }
      return;
    }
    const Stat stat = StatOfHandle(calls_, handle);
    if (stat.code != ERROR_SUCCESS) {
      Fail(path, stat.code);
    }
    if (!IsDirectory(stat.attributes) || stat.is_link) {
      handle.Reset();
      RemoveEntry(path, stat.attributes);
      return;
    }
    open_.push_back({path, std::move(handle), stat.attributes});
  }

  /// Removes files and links up to the first subdirectory that is not a link, and returns its name.
  std::optional<std::wstring> RemoveUpToSubdirectory(const ExtendedPath& directory) {
    WIN32_FIND_DATAW entry{};
    const ExtendedPath pattern = directory.Entry(L"*");
    const FindHandle find(calls_.FindFirst(pattern, &entry));
    if (!find) {
      const DWORD code = GetLastError();
      if (code != ERROR_FILE_NOT_FOUND) {
        Fail(directory, code);
      }
      return std::nullopt;
    }
    do {
      if (IsDotEntry(entry.cFileName)) {
        continue;
      }
      if (IsDirectory(entry.dwFileAttributes) &&
          !IsLink(entry.dwFileAttributes, entry.dwReserved0)) {
        return entry.cFileName;
      }
      RemoveEntry(directory.Entry(entry.cFileName), entry.dwFileAttributes);
    } while (calls_.FindNext(find.Get(), &entry));
    const DWORD code = GetLastError();
    if (code != ERROR_NO_MORE_FILES) {
      Fail(directory, code);
    }
    return std::nullopt;
  }

  SystemCalls& calls_;
  /// The open directories, from the root down.
  std::vector<OpenFolder> open_;
  int waits_ = kWaits;
  bool tried_content_ = false;
};

}  // namespace

FileHandle HoldRealDirectory(SystemCalls& calls, const std::wstring& path) {
  const ExtendedPath extended(path);
  FileHandle handle = OpenDirectory(calls, extended);
  if (!handle) {
    const DWORD code = GetLastError();
    throw Failure{L"open", code, path};
  }
  // The path is checked too, since some systems follow the link despite the flag.
  if (StatOfHandle(calls, handle).is_link || StatOfPath(calls, extended).is_link) {
    throw Failure{L"The folder is a link", kReparsePointEncountered, path};
  }
  return handle;
}

void RemoveTree(SystemCalls& calls, const std::wstring& path) {
  const ExtendedPath root(path);
  const Stat stat = StatOfPath(calls, root);
  if (stat.code != ERROR_SUCCESS) {
    if (MeansAbsent(stat.code)) {
      return;
    }
    throw Failure{kRemove, stat.code, root.Shown()};
  }
  Removal removal(calls);
  if (!IsDirectory(stat.attributes) || stat.is_link) {
    while (!removal.RemoveEntry(root, stat.attributes)) {
    }
    return;
  }
  if ((stat.attributes & FILE_ATTRIBUTE_READONLY) != 0) {
    calls.SetAttributes(root, stat.attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
  }
  removal.RemoveRoot(root);
}

}  // namespace kestrune
