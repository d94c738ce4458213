// Leaving OpenSSL's error queue as it was found.
#pragma once

#include <openssl/err.h>

namespace krOpenSSL {

/// Takes back what is pushed onto the calling thread's error queue during its life.
class ErrorQueueScope {
public:
  ErrorQueueScope() noexcept { ERR_set_mark(); }
  ~ErrorQueueScope() { ERR_pop_to_mark(); }
  ErrorQueueScope(const ErrorQueueScope &) = delete;
  ErrorQueueScope &operator=(const ErrorQueueScope &) = delete;
};

} // namespace krOpenSSL
