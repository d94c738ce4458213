// The FIPS module that is attached now.
#pragma once

#include "fipsbridge/FipsModule.h"
#include "state/State.h"

namespace krOpenSSL {

/// The module, or null while none is attached.
inline const FipsModule *attachedModule() noexcept { return state::fipsModule.load(std::memory_order_acquire); }

} // namespace krOpenSSL
