// Threads that are to end.
#pragma once

#ifndef _WIN32
#include <pthread.h>
#endif

namespace krOpenSSL {

/// Puts off what pthread_cancel asks of this thread until the object goes: the end then comes at the thread's next
/// cancellation point. It unwinds the stack by something like an exception that nothing may catch for good, so in a
/// function that is noexcept it would end the process. Windows has no such thing.
class CancellationDelay {
public:
#ifdef _WIN32
  CancellationDelay() noexcept {} // NOLINT(modernize-use-equals-default): it is used for its life
  ~CancellationDelay() {}         // NOLINT(modernize-use-equals-default)
#else
  CancellationDelay() noexcept { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  ~CancellationDelay() { (void)pthread_setcancelstate(before_, nullptr); }
#endif
  CancellationDelay(const CancellationDelay &) = delete;
  CancellationDelay &operator=(const CancellationDelay &) = delete;

#ifndef _WIN32
private:
  int before_ = PTHREAD_CANCEL_ENABLE;
#endif
};

} // namespace krOpenSSL
