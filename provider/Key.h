// A key that is at a holder: what everybody may know of it, and how to ask for the rest.
#pragma once

#include "Beginnings.h"
#include "Provider.h"
#include "reference/Reference.h"

#include <memory>

namespace krProvider {

enum class Kind { rsa, rsaPss, ec };

/// The name that libcrypto knows a kind by.
const char *nameOf(Kind kind) noexcept;

/// Any number of threads may use one.
class Key {
public:
  /// @throws Failure when the reference's public key is none of a kind above, std::bad_alloc
  Key(Provider &provider, const krHolder::Reference &reference);

  const Provider &provider() const noexcept { return provider_; }
  Kind kind() const noexcept { return kind_; }
  EVP_PKEY *publicKey() const noexcept { return publicKey_.get(); }
  /// The most bytes of a signature, or of a text or cipher.
  std::size_t maxBytes() const noexcept { return maxBytes_; }

  /// An operation on the public key that has begun.
  /// @param digest, properties, params  null for none
  /// @throws Raised, std::bad_alloc
  Shadow begin(Shadow::Start *how, const char *digest, const char *properties, const OSSL_PARAM params[]) const;

  /// Asks the holder.
  /// @return the answer's data, at most room bytes
  /// @throws Failure when the holder did not do it, krHolder::Unreachable, std::bad_alloc
  krHolder::Bytes ask(krHolder::Operation operation, decltype(krHolder::Request::body) body, std::size_t room) const;

private:
  Provider &provider_;
  std::shared_ptr<krHolder::Client> client_;
  std::string name_;
  krHolder::Fingerprint fingerprint_;
  KeyPtr publicKey_;
  Kind kind_;
  std::size_t maxBytes_;
  mutable Beginnings beginnings_;
};

/// What libcrypto holds as a key's data: a share of it, on the heap.
using Share = std::shared_ptr<const Key>;

inline const Share &shareOf(const void *keyData) noexcept { return *static_cast<const Share *>(keyData); }

} // namespace krProvider
