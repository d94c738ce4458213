// The lock that guards the process-wide generator.
#pragma once

#include <openssl/crypto.h>

namespace krOpenSSL {

/// Holds the generator lock for its life: the platform's, which is there to the last instruction of the process, and
/// inside it OpenSSL's, made on first need and freed at process exit. Where that one cannot be made, is gone, or may
/// be held by a thread that a forked child has not got, the platform's does alone.
class GeneratorLock {
public:
  GeneratorLock() noexcept;
  ~GeneratorLock();
  GeneratorLock(const GeneratorLock &) = delete;
  GeneratorLock &operator=(const GeneratorLock &) = delete;

  /// True for the first holder in a forked child, whose generator is a copy of its parent's.
  bool firstInChild() noexcept;

  /// Gives the lock back, ahead of the object's end.
  ///
  /// @return false when the process was forked since the lock was taken, by a signal handler, and this is the child:
  /// what
  ///         was done meanwhile is a copy of what the parent does
  bool release() noexcept;

  /// Whether forks are noticed.
  bool noticesForks() noexcept;

private:
  CRYPTO_RWLOCK *held_ = nullptr;
  bool holds_ = true;
};

} // namespace krOpenSSL
