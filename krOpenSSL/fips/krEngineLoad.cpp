// Loading and unloading the engine that the FIPS state asks for.
#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krLifecycle.h>

#include "engine/EngineList.h"
#include "engine/qvlib.h"
#include "fips/ActiveEngine.h"
#include "fips/RandomMethod.h"
#include "fips/krWolfSSLFIPS.h"
#include "fipsbridge/qvlibFIPS.h"
#include "platform/Platform.h"
#include "state/State.h"

#include <openssl/engine.h>
#include <openssl/err.h>

#include <atomic>
#include <string_view>

using namespace krOpenSSL;

constinit std::atomic<ENGINE *> krOpenSSL::activeEngine{nullptr};

namespace {

// The engines that OpenSSL's list holds. The reference that a load takes is never given back, so they outlive the
// list; this keeps them reachable for tools that look for leaks.
constinit std::atomic<ENGINE *> listedQvlib{nullptr};
constinit std::atomic<ENGINE *> listedBridge{nullptr};

enum class EngineChoice { qvlib, wolfEngine, qvlibFIPS };

EngineChoice chosenEngine() noexcept {
  if (state::fipsMode.load(std::memory_order_acquire) == 0) {
    return EngineChoice::qvlib;
  }
  return state::useOpenSSLFips.load(std::memory_order_acquire) != 0 ? EngineChoice::wolfEngine
                                                                    : EngineChoice::qvlibFIPS;
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

// Makes the listed engine of that id the active one; null when there is none. The reference is not given back:
// keys may still be bound to the engine after the unload.
ENGINE *activate(std::string_view id, std::atomic<ENGINE *> &listed) noexcept {
  ENGINE *engine = findListedEngine(id).release();
  activeEngine.store(engine, std::memory_order_release);
  if (engine != nullptr) {
    listed.store(engine, std::memory_order_release);
  }
  return engine;
}

int loadDelegationEngine() noexcept {
  listDelegationEngine();
  ENGINE *engine = activate(kQvlibId, listedQvlib);
  if (engine == nullptr) {
    return 0;
  }
  attachMissingEcKey(engine);
  ENGINE_register_RSA(engine);
  ENGINE_register_DSA(engine);
  krENGINE_register_ECDSA(engine);
  ENGINE_register_RAND(engine);
  return 1;
}

int loadBridgeEngine() noexcept {
  qvlibFIPS_bind();
  ENGINE *engine = activate(kQvlibFipsId, listedBridge);
  if (engine == nullptr) {
    return 0;
  }
  attachMissingKeyMethods(engine);
  ENGINE_register_RSA(engine);
  ENGINE_register_DSA(engine);
  krENGINE_register_ECDSA(engine);
  ENGINE_register_DH(engine);
  ENGINE_register_RAND(engine);
  ENGINE_register_ciphers(engine);
  ENGINE_register_digests(engine);
  return 1;
}

int loadChosenEngine() noexcept {
  switch (chosenEngine()) {
  case EngineChoice::qvlib:
    return loadDelegationEngine();
  case EngineChoice::wolfEngine:
    return krWolfEngineLoad();
  case EngineChoice::qvlibFIPS:
    return loadBridgeEngine();
  }
  return 0;
}

bool isActive(std::string_view id) noexcept {
  const ENGINE *active = activeEngine.load(std::memory_order_acquire);
  return active != nullptr && id == ENGINE_get_id(active);
}

// Loading wolfEngine has OpenSSL register every listed engine again, and so may the host. A wolfEngine that the
// host brought is the host's.
void retireOthers() noexcept {
  for (const std::string_view id : {kQvlibId, kQvlibFipsId}) {
    if (!isActive(id)) {
      retireListedEngine(id);
    }
  }
  if (!isActive(kWolfEngineId) && wolfEngineIsListed()) {
    retireListedEngine(kWolfEngineId);
    releaseWolfEngine();
  }
}

} // namespace

int krOpenSSLEngineLoad() {
  // From here on OpenSSL's engine list holds functions of this library.
  if (!opensslIsUsable() || !platform::stayLoaded()) {
    noteMissedRandomMethod();
    return 0;
  }
  const int loaded = loadChosenEngine();
  retireOthers();
  // Without an engine, ordinary mode is to work with OpenSSL's own methods, not with those of the mode that was left.
  if (loaded != 0 || krFipsMode() == 0) {
    renewRandomMethod();
  }
  return loaded;
}

int krOpenSSLEngineUnload() {
  ENGINE *engine = activeEngine.load(std::memory_order_acquire);
  if (engine == nullptr) {
    return 1;
  }
  if (opensslIsUsable()) {
    if (state::fipsMode.load(std::memory_order_acquire) != 0) {
      return krWolfEngineUnload();
    }
    unregisterAlgorithms(engine);
  }
  activeEngine.store(nullptr, std::memory_order_release);
  return 1;
}
