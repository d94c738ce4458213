// Where an engine object carries its methods.
#include "fipsbridge/EngineMethods.h"

#include "fipsbridge/BridgeIndexes.h"

#include <memory>
#include <new>

namespace krOpenSSL {

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
  const int index = engineIndex();
  return engine != nullptr && index >= 0 ? static_cast<EngineMethods *>(ENGINE_get_ex_data(engine, index)) : nullptr;
}

} // namespace krOpenSSL
