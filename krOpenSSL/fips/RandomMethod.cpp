// Which random method OpenSSL draws from after an engine load.
#include "fips/RandomMethod.h"

#include "engine/EngineList.h"
#include "engine/qvlib.h"
#include "fips/krWolfSSLFIPS.h"
#include "fipsbridge/qvlibFIPS.h"

#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <atomic>

namespace krOpenSSL {
namespace {

constexpr std::array kLoadedEngines{kQvlibId, kQvlibFipsId, kWolfEngineId};

constinit std::atomic<bool> missed{false};

bool anEngineOffersOne() noexcept {
  ENGINE *engine = ENGINE_get_default_RAND();
  ENGINE_finish(engine);
  return engine != nullptr;
}

bool givenByLoadedEngine(const RAND_METHOD *method) noexcept {
  return std::any_of(kLoadedEngines.begin(), kLoadedEngines.end(), [=](const char *id) {
    const ENGINEPtr engine = findListedEngine(id);
    return engine && ENGINE_get_RAND(engine.get()) == method;
  });
}

} // namespace

void renewRandomMethod() noexcept {
  const RAND_METHOD *method = RAND_get_rand_method();
  if (!anEngineOffersOne()) {
    noteMissedRandomMethod();
  } else if (missed.exchange(false) && method == RAND_OpenSSL()) {
    RAND_set_rand_method(nullptr);
  }
  if (givenByLoadedEngine(method)) {
    RAND_set_rand_method(nullptr);
  }
}

void noteMissedRandomMethod() noexcept { missed.store(true); }

void dropBuiltInRandomMethod() noexcept {
  if (RAND_get_rand_method() == RAND_OpenSSL()) {
    RAND_set_rand_method(nullptr);
  }
}

} // namespace krOpenSSL
