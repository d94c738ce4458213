// Calling the caller's callbacks from inside OpenSSL.
#pragma once

#include "accessors/Recursion.h"
#include "platform/CancellationDelay.h"

namespace krOpenSSL {

/// Runs a caller's callback; one that throws counts as failed, since no exception may cross OpenSSL. Nor may the end of
/// a thread, which may wait in there for the key's holder when another thread cancels it.
template <class Result, class... Parameters, class... Arguments>
Result callOut(Result failure, Result (*callback)(Parameters...), Arguments... arguments) noexcept {
  const CancellationDelay wholeCallback;
  try {
    return callback(arguments...);
  } catch (...) {
    return failure;
  }
}

/// The same for the callback that works with @p key on @p input; one that runs into itself fails.
template <class Result, class... Parameters, class... Arguments>
Result callOutWith(const void *key, const void *input, Result failure, Result (*callback)(Parameters...),
                   Arguments... arguments) noexcept {
  const RecursionWatch watch(key, input);
  return watch.isEndless() ? failure : callOut(failure, callback, arguments...);
}

} // namespace krOpenSSL
