// An operation on the public key, by the program's other providers: it takes every parameter, checks it, knows the
// defaults and the algorithm's identifier, and does what needs no private key.
#pragma once

#include "Handles.h"
#include "wire/Message.h"

#include <openssl/params.h>

#include <optional>

namespace krProvider {

class Shadow {
public:
  using Start = int(EVP_PKEY_CTX *context, const OSSL_PARAM params[]);

  /// @param properties  null for none
  /// @throws Raised
  Shadow(OSSL_LIB_CTX *library, EVP_PKEY *key, const char *properties, Start *start, const OSSL_PARAM params[]);
  Shadow(const Shadow &other);
  Shadow(Shadow &&other) noexcept = default;
  Shadow &operator=(Shadow &&other) noexcept = default;

  EVP_PKEY_CTX *get() const noexcept { return context_.get(); }

  int set(const OSSL_PARAM params[]) noexcept { return EVP_PKEY_CTX_set_params(context_.get(), params) == 1; }
  int get(OSSL_PARAM params[]) const noexcept { return EVP_PKEY_CTX_get_params(context_.get(), params) == 1; }

private:
  KeyContextPtr context_;
};

/// For what an operation does once it has begun: libcrypto goes on when its beginning has failed.
/// @throws Failure when it has not
const Shadow &begun(const std::optional<Shadow> &shadow);

struct Digest {
  const char *name;
  krHolder::Digest code;
  std::size_t bytes;
};

/// A digest that the program names, among those that holders sign.
/// @throws Failure when it is none of them, or the program's providers do not have it
const Digest &digestNamed(OSSL_LIB_CTX *library, const char *name, const char *properties);

} // namespace krProvider
