// The lock that guards the process-wide generator.
#pragma once

#include <openssl/crypto.h>

namespace krOpenSSL {

/// Holds the generator lock for its life. The lock is made on first need and freed at process exit; when it
/// cannot be made, or is gone, the work goes on without it.
class GeneratorLock {
public:
  GeneratorLock() noexcept;
  ~GeneratorLock();
  GeneratorLock(const GeneratorLock &) = delete;
  GeneratorLock &operator=(const GeneratorLock &) = delete;

  /// True for the first holder in a forked child, whose generator is a copy of its parent's.
  bool firstInChild() noexcept;

  /// Makes sure that forks are noticed; false when the system cannot tell. The lock is held.
  bool watchForks() noexcept;

private:
  CRYPTO_RWLOCK *held_;
};

} // namespace krOpenSSL
