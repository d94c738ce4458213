// The machine's settings.
#include "platform/Platform.h"
#include "platform/windows/Win32.h"

namespace krOpenSSL::platform {

// The value may have been stored without a terminator, or with bytes behind it.
bool registryText(const char *key, const char *name, char *text, std::size_t size) noexcept {
  HKEY opened = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key, 0, KEY_QUERY_VALUE | KEY_WOW64_32KEY, &opened) != ERROR_SUCCESS) {
    return false;
  }
  DWORD type = REG_NONE;
  auto length = static_cast<DWORD>(size);
  const LSTATUS read = RegQueryValueExA(opened, name, nullptr, &type, reinterpret_cast<BYTE *>(text), &length);
  RegCloseKey(opened);
  if (read != ERROR_SUCCESS || type != REG_SZ) {
    return false;
  }
  text[length < size ? length : size - 1] = '\0';
  return true;
}

} // namespace krOpenSSL::platform
