// Calls of OpenSSL's that no fork is to fall into.
#pragma once

#include <openssl/crypto.h>

namespace krOpenSSL {

/// While it lives other threads' forks wait: OpenSSL takes locks meanwhile that a child would find held for ever. One
/// at a time of each kind; what it surrounds is short and calls nobody back.
class ForksWait {
public:
  /// In the order in which one may be inside the other: an engine's init, under OpenSSL's lock on engines, makes
  /// indexes.
  enum Kind { initialisation, indexes, kKinds };

  explicit ForksWait(Kind kind) noexcept;
  ~ForksWait();
  ForksWait(const ForksWait &) = delete;
  ForksWait &operator=(const ForksWait &) = delete;

private:
  Kind kind_;
};

/// CRYPTO_get_ex_new_index, while forks wait.
int newExDataIndex(int exClass, long argl, void *argp, CRYPTO_EX_new *newFunction, CRYPTO_EX_dup *dupFunction,
                   CRYPTO_EX_free *freeFunction) noexcept;

} // namespace krOpenSSL
