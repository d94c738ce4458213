// The system's random bytes: getrandom, which serves long requests in parts and may be interrupted. By the bare system
// call: the C library's function is a point at which pthread_cancel ends the thread, and here the process with it.
#include "platform/Platform.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace krOpenSSL::platform {

bool systemRandom(unsigned char *buffer, std::uint32_t length) noexcept {
  while (length > 0) {
    const long got = ::syscall(SYS_getrandom, buffer, length, 0);
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
