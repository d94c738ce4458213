// Why something failed: programs print an error's reason, and most of them nothing else, so each cause has its own.
#pragma once

#include "wire/Message.h"

#include <stdexcept>
#include <string>

namespace krEngine {

enum class Reason : int {
  internal = 100, // OpenSSL keeps the numbers below for itself
  setting,
  reference,
  unsupportedDigest,
  unsupportedPadding,
  smallBuffer,
  answer,
  noSocket,
  noListener,
  noPermission,
  noAnswer,
  closed,
  notOfAHolder,
  unreachable,
  refused,
  noKey,
  wrongKey,
  badRequest,
  busy,
  failed,
};

/// Ends an operation; becomes an error of OpenSSL's at the C boundary.
class Failure : public std::runtime_error {
public:
  explicit Failure(Reason why, const std::string &detail = {}) : std::runtime_error(detail), reason(why) {}

  const Reason reason;
};

/// What a holder answered when it did not do what was asked.
Reason reasonOf(krHolder::Status status) noexcept;

/// Puts the exception that is being handled on OpenSSL's error queue.
void explain() noexcept;

/// What a function that OpenSSL calls gives: its answer, or this where it threw.
template <class Result, class Function> Result guarded(Result otherwise, Function function) noexcept {
  try {
    return function();
  } catch (...) {
    explain();
    return otherwise;
  }
}

} // namespace krEngine
