// The random method over the FIPS module's generator.
//
// No lock: the module gets concurrent calls as they come, and may call OpenSSL's random functions itself.
#include "fipsbridge/qvFipsRand.h"

#include "accessors/ErrorQueueScope.h"
#include "state/FipsState.h"

#include <atomic>

using namespace krOpenSSL;

namespace {

// 1 once the module's generator is instantiated.
constinit std::atomic<int> generatorReady{0};

} // namespace

int qvFipsRandSeed(const void *buf, int num) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = attachedModule();
  if (module == nullptr) {
    return 0;
  }
  const auto *seed = static_cast<const unsigned char *>(buf);
  if (qvFipsRandStatus() == 1) {
    return module->RngReseed(fipsGeneratorState, seed, num);
  }
  if (module->RngInstantiate(fipsModuleContext, fipsGeneratorState, kFipsGeneratorStateBytes, seed, num, 1) != 0) {
    return 0;
  }
  generatorReady.store(1, std::memory_order_release);
  return 1;
}

int qvFipsRandBytes(unsigned char *buf, int num) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = attachedModule();
  const bool ready = module != nullptr && qvFipsRandStatus() == 1;
  return ready && module->RngGenerate(fipsGeneratorState, buf, num) == 0 ? 1 : 0;
}

void qvFipsRandCleanup() noexcept {
  const ErrorQueueScope errors;
  const bool ready = generatorReady.load(std::memory_order_acquire) != 0;
  if (const FipsModule *module = attachedModule(); module != nullptr && ready) {
    module->RngUninstantiate(fipsGeneratorState);
  }
  generatorReady.store(0, std::memory_order_release);
}

int qvFipsRandAdd(const void *buf, int num, double /*randomness*/) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = attachedModule();
  return module != nullptr ? module->RngReseed(fipsGeneratorState, static_cast<const unsigned char *>(buf), num) : 0;
}

int qvFipsRandStatus() noexcept { return generatorReady.load(std::memory_order_acquire) == 1 ? 1 : 0; }

constinit const RAND_METHOD qvFipsRandMethod{
    qvFipsRandSeed, qvFipsRandBytes, qvFipsRandCleanup, qvFipsRandAdd, qvFipsRandBytes, qvFipsRandStatus,
};
