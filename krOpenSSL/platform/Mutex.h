// A lock that is ready before the first static object is made and after the last one is gone.
#pragma once

#ifdef _WIN32

namespace krOpenSSL::platform {

// The run-time library's need not be either.
class Mutex {
public:
  void lock() noexcept;
  bool try_lock() noexcept;
  void unlock() noexcept;

private:
  void *lock_ = nullptr; // an SRWLOCK
};

} // namespace krOpenSSL::platform

#else

#include <mutex>

namespace krOpenSSL::platform {

using Mutex = std::mutex;

} // namespace krOpenSSL::platform

#endif
