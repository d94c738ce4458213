// Appending to a file that others may swap for a link at any moment.
#include "platform/Platform.h"
#include "platform/posix/Place.h"

#include <cerrno>

namespace krOpenSSL::platform {
namespace {

using Outcome = AppendFile::Outcome;

// A process that rotates the file changes it now and then; somebody who always changes it wants no lines.
constexpr int kAttempts = 16;

// What a failed open says; none when the entry is not the one that was checked.
std::optional<Outcome> outcomeOf(int error) noexcept {
  switch (error) {
  case ENOENT:
  case EEXIST:
  case ESTALE:
    return std::nullopt;
  case ELOOP:
    return Outcome::redirected;
  default:
    return Outcome::failed;
  }
}

std::optional<Outcome> judge(const Place &place, const struct stat &opened) noexcept {
  if (!S_ISREG(opened.st_mode)) {
    return Outcome::unsafe;
  }
  if (opened.st_nlink > 1) {
    return Outcome::redirected;
  }
  return opened.st_nlink == 1 && place.holdsAlone(opened) ? std::optional(Outcome::opened) : std::nullopt;
}

struct stat whichIs(const Entry &entry) noexcept {
  struct stat found {};
  found.st_dev = entry.device;
  found.st_ino = entry.number;
  return found;
}

// Opens the entry that passed the check; none when another one has taken its place.
std::optional<Outcome> openChecked(const char *path, const Entry &checked, Descriptor &file) noexcept {
  const Place place(path);
  if (!place) {
    return Outcome::failed;
  }
  if (checked.kind == EntryKind::missing) {
    file = place.create(kStartedFileMode);
    return file ? Outcome::opened : outcomeOf(errno);
  }
  if (checked.kind != EntryKind::file && checked.kind != EntryKind::link) {
    return Outcome::unsafe;
  }
  // What had to be replaced may be put back: it never is the entry that passed.
  if (checked.links != 1) {
    return std::nullopt;
  }
  struct stat opened = whichIs(checked);
  file = place.open(O_WRONLY | O_APPEND, opened);
  return file ? judge(place, opened) : outcomeOf(errno);
}

// A file of one name in a folder that is no link, before the opening and after it: that is what a check asks, in
// fewer calls. None when anything is otherwise.
Descriptor openPlainFile(const Place &place, const Entry &seen) noexcept {
  if (seen.links != 1) {
    return Descriptor{};
  }
  struct stat found = whichIs(seen);
  Descriptor file = place.open(O_WRONLY | O_APPEND, found);
  return file && isPlainFile(found) && place.holdsAlone(found) ? std::move(file) : Descriptor{};
}

} // namespace

// The two mostly are neighbours, of which the system closes a row in one call.
AppendFile::~AppendFile() {
  Descriptor folder(static_cast<int>(folder_));
  Descriptor file(static_cast<int>(file_));
  if (folder && file.get() == folder.get() + 1 &&
      ::close_range(static_cast<unsigned>(folder.get()), static_cast<unsigned>(file.get()), 0) == 0) {
    (void)folder.release();
    (void)file.release();
  }
}

std::optional<std::uint64_t> AppendFile::size(const char *path) noexcept {
  const Descriptor before(static_cast<int>(std::exchange(folder_, -1)));
  Place place(path);
  struct stat found {};
  if (!place || !place.look(found) || !S_ISREG(found.st_mode)) {
    return std::nullopt;
  }
  seen_ = {.target = EntryKind::file,
           .kind = EntryKind::file,
           .links = found.st_nlink,
           .device = found.st_dev,
           .number = found.st_ino};
  folder_ = place.releaseFolder();
  return static_cast<std::uint64_t>(found.st_size);
}

// A link that the check has replaced is not the file that stands there now: the next attempt finds that.
AppendFile::Outcome AppendFile::open(const char *path, bool (*isSafe)(Entry &checked)) {
  if (folder_ < 0) {
    (void)size(path);
  }
  if (folder_ >= 0) {
    Place place(path, static_cast<int>(std::exchange(folder_, -1)));
    if (Descriptor file = openPlainFile(place, seen_)) {
      folder_ = place.releaseFolder();
      file_ = file.release();
      return Outcome::opened;
    }
  }
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Entry checked;
    if (!isSafe(checked)) {
      return Outcome::unsafe;
    }
    Descriptor file;
    if (const auto outcome = openChecked(path, checked, file)) {
      file_ = outcome == Outcome::opened ? file.release() : -1;
      return *outcome;
    }
  }
  return Outcome::unsafe;
}

// One system call, so that lines of several processes do not mix. Of a line that a full disk cuts, the part
// that fitted is taken back, unless another line stands behind it already.
void AppendFile::write(const char *text, std::size_t length) noexcept {
  const int file = static_cast<int>(file_);
  ssize_t written = 0;
  do {
    written = ::write(file, text, length);
  } while (written < 0 && errno == EINTR);
  if (written <= 0 || static_cast<std::size_t>(written) == length) {
    return;
  }
  const off_t end = ::lseek(file, 0, SEEK_CUR);
  struct stat now {};
  if (::fstat(file, &now) == 0 && now.st_size == end) {
    (void)!::ftruncate(file, end - written);
  }
}

} // namespace krOpenSSL::platform
