// Whether the external FIPS module is there, ready, and what an object works through.
#pragma once

#include <krOpenSSL/krFips.h>

#include "state/FipsModule.h"
#include "state/State.h"

namespace krOpenSSL {

/// The module, or null while none is attached.
inline const FipsModule *attachedModule() noexcept { return state::fipsModule.load(std::memory_order_acquire); }

/// The module when it is ready to be called, else null. Asked anew before each call into it.
inline const FipsModule *readyModule() noexcept {
  return krFipsMode() != 0 && krFipsModeError() == 0 ? attachedModule() : nullptr;
}

/// Whether an object that is made now works through the module.
inline bool worksViaModule() noexcept { return krFipsMode() != 0 && krFipsUsingOpenSSLFIPS() == 0; }

} // namespace krOpenSSL
