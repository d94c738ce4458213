// Construction of the bridge engine.
//
// Each engine object owns the methods attached to it, from the moment it has its destroy function: so it gets
// that one first.
#include "fipsbridge/qvlibFIPS.h"

#include "accessors/AttachMethod.h"
#include "accessors/ErrorQueueScope.h"
#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/EngineMethods.h"
#include "fipsbridge/krFIPSDH.h"
#include "fipsbridge/krFIPSDSA.h"
#include "fipsbridge/krFIPSRSA.h"
#include "fipsbridge/qvFipsRand.h"

#include <krOpenSSL/krHandles.h>

#include <openssl/err.h>

using namespace krOpenSSL;

namespace {

bool setIdentity(ENGINE *engine) noexcept {
  return ENGINE_set_destroy_function(engine, qvlibFIPS_destroy) != 0 && ENGINE_set_id(engine, kQvlibFipsId) != 0 &&
         ENGINE_set_name(engine, "qvlib FIPS mode engine") != 0 &&
         ENGINE_set_init_function(engine, qvlibFIPS_init) != 0;
}

bool attachSelectors(ENGINE *engine) noexcept {
  return giveMethods(engine) && ENGINE_set_digests(engine, qv_digests) != 0 &&
         ENGINE_set_ciphers(engine, qv_ciphers) != 0;
}

// Those that it has not yet. An engine without one, because it could not be built, is complete all the same.
bool attachKeyMethods(ENGINE *engine) noexcept {
  return (ENGINE_get_RSA(engine) != nullptr || attachMethod(engine, RSAMethodPtr(qvFipsRsaMethod()), ENGINE_set_RSA)) &&
         (ENGINE_get_DSA(engine) != nullptr || attachMethod(engine, DSAMethodPtr(qvFipsDsaMethod()), ENGINE_set_DSA)) &&
         (ENGINE_get_DH(engine) != nullptr || attachMethod(engine, DHMethodPtr(qvFipsDhMethod()), ENGINE_set_DH));
}

bool fill(ENGINE *engine) noexcept {
  return setIdentity(engine) && attachSelectors(engine) && ENGINE_set_RAND(engine, &qvFipsRandMethod) != 0 &&
         attachKeyMethods(engine);
}

} // namespace

void qvlibFIPS_bind() noexcept {
  const ErrorQueueScope errors;
  const Handle<ENGINE, ENGINE_free> engine(ENGINE_new());
  if (engine && fill(engine.get())) {
    ENGINE_add(engine.get());
    ERR_clear_error();
  }
}

void krOpenSSL::attachMissingKeyMethods(ENGINE *engine) noexcept {
  const ErrorQueueScope errors;
  static_cast<void>(attachKeyMethods(engine));
}

int qvlibFIPS_init(ENGINE * /*engine*/) noexcept {
  makeKeyIndexes();
  return 1;
}

int qvlibFIPS_destroy(ENGINE *engine) noexcept {
  DH_meth_free(const_cast<DH_METHOD *>(ENGINE_get_DH(engine)));
  ENGINE_set_DH(engine, nullptr);
  DSA_meth_free(const_cast<DSA_METHOD *>(ENGINE_get_DSA(engine)));
  ENGINE_set_DSA(engine, nullptr);
  RSA_meth_free(const_cast<RSA_METHOD *>(ENGINE_get_RSA(engine)));
  ENGINE_set_RSA(engine, nullptr);
  takeMethods(engine);
  return 1;
}
