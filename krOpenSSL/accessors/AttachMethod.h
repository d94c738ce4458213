// Giving an engine a method that it then owns.
#pragma once

#include <openssl/engine.h>

namespace krOpenSSL {

/// Hands the method over to the engine; it stays the handle's, and goes with it, when the engine refuses it. Null
/// takes away the method that the engine had.
template <class MethodPtr, class Setter> bool attachMethod(ENGINE *engine, MethodPtr method, Setter setter) noexcept {
  const bool taken = setter(engine, method.get()) != 0;
  if (taken) {
    static_cast<void>(method.release());
  }
  return taken;
}

} // namespace krOpenSSL
