// Names in folders that are held open.
#include "platform/posix/Place.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace krOpenSSL::platform {
namespace {

constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kFileFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

} // namespace

int Place::openFolder(const char *path) noexcept {
  const std::size_t length = ::strnlen(path, path_.size());
  if (length == path_.size()) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(path_.data(), path, length + 1);
  char *separator = std::strrchr(path_.data(), '/');
  if (separator == nullptr) {
    errno = EINVAL;
    return -1;
  }
  *separator = '\0';
  name_ = separator + 1;
  return ::open(separator == path_.data() ? "/" : path_.data(), kFolderFlags);
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

Descriptor Place::create(mode_t mode) const noexcept {
  Descriptor made(::openat(folder_.get(), name_, O_WRONLY | O_APPEND | O_CREAT | O_EXCL | kFileFlags, mode));
  struct stat now {};
  if (made && ::fstat(made.get(), &now) == 0 && (now.st_mode & ALLPERMS) != mode) {
    (void)::fchmod(made.get(), mode); // the umask has cut it
  }
  return made;
}

bool Place::moveTo(const Place &other) const noexcept {
  if (::renameat(folder_.get(), name_, other.folder_.get(), other.name_) != 0) {
    return false;
  }
  const Descriptor folder(::openat(other.folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder) {
    (void)::fsync(folder.get());
  }
  return true;
}

} // namespace krOpenSSL::platform
