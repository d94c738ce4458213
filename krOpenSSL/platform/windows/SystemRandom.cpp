// The system's random bytes: the CryptoAPI's default provider.
#include "platform/Platform.h"
#include "platform/windows/Win32.h"

#include <wincrypt.h>

namespace krOpenSSL::platform {

bool systemRandom(unsigned char *buffer, std::uint32_t length) noexcept {
  HCRYPTPROV provider = 0;
  if (CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT) == 0) {
    return false;
  }
  const bool filled = CryptGenRandom(provider, length, buffer) != 0;
  CryptReleaseContext(provider, 0);
  return filled;
}

} // namespace krOpenSSL::platform
