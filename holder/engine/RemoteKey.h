// A key at a holder, as the engine asks for its work.
#pragma once

#include "client/Client.h"
#include "reference/Reference.h"

#include <krOpenSSL/krDelegate.hpp>

namespace krEngine {

/// Any number of threads may use it at once. Each operation throws a Failure or an Unreachable.
class RemoteKey {
public:
  /// @throws Failure for a reference whose public key is none that a holder has
  explicit RemoteKey(const krHolder::Reference &reference);

  EVP_PKEY *publicKey() const noexcept { return publicKey_.get(); }

  /// The signature: as long as the key for RSA, no longer for ECDSA.
  krHolder::Bytes sign(krHolder::Sign what) const;

  /// The text, no longer than the key.
  krHolder::Bytes decrypt(krHolder::Decrypt what) const;

  /// RSA's private operation without padding.
  krHolder::Bytes raw(krHolder::View block) const;

  /// A block that a key exchange of TLS by RSA asks for without padding: the premaster secret from the holder, padded
  /// anew. Where padding was wrong it is random, as the one that OpenSSL would take; the version is for OpenSSL to look
  /// at.
  krHolder::Bytes keyExchange(krHolder::View block) const;

private:
  krHolder::Bytes ask(krHolder::Operation operation, decltype(krHolder::Request::body) body, std::size_t least,
                      std::size_t most) const;
  std::size_t size() const { return static_cast<std::size_t>(EVP_PKEY_size(publicKey_.get())); }

  std::string name_;
  krHolder::Fingerprint fingerprint_{};
  krOpenSSL::EVPPKeyPtr publicKey_;
  std::shared_ptr<krHolder::Client> client_;
};

/// The wire's name of an algorithm.
/// @throws Failure for one that it has none for
krHolder::Digest digestOf(int hash);

/// The functions of a DelegatedKey that ask for the key's work: what does not come through the engine's own methods.
krOpenSSL::KeyOperations operationsOf(const std::shared_ptr<const RemoteKey> &key);

} // namespace krEngine
