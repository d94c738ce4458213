// Reading a PIN, straight into memory that is wiped.
#include "Pin.h"

#include "Failure.h"
#include "wire/Stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace krHolder::pkcs11 {
namespace {

constexpr std::size_t kMaxPinBytes = 255;

// Of the opened file: what its name stands for may change meanwhile.
void requirePrivate(const Descriptor &file, const std::string &path) {
  struct stat status {};
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw Failure("the PIN file '" + path + "' is no regular file");
  }
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw Failure("the PIN file '" + path + "' is open to group or others: allow its owner alone (chmod 600)");
  }
  if (status.st_uid != geteuid() && status.st_uid != 0) {
    throw Failure("the PIN file '" + path + "' belongs to another user");
  }
}

Bytes readUpTo(const Descriptor &file, std::size_t limit, const std::string &path) {
  Bytes content(limit);
  std::size_t length = 0;
  while (length < limit) {
    const ssize_t got = read(file.get(), content.data() + length, limit - length);
    if (got < 0) {
      throw Failure("cannot read the PIN file '" + path + "': " + std::generic_category().message(errno));
    }
    if (got == 0) {
      break;
    }
    length += static_cast<std::size_t>(got);
  }
  content.resize(length);
  return content;
}

} // namespace

Bytes readPin(const std::string &path) {
  // Not blocking, so that a pipe is refused instead of waited for.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) {
    throw Failure("cannot read the PIN file '" + path + "': " + std::generic_category().message(errno));
  }
  requirePrivate(file, path);
  constexpr std::size_t kNewline = 1;
  Bytes pin = readUpTo(file, kMaxPinBytes + kNewline + 1, path);
  if (!pin.empty() && pin.back() == '\n') {
    pin.pop_back();
  }
  if (pin.empty() || pin.size() > kMaxPinBytes) {
    throw Failure("the PIN file '" + path + "' holds no PIN: it has to have 1 to " + std::to_string(kMaxPinBytes) +
                  " bytes");
  }
  return pin;
}

} // namespace krHolder::pkcs11
