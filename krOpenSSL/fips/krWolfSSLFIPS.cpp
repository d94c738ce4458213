// The wolfEngine loader.
//
// wolfEngine is a module of its own, brought in by OpenSSL's dynamic engine. Its RSA and EC_KEY methods are data
// objects of that module; they are looked up in the loaded module, so that a process without wolfEngine can
// load this library.
#include "fips/krWolfSSLFIPS.h"

#include "engine/EngineList.h"
#include "fips/MethodSplice.h"
#include "log/krCustomLogger.h"
#include "platform/Platform.h"
#include "state/State.h"

#include <array>
#include <filesystem>
#include <string>

using namespace krOpenSSL;

namespace {

constexpr std::size_t kKnownFolderBytes = 1024;

struct ControlCommand {
  const char *name;
  const char *argument;
  const char *failure;
  int line;
};

bool send(ENGINE *dynamic, const ControlCommand &command) noexcept {
  if (ENGINE_ctrl_cmd_string(dynamic, command.name, command.argument, 0) != 0) {
    return true;
  }
  krLogWrite(kWolfSource, command.line, kWolfComponent, "%s", command.failure);
  return false;
}

// Has OpenSSL bring wolfEngine into its list.
bool listWolfEngine() {
  OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
  const ENGINEPtr dynamic(ENGINE_by_id("dynamic"));
  if (!dynamic) {
    krLogWrite(kWolfSource, 94, kWolfComponent, "Failed to load dynamic engine");
    return false;
  }
  const std::string path = krWolfEngineGetPath();
  for (const ControlCommand &command : {
           ControlCommand{"SO_PATH", path.c_str(), "Control command SO_PATH failed", 103},
           ControlCommand{"LIST_ADD", "2", "Control command LIST_ADD failed", 110},
           ControlCommand{"LOAD", nullptr, "Control command LOAD failed", 117},
       }) {
    if (!send(dynamic.get(), command)) {
      return false;
    }
  }
  state::wolfEngineListed = true;
  return true;
}

// One functional reference is held, however many loads come before an unload.
bool initialise(ENGINE *engine) noexcept {
  if (ENGINE_init(engine) == 0) {
    return false;
  }
  if (ENGINE *held = state::initialisedEngine.exchange(engine); held != nullptr) {
    ENGINE_finish(held);
  }
  return true;
}

// An engine that the loader did not initialise has no reference to give back.
void finish(ENGINE *engine) noexcept {
  if (state::initialisedEngine.compare_exchange_strong(engine, nullptr)) {
    ENGINE_finish(engine);
  }
}

bool makeDefault(ENGINE *engine) noexcept {
  if (ENGINE_set_default(engine, ENGINE_METHOD_ALL) == 0) {
    krLogWrite(kWolfSource, 143, kWolfComponent, "Failed to set 'wolfEngine' as default for all algorithms");
    return false;
  }
  if (!initialise(engine)) {
    krLogWrite(kWolfSource, 149, kWolfComponent, "Failed to initialize 'wolfEngine'");
    return false;
  }
  return true;
}

// The module's data object: a pointer to a method.
template <class Method> Method *exportedMethod(void *module, const char *name) noexcept {
  auto *const *object = static_cast<Method **>(platform::moduleObject(module, name));
  return object != nullptr ? *object : nullptr;
}

void *wolfEngineModule() {
  void *module = state::wolfEngineModule.load();
  if (module == nullptr) {
    module = platform::loadedModule(krWolfEngineGetPath().c_str());
    state::wolfEngineModule.store(module);
  }
  return module;
}

// Both methods or neither: nothing of wolfEngine is changed when one of them is missing.
bool spliceDelegation(ENGINE *engine) {
  void *module = wolfEngineModule();
  auto *rsa = module != nullptr ? exportedMethod<RSA_METHOD>(module, "we_rsa_method") : nullptr;
  auto *ec = module != nullptr ? exportedMethod<EC_KEY_METHOD>(module, "we_ec_key_method") : nullptr;
  if (rsa == nullptr || ec == nullptr) {
    krLogWrite(kWolfSource, 157, kWolfComponent, "Failed to find the methods of 'wolfEngine'");
    return false;
  }
  spliceRsaMethod(rsa);
  spliceEcKeyMethod(ec);
  splicePkeyMethods(engine);
  return true;
}

bool load() {
  if (state::wolfEngineListed) {
    krLogWrite(kWolfSource, 82, kWolfComponent, "WolfEngine already loaded");
  } else if (!listWolfEngine()) {
    return false;
  }
  ENGINEPtr engine = findListedEngine(kWolfEngineId);
  state::activeEngine.store(engine.get(), std::memory_order_release);
  if (!engine) {
    krLogWrite(kWolfSource, 137, kWolfComponent, "Failed to load 'wolfEngine'");
    return false;
  }
  if (!makeDefault(engine.get()) || !spliceDelegation(engine.get())) {
    (void)engine.release(); // stays with the handle, which names the engine until the unload
    return false;
  }
  krLogWrite(kWolfSource, 174, kWolfComponent, "Loaded 'wolfEngine' successfully (Enabled FIPS mode)");
  return true;
}

} // namespace

std::string krWolfEngineGetPath() {
  static std::string path;
  std::array<char, kKnownFolderBytes> folder;
  if (!path.empty()) {
    return path;
  }
  if (!platform::commonProgramFilesFolder(folder.data(), folder.size())) {
    krLogWrite(kWolfSource, 65, kWolfComponent, "Failed to get 'TRVA' directory path");
    return path;
  }
  const auto place = std::filesystem::path(folder.data()) / "Corvane" / "TRVA" / "wolfEngine";
  return path = place.string() + platform::kModuleSuffix;
}

int krWolfEngineLoad() noexcept {
  try {
    return load() ? 1 : 0;
  } catch (...) {
    return 0; // no memory for the path
  }
}

int krWolfEngineUnload() noexcept {
  krWolfEngineSetLogging(false, 0);
  if (ENGINE *engine = state::activeEngine.load(std::memory_order_acquire); engine != nullptr) {
    unregisterAlgorithms(engine);
    ENGINE_unregister_pkey_meths(engine);
    ENGINE_unregister_pkey_asn1_meths(engine);
    finish(engine);
    state::activeEngine.store(nullptr, std::memory_order_release);
  }
  krLogWrite(kWolfSource, 199, kWolfComponent, "Unloaded 'wolfEngine' successfully (Disabled FIPS mode)");
  return 1;
}
