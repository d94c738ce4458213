// What went wrong, in one sentence for the person at the keyboard.
#pragma once

#include <krOpenSSL/krInformation.h>

#include <stdexcept>
#include <string>

namespace delegated_tls {

struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The command line was wrong.
struct UsageFailure : Failure {
  using Failure::Failure;
};

/// Queues a reason of our own for the OpenSSL call that is about to fail, and its opensslFailure.
void queueReason(const std::string &reason);

/// A failure with the reason that was queued, if any.
Failure opensslFailure(const std::string &what);

/// @p object, or an opensslFailure when it is null or 0.
template <class Object> Object checked(Object object, const char *what) {
  if (!object) {
    throw opensslFailure(what);
  }
  return object;
}

} // namespace delegated_tls
