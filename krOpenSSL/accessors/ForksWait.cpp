// Calls of OpenSSL's that no fork is to fall into.
#include "accessors/ForksWait.h"

#include "platform/CancellationDelay.h"
#include "platform/ForkLock.h"
#include "platform/Platform.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <thread>

namespace krOpenSSL {
namespace {

constinit std::array<platform::ForkLock, ForksWait::kKinds> calls;

#ifndef _WIN32 // where processes do not fork
constinit thread_local std::array<bool, ForksWait::kKinds> isForking{};

// Not for ever: the thread that forks may be in such a call itself, by a signal handler, or hold what the call
// waits for, as an allocator's lock.
bool waitFor(platform::ForkLock &lock) noexcept {
  constexpr int kAttempts = 1000;
  constexpr std::chrono::microseconds kPause{100};
  const CancellationDelay wholeFork;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (lock.tryLock()) {
      return true;
    }
    std::this_thread::sleep_for(kPause);
  }
  return false;
}

void beforeFork() noexcept {
  for (std::size_t kind = 0; kind < calls.size(); ++kind) {
    isForking[kind] = waitFor(calls[kind]);
  }
}

void afterFork() noexcept {
  for (std::size_t kind = 0; kind < calls.size(); ++kind) {
    if (isForking[kind]) {
      calls[kind].unlock();
    }
  }
}

[[maybe_unused]] const bool forksWait = platform::holdAcrossForks(beforeFork, afterFork);
#endif

} // namespace

ForksWait::ForksWait(Kind kind) noexcept : kind_(kind) { calls[kind_].lock(); }

ForksWait::~ForksWait() { calls[kind_].unlock(); }

int newExDataIndex(int exClass, long argl, void *argp, CRYPTO_EX_new *newFunction, CRYPTO_EX_dup *dupFunction,
                   CRYPTO_EX_free *freeFunction) noexcept {
  const ForksWait wait(ForksWait::indexes);
  return CRYPTO_get_ex_new_index(exClass, argl, argp, newFunction, dupFunction, freeFunction);
}

} // namespace krOpenSSL
