// Folders that the machine knows by purpose.
#include "platform/Platform.h"

#include <cstdlib>
#include <cstring>

namespace krOpenSSL::platform {

bool programDataFolder(char *path, std::size_t size) noexcept {
  const char *chosen = ::secure_getenv("KR_PROGRAM_DATA");
  const char *folder = chosen == nullptr || *chosen == '\0' ? "/var/lib" : chosen;
  const std::size_t length = ::strnlen(folder, size);
  // A path from the working directory would change with it.
  if (*folder != '/' || length == size) {
    return false;
  }
  std::memcpy(path, folder, length + 1);
  return true;
}

} // namespace krOpenSSL::platform
