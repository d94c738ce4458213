// Engines in OpenSSL's list.
#include "engine/EngineList.h"

namespace krOpenSSL {

bool opensslIsUsable() noexcept { return OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) != 0; }

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

void retireListedEngine(std::string_view id) noexcept {
  if (const ENGINEPtr engine = findListedEngine(id); engine) {
    unregisterAlgorithms(engine.get(), ENGINE_unregister_EC);
    ENGINE_unregister_pkey_meths(engine.get());
    ENGINE_unregister_pkey_asn1_meths(engine.get());
  }
}

} // namespace krOpenSSL
