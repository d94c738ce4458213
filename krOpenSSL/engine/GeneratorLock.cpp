// The generator lock: made once, freed at exit unless a thread still uses it.
#include "engine/GeneratorLock.h"

#include "platform/Platform.h"

#include <atomic>

namespace krOpenSSL {
namespace {

constinit std::atomic<CRYPTO_RWLOCK *> generatorLock{nullptr};
constinit CRYPTO_ONCE lockOnce = CRYPTO_ONCE_STATIC_INIT;
// Threads that hold the lock or wait for it: the process may exit while they run.
constinit std::atomic<int> users{0};
constinit std::atomic<bool> forksWatched{false};
constinit std::atomic<bool> inChild{false};

// Runs in a forked child while it has one thread. A thread that was not copied may hold the lock, so the
// child gets one of its own.
void startChild() noexcept {
  inChild.store(true);
  if (users.exchange(0) != 0 && generatorLock.load() != nullptr) {
    generatorLock.store(CRYPTO_THREAD_lock_new());
  }
}

// Forks are watched before the lock can be held, so that no child inherits it held.
void makeLock() noexcept {
  forksWatched.store(platform::watchForks(startChild));
  if (generatorLock.load() == nullptr) {
    generatorLock.store(CRYPTO_THREAD_lock_new());
  }
}

struct LockOwner {
  ~LockOwner() {
    // OpenSSL's own exit handler may ask for random bytes after this: it has to find the pointer empty.
    CRYPTO_RWLOCK *lock = generatorLock.exchange(nullptr);
    if (users.load() == 0) {
      CRYPTO_THREAD_lock_free(lock);
    }
  }
};

const LockOwner owner{};

} // namespace

GeneratorLock::GeneratorLock() noexcept {
  users.fetch_add(1);
  held_ = CRYPTO_THREAD_run_once(&lockOnce, makeLock) != 0 ? generatorLock.load() : nullptr;
  if (held_ != nullptr) {
    CRYPTO_THREAD_write_lock(held_);
  }
}

GeneratorLock::~GeneratorLock() {
  if (held_ != nullptr) {
    CRYPTO_THREAD_unlock(held_);
  }
  users.fetch_sub(1);
}

// _Fork and the bare system calls run no handlers.
bool GeneratorLock::firstInChild() noexcept {
  const bool unhandled = platform::firstInForkedChild();
  return inChild.exchange(false) || unhandled;
}

bool GeneratorLock::watchForks() noexcept {
  if (!forksWatched.load()) {
    forksWatched.store(platform::watchForks(startChild));
  }
  return forksWatched.load();
}

} // namespace krOpenSSL
