// Seed bytes from the operating system.
#include <krOpenSSL/krInformation.h>

#include "platform/Platform.h"

#include <cstdint>

int krPlatformGetSeed(unsigned char *buffer, std::size_t length) {
  // The system's source takes a 32-bit count.
  return buffer != nullptr && krOpenSSL::platform::systemRandom(buffer, static_cast<std::uint32_t>(length)) ? 1 : 0;
}
