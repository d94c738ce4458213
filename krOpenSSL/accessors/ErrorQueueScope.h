// Leaving OpenSSL's error queue as it was found.
#pragma once

#include <openssl/err.h>

namespace krOpenSSL {

/// Takes back what is pushed onto the calling thread's error queue during its life.
///
/// A mark is one flag of an entry: where the caller has set one on the very entry that is marked here, it is
/// set again, or the caller's own pop would go past it.
class ErrorQueueScope {
public:
  ErrorQueueScope() noexcept : callersMark_(lastIsMarked()) { ERR_set_mark(); }
  ~ErrorQueueScope() {
    ERR_pop_to_mark();
    if (callersMark_) {
      ERR_set_mark();
    }
  }
  ErrorQueueScope(const ErrorQueueScope &) = delete;
  ErrorQueueScope &operator=(const ErrorQueueScope &) = delete;

private:
  static bool lastIsMarked() noexcept {
    const ERR_STATE *queue = ERR_get_state();
    return queue != nullptr && queue->top != queue->bottom && (queue->err_flags[queue->top] & ERR_FLAG_MARK) != 0;
  }

  bool callersMark_;
};

} // namespace krOpenSSL
