// What GetLastError tells.
#include "platform/CallersErrors.h"
#include "platform/windows/Win32.h"

namespace krOpenSSL::platform {

unsigned long lastError() noexcept { return GetLastError(); }

void setLastError(unsigned long error) noexcept { SetLastError(error); }

} // namespace krOpenSSL::platform
