// Engines in OpenSSL's list.
#include "engine/EngineList.h"

#include "engine/OnceOnly.h"

namespace krOpenSSL {

bool opensslIsUsable() noexcept {
  return initialiseOnce() && OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) != 0;
}

ENGINEPtr findListedEngine(std::string_view id) noexcept {
  ENGINE *engine = ENGINE_get_first();
  while (engine != nullptr && id != ENGINE_get_id(engine)) {
    engine = ENGINE_get_next(engine);
  }
  return ENGINEPtr(engine);
}

void unregisterAlgorithms(ENGINE *engine, void (*unregisterEc)(ENGINE *)) noexcept {
  ENGINE_unregister_RSA(engine);
  ENGINE_unregister_DSA(engine);
  unregisterEc(engine);
  ENGINE_unregister_DH(engine);
  ENGINE_unregister_RAND(engine);
  ENGINE_unregister_ciphers(engine);
  ENGINE_unregister_digests(engine);
}

void unregisterEverything(ENGINE *engine, void (*unregisterEc)(ENGINE *)) noexcept {
  unregisterAlgorithms(engine, unregisterEc);
  ENGINE_unregister_pkey_meths(engine);
  ENGINE_unregister_pkey_asn1_meths(engine);
}

void retireListedEngine(std::string_view id) noexcept {
  if (const ENGINEPtr engine = findListedEngine(id); engine) {
    unregisterEverything(engine.get(), ENGINE_unregister_EC);
  }
}

} // namespace krOpenSSL
