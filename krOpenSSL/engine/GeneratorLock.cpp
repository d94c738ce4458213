// The generator lock. Threads may draw while the process exits, and in a child that was forked while they drew.
#include "engine/GeneratorLock.h"

#include "platform/ForkLock.h"

#include <atomic>
#include <optional>

namespace krOpenSSL {
namespace {

constinit platform::ForkLock gate; // trivially destroyed

// What follows is used behind the gate.
constinit std::atomic<CRYPTO_RWLOCK *> generatorLock{nullptr};
constinit CRYPTO_ONCE lockOnce = CRYPTO_ONCE_STATIC_INIT;
constinit std::atomic<bool> gateAlone{false};
constinit std::atomic<bool> copied{false};

void makeLock() noexcept { generatorLock.store(CRYPTO_THREAD_lock_new()); }

void noteCopy() noexcept {
  gateAlone.store(true, std::memory_order_relaxed);
  copied.store(true, std::memory_order_relaxed);
}

CRYPTO_RWLOCK *opensslLock() noexcept {
  const bool made = !gateAlone.load(std::memory_order_relaxed) && CRYPTO_THREAD_run_once(&lockOnce, makeLock) != 0;
  return made ? generatorLock.load(std::memory_order_relaxed) : nullptr;
}

struct LockOwner {
  // While a thread draws, and it may be the one that this interrupts, the lock stays.
  ~LockOwner() {
    const std::optional<bool> firstInChild = gate.tryLock();
    if (!firstInChild) {
      return;
    }
    if (*firstInChild) {
      noteCopy();
    }
    if (!gateAlone.exchange(true)) {
      CRYPTO_THREAD_lock_free(generatorLock.exchange(nullptr));
    }
    gate.unlock();
  }
};

const LockOwner owner{};

} // namespace

GeneratorLock::GeneratorLock() noexcept {
  if (gate.lock()) {
    noteCopy();
  }
  held_ = opensslLock();
  if (held_ != nullptr) {
    CRYPTO_THREAD_write_lock(held_);
  }
}

GeneratorLock::~GeneratorLock() {
  if (holds_) {
    static_cast<void>(release());
  }
}

bool GeneratorLock::release() noexcept {
  holds_ = false;
  if (held_ != nullptr) {
    CRYPTO_THREAD_unlock(held_);
  }
  if (gate.unlock()) {
    return true;
  }
  noteCopy();
  return false;
}

bool GeneratorLock::firstInChild() noexcept {
  const bool first = copied.load(std::memory_order_relaxed);
  if (first) {
    copied.store(false, std::memory_order_relaxed);
  }
  return first;
}

bool GeneratorLock::noticesForks() noexcept { return gate.noticesForks(); }

} // namespace krOpenSSL
