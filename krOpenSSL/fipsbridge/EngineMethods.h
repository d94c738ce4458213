// The cipher and digest methods of one engine object. They belong to it, so that an engine that is discarded,
// because OpenSSL's list holds one of the same id, takes nothing from the listed one.
#pragma once

#include "accessors/ErrorQueueScope.h"
#include "fipsbridge/qvCiphers.h"
#include "fipsbridge/qvDigests.h"

#include <krOpenSSL/krHandles.h>

#include <array>
#include <atomic>

namespace krOpenSSL {

/// A method that is built at its first request and freed with its slot.
template <class Method, auto FreeMethod> class MethodSlot {
public:
  MethodSlot() noexcept = default;
  ~MethodSlot() { FreeMethod(method_.load(std::memory_order_acquire)); }
  MethodSlot(const MethodSlot &) = delete;
  MethodSlot &operator=(const MethodSlot &) = delete;

  /// The method; null when it is not there and @p build gives none. No lock: of threads that ask for the first time
  /// at once, each may build one, the first to finish has its own kept for all, and the others drop theirs.
  template <class Build> const Method *get(Build build) noexcept {
    Method *kept = method_.load(std::memory_order_acquire);
    if (kept != nullptr) {
      return kept;
    }
    const ErrorQueueScope errors;
    Handle<Method, FreeMethod> built(build());
    return method_.compare_exchange_strong(kept, built.get(), std::memory_order_acq_rel) ? built.release() : kept;
  }

private:
  std::atomic<Method *> method_{nullptr};
};

struct EngineMethods {
  std::array<MethodSlot<EVP_CIPHER, EVP_CIPHER_meth_free>, kCipherCount> ciphers;
  std::array<MethodSlot<EVP_MD, EVP_MD_meth_free>, kDigestCount> digests;
};

/// Gives a fresh engine its slots, all empty; false when they cannot be made.
bool giveMethods(ENGINE *engine) noexcept;

/// The slots of an engine, or for one that has none slots that the process keeps; null when those cannot be made.
EngineMethods *methodsOf(const ENGINE *engine) noexcept;

/// Frees the slots of an engine and what they hold.
void takeMethods(ENGINE *engine) noexcept;

} // namespace krOpenSSL
