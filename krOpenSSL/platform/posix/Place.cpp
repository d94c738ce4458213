// Names in folders that are held open.
#include "platform/posix/Place.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace krOpenSSL::platform {
namespace {

constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kFileFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

} // namespace

int Place::openFolder(const char *path) noexcept {
  const char *separator = std::strrchr(path, '/');
  if (separator == nullptr) {
    errno = EINVAL;
    return -1;
  }
  std::array<char, PATH_MAX> folder;
  const auto length = static_cast<std::size_t>(separator - path);
  if (length >= folder.size()) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(folder.data(), path, length);
  folder.at(length) = '\0';
  return ::open(length == 0 ? "/" : folder.data(), kFolderFlags);
}

Place::Place(const char *path, int folder) noexcept : folder_(folder) {
  const char *separator = std::strrchr(path, '/');
  name_ = separator == nullptr ? path : separator + 1;
}

bool Place::look(struct stat &found) const noexcept {
  return ::fstatat(folder_.get(), name_, &found, AT_SYMLINK_NOFOLLOW) == 0;
}

Descriptor Place::open(int flags, struct stat &found) const noexcept {
  Descriptor opened(::openat(folder_.get(), name_, flags | kFileFlags));
  struct stat now {};
  if (!opened || ::fstat(opened.get(), &now) != 0) {
    return Descriptor{};
  }
  if (!isSameEntry(now, found)) {
    errno = ESTALE;
    return Descriptor{};
  }
  found = now;
  return opened;
}

// Linux takes a link from a file's count before the name leaves its folder: between the two a file with another name
// shows up with this one alone. A renaming waits for whoever is at it, and one onto itself changes nothing.
bool Place::holdsAlone(const struct stat &opened) const noexcept {
  (void)::renameat(folder_.get(), name_, folder_.get(), name_);
  struct stat now {};
  return look(now) && isSameEntry(now, opened) && isPlainFile(now);
}

bool Place::mayReplace() const noexcept {
  struct stat folder {};
  if (::faccessat(folder_.get(), ".", W_OK, AT_EACCESS) != 0 || ::fstat(folder_.get(), &folder) != 0) {
    return false;
  }
  const uid_t user = ::geteuid();
  struct stat found {};
  return (folder.st_mode & S_ISVTX) == 0 || user == 0 || user == folder.st_uid || !look(found) || user == found.st_uid;
}

Descriptor Place::create(mode_t mode) const noexcept {
  Descriptor made(::openat(folder_.get(), name_, O_WRONLY | O_APPEND | O_CREAT | O_EXCL | kFileFlags, mode));
  struct stat now {};
  // Only what the umask has cut is put back: another process may have opened the file to everyone meanwhile.
  if (made && ::fstat(made.get(), &now) == 0 && (now.st_mode & mode) != mode) {
    (void)::fchmod(made.get(), mode);
  }
  return made;
}

bool Place::moveTo(const Place &other) const noexcept {
  return ::renameat(folder_.get(), name_, other.folder_.get(), other.name_) == 0;
}

bool Place::exchangeWith(const Place &other) const noexcept {
  return ::renameat2(folder_.get(), name_, other.folder_.get(), other.name_, RENAME_EXCHANGE) == 0;
}

void Place::sync() const noexcept {
  const Descriptor folder(::openat(folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder) {
    (void)::fsync(folder.get());
  }
}

} // namespace krOpenSSL::platform
