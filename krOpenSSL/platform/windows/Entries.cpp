// Entries of the file system: what they are, and replacing them without following a link.
#include "platform/Platform.h"
#include "platform/windows/Access.h"
#include "platform/windows/Win32.h"

#include <filesystem>

namespace krOpenSSL::platform {
namespace {

bool meansMissing(DWORD error) noexcept {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == ERROR_INVALID_NAME;
}

EntryKind kindOf(const Found &found) noexcept {
  if (found.isLink()) {
    return EntryKind::link;
  }
  return found.isFolder() ? EntryKind::folder : EntryKind::file;
}

// Looks at what opens with these flags; false when there is nothing. Passes on the error of a query that failed
// for another reason.
bool query(const char *path, DWORD flags, Found &found, const char *operation) {
  const Handle entry = openExisting(path, FILE_READ_ATTRIBUTES, kShareAll, flags);
  if (entry && found.look(entry)) {
    return true;
  }
  const DWORD reason = GetLastError();
  if (!meansMissing(reason)) {
    throw std::filesystem::filesystem_error(operation, path,
                                            std::error_code(static_cast<int>(reason), std::system_category()));
  }
  return false;
}

EntryKind kindAt(const char *path, DWORD flags, const char *operation) {
  Found found;
  return query(path, flags, found, operation) ? kindOf(found) : EntryKind::missing;
}

} // namespace

Entry inspect(const char *path) {
  Entry entry{.target = kindAt(path, FILE_FLAG_BACKUP_SEMANTICS, "exists")};
  Found found;
  if (query(path, kEntryItself, found, "symlink_status")) {
    entry.kind = kindOf(found);
    entry.links = found.isFolder() ? 1 : found.information.nNumberOfLinks;
  }
  return entry;
}

EntryKind status(const char *path) { return kindAt(path, FILE_FLAG_BACKUP_SEMANTICS, "status"); }

EntryKind linkStatus(const char *path) { return kindAt(path, kEntryItself, "symlink_status"); }

// By its handle, so that what was looked at is what goes.
bool removeEntry(const char *path) noexcept {
  const Handle entry = openExisting(path, DELETE | FILE_READ_ATTRIBUTES, kShareAll, kEntryItself);
  Found found;
  if (!entry || !found.look(entry) || kindOf(found) == EntryKind::folder) {
    return false;
  }
  FILE_DISPOSITION_INFO disposition{TRUE};
  return SetFileInformationByHandle(entry.get(), FileDispositionInfo, &disposition, sizeof disposition) != 0;
}

void createFolder(const char *path) noexcept { CreateDirectoryA(path, nullptr); }

void createFile(const char *path) noexcept {
  const Handle made(CreateFileA(path, GENERIC_WRITE, kShareAll, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool moveOver(const char *from, const char *to, std::uint64_t atLeast) noexcept {
  const auto size = AppendFile().size(from);
  return size && *size >= atLeast && MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

void syncFolder(const char * /*file*/) noexcept {}

// A link that is put in the place which has just become free is not followed, and what else is put there stays.
bool startFileForEveryone(const char *path) noexcept {
  ForEveryone access(GENERIC_ALL);
  if (!access) {
    return false;
  }
  if (Handle there = openExisting(path, GENERIC_READ, 0, FILE_ATTRIBUTE_NORMAL)) {
    there.close();
    if (DeleteFileA(path) == 0) {
      return false;
    }
  }
  return static_cast<bool>(Handle(CreateFileA(path, GENERIC_WRITE, 0, access.get(), CREATE_NEW,
                                              FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)));
}

} // namespace krOpenSSL::platform
