// Loading and unloading the engine that the FIPS state asks for.
#include <krOpenSSL/krLifecycle.h>

#include "accessors/krAccessors.h"
#include "engine/qvlib.h"
#include "fipsbridge/qvlibFIPS.h"
#include "state/State.h"

#include <openssl/engine.h>
#include <openssl/err.h>

#include <string_view>

using namespace krOpenSSL;

namespace {

enum class EngineChoice { qvlib, wolfEngine, qvlibFIPS };

EngineChoice chosenEngine() noexcept {
  if (state::fipsMode.load(std::memory_order_acquire) == 0) {
    return EngineChoice::qvlib;
  }
  return state::useOpenSSLFips.load(std::memory_order_acquire) != 0 ? EngineChoice::wolfEngine
                                                                    : EngineChoice::qvlibFIPS;
}

// False once OpenSSL has been cleaned up for good, by an exit handler of the host's or by hand: its engine
// list is gone then, lock and all.
bool opensslIsUsable() noexcept { return OPENSSL_init_crypto(0, nullptr) != 0; }

// ENGINE_by_id would search OpenSSL's module folder for a stranger of that name when the list has none.
ENGINE *findListedEngine(std::string_view id) noexcept {
  ENGINE *engine = ENGINE_get_first();
  while (engine != nullptr && id != ENGINE_get_id(engine)) {
    engine = ENGINE_get_next(engine);
  }
  return engine;
}

// The list refuses a second engine of this id, so that a later load finds the first one again.
void listDelegationEngine() noexcept {
  ENGINE *engine = ENGINE_new();
  if (engine != nullptr && qvlib_bind(engine) != 0) {
    ENGINE_add(engine);
    ENGINE_free(engine);
    ERR_clear_error();
  }
}

int loadDelegationEngine() noexcept {
  listDelegationEngine();
  ENGINE *engine = findListedEngine(kQvlibId);
  state::activeEngine.store(engine, std::memory_order_release);
  if (engine == nullptr) {
    return 0;
  }
  state::listedEngine.store(engine, std::memory_order_release);
  ENGINE_register_RSA(engine);
  ENGINE_register_DSA(engine);
  krENGINE_register_ECDSA(engine);
  ENGINE_register_RAND(engine);
  return 1;
}

int loadBridgeEngine() noexcept {
  qvlibFIPS_bind();
  ENGINE *engine = findListedEngine(kQvlibFipsId);
  state::activeEngine.store(engine, std::memory_order_release);
  if (engine == nullptr) {
    return 0;
  }
  state::listedBridge.store(engine, std::memory_order_release);
  ENGINE_register_RSA(engine);
  ENGINE_register_DSA(engine);
  krENGINE_register_ECDSA(engine);
  ENGINE_register_DH(engine);
  ENGINE_register_RAND(engine);
  ENGINE_register_ciphers(engine);
  ENGINE_register_digests(engine);
  return 1;
}

// The reference that the load took is not given back: keys may still be bound to the engine.
void unregister(ENGINE *engine) noexcept {
  ENGINE_unregister_RSA(engine);
  ENGINE_unregister_DSA(engine);
  krENGINE_unregister_ECDSA(engine);
  ENGINE_unregister_DH(engine);
  ENGINE_unregister_RAND(engine);
  ENGINE_unregister_ciphers(engine);
  ENGINE_unregister_digests(engine);
}

} // namespace

int krOpenSSLEngineLoad() {
  if (!opensslIsUsable()) {
    return 0;
  }
  switch (chosenEngine()) {
  case EngineChoice::qvlib:
    return loadDelegationEngine();
  case EngineChoice::qvlibFIPS:
    return loadBridgeEngine();
  case EngineChoice::wolfEngine:
    break; // this build has no such engine, and nothing chooses it
  }
  return 0;
}

int krOpenSSLEngineUnload() {
  ENGINE *engine = state::activeEngine.load(std::memory_order_acquire);
  if (engine != nullptr && opensslIsUsable()) {
    unregister(engine);
  }
  state::activeEngine.store(nullptr, std::memory_order_release);
  return 1;
}
