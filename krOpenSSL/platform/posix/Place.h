// A place in a folder that is held open: what stands there can change, but not which folder it is in.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace krOpenSSL::platform {

/// The mode of a file that an append had to make.
inline constexpr mode_t kStartedFileMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
/// The mode of a file that everyone may write to.
inline constexpr mode_t kEveryoneMode = kStartedFileMode | S_IWGRP | S_IWOTH;

/// Owns a file descriptor.
class Descriptor {
public:
  explicit Descriptor(int number = -1) noexcept : number_(number) {}
  Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) {
      (void)::close(number_);
    }
  }

  explicit operator bool() const noexcept { return number_ >= 0; }
  [[nodiscard]] int get() const noexcept { return number_; }
  [[nodiscard]] int release() noexcept { return std::exchange(number_, -1); }

private:
  int number_;
};

/// A name in its folder. The folder may not be a link itself, and no call here follows the name. The path outlives it.
class Place {
public:
  explicit Place(const char *path) noexcept : Place(path, openFolder(path)) {}
  /// The place that releaseFolder gave up, of the same path.
  Place(const char *path, int folder) noexcept;

  /// False when there is no such folder, or a link stands for it.
  explicit operator bool() const noexcept { return static_cast<bool>(folder_); }

  /// What stands there, or false with errno set.
  bool look(struct stat &found) const noexcept;

  /// Opens what @p found describes, without waiting at a FIFO; none, with errno ESTALE, when something
  /// else has taken its place.
  Descriptor open(int flags, struct stat &found) const noexcept;

  /// Whether what was opened still stands there with one name, now that whoever was changing the folder is done.
  bool holdsAlone(const struct stat &opened) const noexcept;

  /// Whether this user may move what stands there, or put something in its place.
  bool mayReplace() const noexcept;

  /// Makes a new file with this mode, whatever the umask, and opens it for appending; none when something stands there.
  Descriptor create(mode_t mode) const noexcept;

  bool makeFolder(mode_t mode) const noexcept { return ::mkdirat(folder_.get(), name_, mode) == 0; }
  bool remove() const noexcept { return ::unlinkat(folder_.get(), name_, 0) == 0; }
  bool moveTo(const Place &other) const noexcept;
  /// Exchanges what the two names stand for in one step; false also where the file system cannot.
  bool exchangeWith(const Place &other) const noexcept;

  /// Has the disk carry out what was done in the folder.
  void sync() const noexcept;

  [[nodiscard]] int releaseFolder() noexcept { return folder_.release(); }

private:
  static int openFolder(const char *path) noexcept;

  const char *name_;
  Descriptor folder_;
};

/// A file of one name: what is written to it goes nowhere else.
inline bool isPlainFile(const struct stat &found) noexcept { return S_ISREG(found.st_mode) && found.st_nlink == 1; }

inline bool isSameEntry(const struct stat &one, const struct stat &other) noexcept {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

} // namespace krOpenSSL::platform
