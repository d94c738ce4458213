// Construction of the key-delegation engine.
//
// Each engine object owns the methods attached to it: a method belongs to its handle until the engine takes
// it, and goes with the engine from then on. So an engine that is discarded, because its build failed or
// because OpenSSL's list holds one of the same id, takes nothing from the listed one.
#include "engine/qvlib.h"

#include "accessors/AttachMethod.h"
#include "accessors/ErrorQueueScope.h"
#include "engine/qvlibDSA.h"
#include "engine/qvlibECDSA.h"
#include "engine/qvlibRSA.h"
#include "engine/qvlibRand.h"
#include "state/State.h"

#include <krOpenSSL/krHandles.h>

#include <utility>

using namespace krOpenSSL;

namespace {

bool setIdentity(ENGINE *engine) noexcept {
  return ENGINE_set_id(engine, kQvlibId) != 0 && ENGINE_set_name(engine, "qvlib engine") != 0 &&
         ENGINE_set_destroy_function(engine, qvlib_destroy) != 0 && ENGINE_set_init_function(engine, qvlib_init) != 0;
}

// In FIPS mode random numbers are not this engine's business.
bool attachRandom(ENGINE *engine) noexcept {
  return state::fipsMode.load(std::memory_order_acquire) != 0 || ENGINE_set_RAND(engine, &qvlib_rand_method) != 0;
}

bool attachRsa(ENGINE *engine) noexcept {
  RSAMethodPtr method(RSA_meth_dup(RSA_get_default_method()));
  return method && RSA_meth_set1_name(method.get(), "qvlib RSA method") != 0 &&
         RSA_meth_set_priv_enc(method.get(), qvlib_RSA_private_encrypt) != 0 &&
         RSA_meth_set_priv_dec(method.get(), qvlib_RSA_private_decrypt) != 0 &&
         attachMethod(engine, std::move(method), ENGINE_set_RSA);
}

bool attachDsa(ENGINE *engine) noexcept {
  DSAMethodPtr method(DSA_meth_dup(DSA_get_default_method()));
  return method && DSA_meth_set1_name(method.get(), "qvlib DSA method") != 0 &&
         DSA_meth_set_sign(method.get(), qvlib_DSA_do_sign) != 0 &&
         attachMethod(engine, std::move(method), ENGINE_set_DSA);
}

void attachEcKey(ENGINE *engine) noexcept {
  const EC_KEY_METHOD *standard = EC_KEY_get_default_method();
  if (ECKeyMethodPtr method(EC_KEY_METHOD_new(standard)); method) {
    delegateSigning(method.get(), standard);
    attachMethod(engine, std::move(method), ENGINE_set_EC);
  }
}

} // namespace

int qvlib_bind(ENGINE *engine) noexcept {
  const ErrorQueueScope errors;
  if (setIdentity(engine) && attachRandom(engine) && attachRsa(engine) && attachDsa(engine)) {
    attachEcKey(engine);
    return 1;
  }
  ENGINE_free(engine);
  return 0;
}

void krOpenSSL::attachMissingEcKey(ENGINE *engine) noexcept {
  if (ENGINE_get_EC(engine) == nullptr) {
    const ErrorQueueScope errors;
    attachEcKey(engine);
  }
}

int qvlib_init(ENGINE * /*engine*/) noexcept { return 1; }

int qvlib_destroy(ENGINE *engine) noexcept {
  RSA_meth_free(const_cast<RSA_METHOD *>(ENGINE_get_RSA(engine)));
  ENGINE_set_RSA(engine, nullptr);
  DSA_meth_free(const_cast<DSA_METHOD *>(ENGINE_get_DSA(engine)));
  ENGINE_set_DSA(engine, nullptr);
  // By its handle: the engine may be without it, and EC_KEY_METHOD_free takes no null, unlike the others.
  ECKeyMethodPtr(const_cast<EC_KEY_METHOD *>(ENGINE_get_EC(engine))).reset();
  ENGINE_set_EC(engine, nullptr);
  return 1;
}
