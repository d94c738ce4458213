// The queries of the FIPS state.
#include "state/FipsState.h"

using namespace krOpenSSL;

namespace {

constexpr int kModuleErrorState = 3;

} // namespace

int krFipsMode() { return state::fipsMode.load(std::memory_order_acquire) != 0 ? 1 : 0; }

int krFipsGetState() {
  const FipsModule *module = attachedModule();
  return module != nullptr ? module->GetState() : 0;
}

int krFipsModeError() { return krFipsGetState() == kModuleErrorState ? 1 : 0; }

int krFipsUsingOpenSSLFIPS() { return state::useOpenSSLFips.load(std::memory_order_acquire) != 0 ? 1 : 0; }
