// Why something failed: programs print an error's reason, and most of them nothing else, so each cause has its own.
#pragma once

#include "wire/Message.h"

#include <openssl/core.h>

#include <stdexcept>
#include <string>

namespace krProvider {

enum class Reason : unsigned {
  internal = 1,
  memory,
  setting,
  reference,
  unsupportedKey,
  unsupportedDigest,
  unsupportedPadding,
  digestLength,
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

/// The reasons' texts, for libcrypto.
const OSSL_ITEM *reasonTexts() noexcept;

/// What a holder answered when it did not do what was asked.
Reason reasonOf(krHolder::Status status) noexcept;

/// Why no answer came.
/// @param error  errno, as krHolder::Unreachable has it
Reason reasonOf(int error) noexcept;

/// Ends an operation; becomes an error of libcrypto at the C boundary.
class Failure : public std::runtime_error {
public:
  explicit Failure(Reason reason, const std::string &detail = {}) : std::runtime_error(detail), reason_(reason) {}
  Reason reason() const noexcept { return reason_; }

private:
  Reason reason_;
};

/// Ends an operation whose error libcrypto has raised already.
struct Raised {};

/// @throws Raised unless what libcrypto returned is its "done"
inline void done(int result) {
  if (result != 1) {
    throw Raised();
  }
}

} // namespace krProvider
