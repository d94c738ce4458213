// The errors that a caller may be about to look at.
#pragma once

#include <cerrno>

namespace krOpenSSL::platform {

#ifdef _WIN32
unsigned long lastError() noexcept;
void setLastError(unsigned long error) noexcept;
#else
inline unsigned long lastError() noexcept { return 0; }
inline void setLastError(unsigned long /*error*/) noexcept {}
#endif

/// Keeps errno, and what GetLastError tells on Windows, as they were when the object was made.
class CallersErrors {
public:
  CallersErrors() noexcept = default;
  ~CallersErrors() {
    setLastError(last_);
    errno = errno_;
  }
  CallersErrors(const CallersErrors &) = delete;
  CallersErrors &operator=(const CallersErrors &) = delete;

private:
  int errno_ = errno;
  unsigned long last_ = lastError();
};

} // namespace krOpenSSL::platform
