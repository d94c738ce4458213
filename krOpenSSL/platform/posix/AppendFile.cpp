// Appending to a file that others may swap for a link at any moment.
#include "platform/Platform.h"
#include "platform/posix/Place.h"

#include <cerrno>

namespace krOpenSSL::platform {
namespace {

using Outcome = AppendFile::Outcome;

// A process that rotates the file changes it now and then; somebody who always changes it wants no lines.
constexpr int kAttempts = 16;

// What a failed open says; none when the entry is not the one that was looked at, so look again.
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

std::optional<Outcome> judge(const struct stat &found) noexcept {
  if (S_ISLNK(found.st_mode) || (S_ISREG(found.st_mode) && found.st_nlink > 1)) {
    return Outcome::redirected;
  }
  if (!S_ISREG(found.st_mode)) {
    return Outcome::unsafe;
  }
  return found.st_nlink == 1 ? std::optional(Outcome::opened) : std::nullopt;
}

// One attempt, after the check has passed; none when the entry has changed meanwhile.
std::optional<Outcome> openChecked(const char *path, Descriptor &file) noexcept {
  const Place place(path);
  if (!place) {
    return Outcome::failed;
  }
  struct stat found {};
  if (!place.look(found)) {
    if (errno == ENOENT) {
      file = place.create(kStartedFileMode);
    }
    return file ? Outcome::opened : outcomeOf(errno);
  }
  if (const auto verdict = judge(found); verdict != Outcome::opened) {
    return verdict;
  }
  file = place.open(O_WRONLY | O_APPEND, found);
  return file ? judge(found) : outcomeOf(errno);
}

} // namespace

AppendFile::~AppendFile() { const Descriptor closes(static_cast<int>(file_)); }

AppendFile::Outcome AppendFile::open(const char *path, bool (*isSafe)()) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (!isSafe()) {
      return Outcome::unsafe;
    }
    Descriptor file;
    if (const auto outcome = openChecked(path, file)) {
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
