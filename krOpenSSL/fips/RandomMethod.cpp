// Which random method OpenSSL draws from after an engine load.
#include "fips/RandomMethod.h"

#include "engine/EngineList.h"
#include "engine/qvlib.h"
#include "fips/krWolfSSLFIPS.h"
#include "fipsbridge/qvlibFIPS.h"

#include <openssl/rand.h>

#include <algorithm>
#include <array>

namespace krOpenSSL {
namespace {

constexpr std::array kLoadedEngines{kQvlibId, kQvlibFipsId, kWolfEngineId};

bool givenByLoadedEngine(const RAND_METHOD *method) noexcept {
  return std::any_of(kLoadedEngines.begin(), kLoadedEngines.end(), [=](const char *id) {
    const ENGINEPtr engine = findListedEngine(id);
    return engine && ENGINE_get_RAND(engine.get()) == method;
  });
}

} // namespace

void renewRandomMethod() noexcept {
  if (givenByLoadedEngine(RAND_get_rand_method())) {
    RAND_set_rand_method(nullptr);
  }
}

void dropBuiltInRandomMethod() noexcept {
  if (RAND_get_rand_method() == RAND_OpenSSL()) {
    RAND_set_rand_method(nullptr);
  }
}

} // namespace krOpenSSL
