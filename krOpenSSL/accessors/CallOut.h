// Calling the caller's callbacks from inside OpenSSL.
#pragma once

namespace krOpenSSL {

/// Runs a caller's callback; one that throws counts as failed, since no exception may cross OpenSSL.
template <class Result, class... Parameters, class... Arguments>
Result callOut(Result failure, Result (*callback)(Parameters...), Arguments... arguments) noexcept {
  try {
    return callback(arguments...);
  } catch (...) {
    return failure;
  }
}

} // namespace krOpenSSL
