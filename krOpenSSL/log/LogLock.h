// The log lock.
#pragma once

namespace krOpenSSL {

/// Holds the log lock for its life. Not for signal handlers: the lock is not recursive.
class LogLock {
public:
  LogLock();
  ~LogLock();
  LogLock(const LogLock &) = delete;
  LogLock &operator=(const LogLock &) = delete;

  /// Runs the work under the lock, or not at all when another thread is in the log.
  static void ifFree(void (*work)() noexcept) noexcept;

private:
  bool held_;
};

} // namespace krOpenSSL
