// How the classes choose between OpenSSL and the external FIPS module.
#pragma once

#include <krOpenSSL/krFips.h>

#include "fipsbridge/FipsModule.h"
#include "state/State.h"

namespace krOpenSSL {

/// Whether an object that is made now works through the module.
inline bool worksViaModule() noexcept { return krFipsMode() != 0 && krFipsUsingOpenSSLFIPS() == 0; }

/// The module when it is ready to be called, else null. Asked anew before each call into it.
inline const FipsModule *readyModule() noexcept {
  const bool ready = krFipsMode() != 0 && krFipsModeError() == 0;
  return ready ? state::fipsModule.load(std::memory_order_acquire) : nullptr;
}

} // namespace krOpenSSL
