// The system's random bytes: getrandom, which serves long requests in parts and may be interrupted.
#include "platform/Platform.h"

#include <sys/random.h>

#include <cerrno>

namespace krOpenSSL::platform {

bool systemRandom(unsigned char *buffer, std::uint32_t length) noexcept {
  while (length > 0) {
    const ssize_t got = getrandom(buffer, length, 0);
    if (got < 0 && errno != EINTR) {
      return false;
    }
    if (got > 0) {
      buffer += got;
      length -= static_cast<std::uint32_t>(got);
    }
  }
  return true;
}

} // namespace krOpenSSL::platform
