// Owner and access of protected entries: root, and writing for the owner alone. root may always give an
// entry to itself and nobody else may, so there is no privilege to switch; a host's capabilities stay.
#include "platform/Platform.h"
#include "platform/posix/Place.h"

namespace krOpenSSL::platform {
namespace {

// Opens a folder, or a file that has no other name: through a link, or a second name, somebody else's
// entry would change hands.
Descriptor openOwn(const char *path, struct stat &found) noexcept {
  const auto isOwn = [&found] { return S_ISDIR(found.st_mode) || isPlainFile(found); };
  const Place place(path);
  if (!place || !place.look(found) || !isOwn()) {
    return Descriptor{};
  }
  Descriptor opened = place.open(O_RDONLY, found);
  return isOwn() ? std::move(opened) : Descriptor{};
}

} // namespace

bool prepareProtection(Protection & /*protection*/) noexcept { return true; }

void releaseProtection(Protection & /*protection*/) noexcept {}

bool giveToAdministrators(const char *path) noexcept {
  struct stat found {};
  const Descriptor own = openOwn(path, found);
  return own && ::fchown(own.get(), 0, 0) == 0;
}

bool protect(const char *path, const Protection & /*protection*/) noexcept {
  constexpr mode_t kFile = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
  constexpr mode_t kFolder = kFile | S_IXUSR | S_IXGRP | S_IXOTH;
  struct stat found {};
  const Descriptor own = openOwn(path, found);
  return own && ::fchmod(own.get(), S_ISDIR(found.st_mode) ? kFolder : kFile) == 0;
}

} // namespace krOpenSSL::platform
