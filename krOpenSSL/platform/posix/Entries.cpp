// Entries of the file system: what they are, and replacing them without following a link.
#include "platform/Platform.h"
#include "platform/posix/Place.h"

#include <sys/file.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>

namespace krOpenSSL::platform {
namespace {

EntryKind kindOf(const struct stat &found) noexcept {
  switch (found.st_mode & S_IFMT) {
  case S_IFREG:
    return EntryKind::file;
  case S_IFDIR:
    return EntryKind::folder;
  case S_IFLNK:
    return EntryKind::link;
  default:
    return EntryKind::other;
  }
}

// Links that lead round in a circle lead to nothing; a name that is too long names nothing.
bool meansMissing(int error) noexcept {
  return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
}

// Passes on the error of a query that failed for another reason than that nothing is there.
EntryKind kindFrom(int result, const struct stat &found, const char *operation, const char *path) {
  if (result == 0) {
    return kindOf(found);
  }
  if (!meansMissing(errno)) {
    throw std::filesystem::filesystem_error(operation, path, std::error_code(errno, std::generic_category()));
  }
  return EntryKind::missing;
}

EntryKind targetOf(const char *path, const char *operation) {
  struct stat found {};
  return kindFrom(::stat(path, &found), found, operation, path);
}

// What the move has put there, or that of another process since: it may have lines of others already.
bool isForEveryone(const struct stat &found) noexcept {
  return isPlainFile(found) && (found.st_mode & ALLPERMS) == kEveryoneMode;
}

// What another process of this user has started since, at whatever point of it: its owner and mode give nobody
// anything that the fresh file would not.
bool isJustStarted(const struct stat &found) noexcept {
  return isPlainFile(found) && found.st_uid == ::geteuid() && (found.st_mode & ALLPERMS & ~kEveryoneMode) == 0;
}

// Puts a fresh file in the place of the source, which moves to the target, so that at every moment a file stands there
// that everyone may write to. In between it stands under a name of its own: one that is there already was left behind
// by a process which ended in between.
bool moveBehindFresh(const char *from, const Place &source, const Place &target) noexcept {
  std::array<char, PATH_MAX> name;
  const int length = std::snprintf(name.data(), name.size(), "%s.new", from);
  const Place fresh(static_cast<std::size_t>(length) < name.size() ? name.data() : "");
  struct stat found {};
  if (!fresh || (target.look(found) && S_ISDIR(found.st_mode))) {
    return false;
  }
  (void)fresh.remove();
  if (!fresh.create(kEveryoneMode)) {
    return false;
  }
  if (source.exchangeWith(fresh) && (fresh.moveTo(target) || !source.exchangeWith(fresh))) {
    return true;
  }
  (void)fresh.remove();
  return false;
}

} // namespace

Entry inspect(const char *path) {
  struct stat found {};
  const EntryKind kind = kindFrom(::lstat(path, &found), found, "exists", path);
  return {.target = kind == EntryKind::link ? targetOf(path, "exists") : kind,
          .kind = kind,
          .links = kind == EntryKind::folder ? 1 : found.st_nlink, // its parts count as links to it here
          .device = found.st_dev,
          .number = found.st_ino};
}

EntryKind status(const char *path) { return targetOf(path, "status"); }

EntryKind linkStatus(const char *path) {
  struct stat found {};
  return kindFrom(::lstat(path, &found), found, "symlink_status", path);
}

bool removeEntry(const char *path) noexcept {
  const Place place(path);
  return place && place.remove();
}

// Nobody else gets at them until they are given their owner and access.
void createFolder(const char *path) noexcept {
  const Place place(path);
  (void)(place && place.makeFolder(S_IRWXU));
}

void createFile(const char *path) noexcept {
  const Place place(path);
  (void)(place && place.create(S_IRUSR | S_IWUSR));
}

Rotation::Rotation(const char * /*folder*/) noexcept {}
Rotation::~Rotation() = default;
Rotation::operator bool() const noexcept { return true; }
bool Rotation::isAlone() const noexcept { return true; }

bool moveOver(const char *from, const char *to, std::uint64_t atLeast) noexcept {
  const Place source(from);
  const Place target(to);
  struct stat found {};
  if (!source || !target || !source.look(found) || !isPlainFile(found)) {
    return false;
  }
  // Or the lock that it takes keeps those from moving who may.
  if (!source.mayReplace() || !target.mayReplace()) {
    return false;
  }
  const Descriptor held = source.open(O_RDONLY, found);
  if (!held) {
    return false;
  }
  // Of several processes one moves the file. A lock that somebody keeps must not stop that for good.
  const bool isOurs = ::flock(held.get(), LOCK_EX | LOCK_NB) == 0;
  struct stat now {};
  if (!source.look(now) || !isSameEntry(now, found)) {
    return false;
  }
  const auto size = static_cast<std::uint64_t>(now.st_size);
  if (size < atLeast || (!isOurs && size / 2 < atLeast)) {
    return false;
  }
  return (isOurs && moveBehindFresh(from, source, target)) || source.moveTo(target);
}

void syncFolder(const char *file) noexcept {
  if (const Place place(file); place) {
    place.sync();
  }
}

bool startFileForEveryone(const char *path) noexcept {
  constexpr int kAttempts = 4; // another process may start the file between a look and the creation
  const Place place(path);
  for (int attempt = 0; place && attempt < kAttempts; ++attempt) {
    struct stat found {};
    if (place.look(found)) {
      if (isForEveryone(found)) {
        return true;
      }
      // What another process has started since the move stays, with its lines.
      const Descriptor started = isJustStarted(found) ? place.open(O_WRONLY, found) : Descriptor{};
      if (started && isJustStarted(found)) {
        return ::fchmod(started.get(), kEveryoneMode) == 0;
      }
      if (!place.remove()) {
        return false;
      }
    }
    if (place.create(kEveryoneMode)) {
      return true;
    }
  }
  return false;
}

} // namespace krOpenSSL::platform
