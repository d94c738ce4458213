// A lock that no forked child finds held, ready from the first to the last moment of the process.
#pragma once

#include <optional>

#ifdef _WIN32
#include "platform/Mutex.h"
#else
#include <atomic>
#include <cstdint>
#endif

namespace krOpenSSL::platform {

/// Constant-initialised and trivially destroyed. A thread that holds it is not copied by a fork, so in the child it
/// is free, whatever call forked: the first to take it there is told.
class ForkLock {
public:
  /// Waits for the lock.
  ///
  /// @return true for its first holder in a forked child: what it guards is a copy of the parent's
  bool lock() noexcept;

  /// Takes the lock if no thread of this process has it.
  ///
  /// @return what lock() would, or nothing
  std::optional<bool> tryLock() noexcept;

  /// @return false when the process was forked while the lock was held and this is the child, as when a signal
  ///         handler forks. The lock is left alone then.
  bool unlock() noexcept;

  /// What unlock would return.
  bool isHeld() const noexcept;

  /// Whether lock() is sure to tell a child; the lock is held.
  bool noticesForks() noexcept;

private:
#ifdef _WIN32
  Mutex mutex_; // processes do not fork
#else
  using Word = std::atomic<std::uint32_t>;

  Word &word() noexcept;
  std::uint32_t processOf(const Word &word) const noexcept;

  std::atomic<Word *> word_{nullptr};
  Word own_{0}; // where the kernel has no memory that children get wiped
#endif
};

} // namespace krOpenSSL::platform
