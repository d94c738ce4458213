// Folders that the machine knows by purpose.
#include "platform/Platform.h"

#include <cstdlib>
#include <cstring>

namespace krOpenSSL::platform {
namespace {

bool knownFolder(const char *variable, const char *usual, char *path, std::size_t size) noexcept {
  const char *chosen = ::secure_getenv(variable);
  const char *folder = chosen == nullptr || *chosen == '\0' ? usual : chosen;
  const std::size_t length = ::strnlen(folder, size);
  // A path from the working directory would change with it.
  if (*folder != '/' || length == size) {
    return false;
  }
  std::memcpy(path, folder, length + 1);
  return true;
}

} // namespace

bool programDataFolder(char *path, std::size_t size) noexcept {
  return knownFolder("KR_PROGRAM_DATA", "/var/lib", path, size);
}

bool commonProgramFilesFolder(char *path, std::size_t size) noexcept {
  return knownFolder("KR_COMMON_PROGRAM_FILES", "/usr/lib", path, size);
}

} // namespace krOpenSSL::platform
