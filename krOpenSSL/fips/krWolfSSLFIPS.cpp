// The wolfEngine loader.
//
// wolfEngine is a module of its own, brought in by OpenSSL's dynamic engine. Its RSA and EC_KEY methods are data
// objects of that module; they are looked up in the loaded module, so that a process without wolfEngine can
// load this library.
#include "fips/krWolfSSLFIPS.h"

#include "engine/EngineList.h"
#include "fips/ActiveEngine.h"
#include "fips/MethodSplice.h"
#include "log/krCustomLogger.h"
#include "platform/Platform.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>

using namespace krOpenSSL;

namespace {

// Whether OpenSSL's list has wolfEngine, where it stays.
constinit std::atomic<bool> listed{false};

// The engine whose functional reference a load took, or null.
constinit std::atomic<ENGINE *> initialisedEngine{nullptr};

// The loaded module, kept so that its method objects stay where they are.
constinit std::atomic<void *> keptModule{nullptr};

// Where wolfEngine is: NUL-terminated, empty until the system has told.
constinit std::array<char, 1100> wolfEnginePath{};

struct ControlCommand {
  const char *name;
  const char *argument;
  const char *failure;
  int line;
};

bool sendToDynamic(ENGINE *dynamic, const ControlCommand &command) noexcept {
  if (ENGINE_ctrl_cmd_string(dynamic, command.name, command.argument, 0) != 0) {
    return true;
  }
  krLogWrite(kWolfSource, command.line, kWolfComponent, "%s", command.failure);
  return false;
}

// OpenSSL finds the module loaded, and leaves it at that.
bool loadIntoDynamic(ENGINE *dynamic) noexcept {
  const platform::ModuleAhead module(krWolfEngineGetPath());
  if (module && ENGINE_ctrl_cmd_string(dynamic, "LOAD", nullptr, 0) != 0) {
    return true;
  }
  krLogWrite(kWolfSource, 117, kWolfComponent, "Control command LOAD failed");
  return false;
}

// Has OpenSSL bring wolfEngine into its list.
bool listWolfEngine() noexcept {
  OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
  const ENGINEPtr dynamic(ENGINE_by_id("dynamic"));
  if (!dynamic) {
    krLogWrite(kWolfSource, 94, kWolfComponent, "Failed to load dynamic engine");
    return false;
  }
  for (const ControlCommand &command : {
           ControlCommand{"SO_PATH", krWolfEngineGetPath(), "Control command SO_PATH failed", 103},
           ControlCommand{"LIST_ADD", "2", "Control command LIST_ADD failed", 110},
       }) {
    if (!sendToDynamic(dynamic.get(), command)) {
      return false;
    }
  }
  if (!loadIntoDynamic(dynamic.get())) {
    return false;
  }
  listed.store(true, std::memory_order_release);
  return true;
}

// One functional reference is held, however many loads come before an unload.
bool initialise(ENGINE *engine) noexcept {
  if (ENGINE_init(engine) == 0) {
    return false;
  }
  releaseWolfEngine();
  initialisedEngine.store(engine, std::memory_order_release);
  return true;
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

void *wolfEngineModule() noexcept {
  void *module = keptModule.load(std::memory_order_acquire);
  if (module == nullptr) {
    module = platform::loadedModule(krWolfEngineGetPath());
    keptModule.store(module, std::memory_order_release);
  }
  return module;
}

// Both methods or neither: nothing of wolfEngine is changed when one of them is missing.
bool spliceDelegation(ENGINE *engine) noexcept {
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

bool load() noexcept {
  if (listed.load(std::memory_order_acquire)) {
    krLogWrite(kWolfSource, 82, kWolfComponent, "WolfEngine already loaded");
  } else if (!listWolfEngine()) {
    return false;
  }
  ENGINEPtr engine = findListedEngine(kWolfEngineId);
  activeEngine.store(engine.get(), std::memory_order_release);
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

bool krOpenSSL::wolfEngineIsListed() noexcept { return listed.load(std::memory_order_acquire); }

void krOpenSSL::releaseWolfEngine() noexcept {
  if (ENGINE *held = initialisedEngine.exchange(nullptr); held != nullptr) {
    ENGINE_finish(held);
  }
}

const char *krWolfEngineGetPath() noexcept {
  std::array<char, platform::kKnownFolderBytes> folder;
  auto &path = wolfEnginePath;
  if (path[0] != '\0') {
    return path.data();
  }
  if (!platform::commonProgramFilesFolder(folder.data(), folder.size())) {
    krLogWrite(kWolfSource, 65, kWolfComponent, "Failed to get 'TRVA' directory path");
    return path.data();
  }
  (void)std::snprintf(path.data(), path.size(), "%s%cCorvane%cTRVA%cwolfEngine%s", folder.data(), platform::kSeparator,
                      platform::kSeparator, platform::kSeparator, platform::kModuleSuffix);
  return path.data();
}

int krWolfEngineLoad() noexcept { return load() ? 1 : 0; }

int krWolfEngineUnload() noexcept {
  krWolfEngineSetLogging(false, 0);
  if (ENGINE *engine = activeEngine.load(std::memory_order_acquire); engine != nullptr) {
    unregisterEverything(engine);
    releaseWolfEngine();
    activeEngine.store(nullptr, std::memory_order_release);
  }
  krLogWrite(kWolfSource, 199, kWolfComponent, "Unloaded 'wolfEngine' successfully (Disabled FIPS mode)");
  return 1;
}
