// The log lock.
#pragma once

namespace krOpenSSL {

/// Holds the log lock for its life. A thread that holds it already goes on at once: what is behind the lock may be
/// interrupted at any point, by a signal handler that forks and by handlers of forks, which log.
class LogLock {
public:
  LogLock() noexcept;
  ~LogLock();
  LogLock(const LogLock &) = delete;
  LogLock &operator=(const LogLock &) = delete;

  /// Runs the work under the lock, or not at all when another thread is in the log.
  static void ifFree(void (*work)() noexcept) noexcept;
};

} // namespace krOpenSSL
