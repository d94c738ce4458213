// Where an engine object carries its methods.
#include "fipsbridge/EngineMethods.h"

#include "fipsbridge/BridgeIndexes.h"

#include <memory>
#include <new>

namespace krOpenSSL {
namespace {

EngineMethods *ownMethods(const ENGINE *engine) noexcept {
  const int index = engineIndex();
  return engine != nullptr && index >= 0 ? static_cast<EngineMethods *>(ENGINE_get_ex_data(engine, index)) : nullptr;
}

// Never freed: nothing tells when OpenSSL has done with them.
EngineMethods *keptMethods() noexcept {
  static EngineMethods *const kept = new (std::nothrow) EngineMethods;
  return kept;
}

} // namespace

bool giveMethods(ENGINE *engine) noexcept {
  const int index = engineIndex();
  std::unique_ptr<EngineMethods> methods(new (std::nothrow) EngineMethods);
  if (index < 0 || !methods || ENGINE_set_ex_data(engine, index, methods.get()) == 0) {
    return false;
  }
  static_cast<void>(methods.release());
  return true;
}

EngineMethods *methodsOf(const ENGINE *engine) noexcept {
  EngineMethods *own = ownMethods(engine);
  return own != nullptr ? own : keptMethods();
}

void takeMethods(ENGINE *engine) noexcept {
  const std::unique_ptr<EngineMethods> methods(ownMethods(engine));
  if (methods) {
    ENGINE_set_ex_data(engine, engineIndex(), nullptr);
  }
}

} // namespace krOpenSSL
