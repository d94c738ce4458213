// The queries of the FIPS state.
#include <krOpenSSL/krFips.h>

#include "fipsbridge/FipsModule.h"
#include "state/State.h"

namespace state = krOpenSSL::state;

namespace {

constexpr int kModuleErrorState = 3;

} // namespace

int krFipsMode() { return state::fipsMode.load(std::memory_order_acquire) != 0 ? 1 : 0; }

int krFipsModeError() {
  const krOpenSSL::FipsModule *module = state::fipsModule.load(std::memory_order_acquire);
  return module != nullptr && module->GetState() == kModuleErrorState ? 1 : 0;
}

int krFipsUsingOpenSSLFIPS() { return state::useOpenSSLFips.load(std::memory_order_acquire) != 0 ? 1 : 0; }
