// The choice of who provides FIPS mode, and the external FIPS module's path.
#include <krOpenSSL/krFips.h>

#include "fips/ModulePlace.h"
#include "state/State.h"

#include <algorithm>
#include <cstring>

using namespace krOpenSSL;

constinit std::array<char, kFipsModulePathBytes> krOpenSSL::fipsModulePath{};
constinit std::atomic<int> krOpenSSL::fipsModulePathGiven{0};
constinit std::atomic<int> krOpenSSL::fipsModulePathTooLong{0};
constinit std::atomic<void *> krOpenSSL::fipsModuleHandle{nullptr};

int krFipsUseOpenSSLFIPS(int use) {
  const int chosen = use != 0 ? 1 : 0;
  state::useOpenSSLFips.store(chosen, std::memory_order_release);
  return chosen;
}

unsigned int krFipsSetPath(const char *path) {
  fipsModulePath.fill('\0');
  fipsModulePathGiven = path != nullptr ? 1 : 0;
  fipsModulePathTooLong = 0;
  if (path == nullptr) {
    return kFipsOk;
  }
  const std::size_t length = strnlen(path, kFipsModulePathBytes);
  if (length == kFipsModulePathBytes) {
    fipsModulePathTooLong = 1;
    return kFipsPathTooLong;
  }
  std::copy_n(path, length, fipsModulePath.begin());
  return kFipsOk;
}
