// The FIPS state: its queries, the choice of who provides it, and the external FIPS module's path.
#include <krOpenSSL/krFips.h>

#include "fipsbridge/FipsModule.h"
#include "state/State.h"

#include <algorithm>
#include <cstring>

using namespace krOpenSSL;

namespace {

constexpr int kModuleErrorState = 3;

} // namespace

int krFipsMode() { return state::fipsMode.load(std::memory_order_acquire) != 0 ? 1 : 0; }

int krFipsGetState() {
  const FipsModule *module = state::fipsModule.load(std::memory_order_acquire);
  return module != nullptr ? module->GetState() : 0;
}

int krFipsModeError() { return krFipsGetState() == kModuleErrorState ? 1 : 0; }

int krFipsUseOpenSSLFIPS(int use) {
  const int chosen = use != 0 ? 1 : 0;
  state::useOpenSSLFips.store(chosen, std::memory_order_release);
  return chosen;
}

int krFipsUsingOpenSSLFIPS() { return state::useOpenSSLFips.load(std::memory_order_acquire) != 0 ? 1 : 0; }

unsigned int krFipsSetPath(const char *path) {
  state::fipsModulePath.fill('\0');
  state::fipsModulePathGiven = path != nullptr ? 1 : 0;
  state::fipsModulePathTooLong = 0;
  if (path == nullptr) {
    return kFipsOk;
  }
  const std::size_t length = strnlen(path, state::kFipsModulePathBytes);
  if (length == state::kFipsModulePathBytes) {
    state::fipsModulePathTooLong = 1;
    return kFipsPathTooLong;
  }
  std::copy_n(path, length, state::fipsModulePath.begin());
  return kFipsOk;
}
