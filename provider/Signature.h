// Signing at the holder; verifying here, with the public key.
#pragma once

#include "Key.h"

#include <optional>

namespace krProvider {

/// One operation of a program, as libcrypto drives it: begun, given parameters, given a message or its digest, done.
class Signature {
public:
  /// @param properties  for what the program's other providers do; null for none
  Signature(const Provider &provider, const char *properties);
  Signature(const Signature &other);

  const Provider &provider() const noexcept { return provider_; }
  const Shadow *shadow() const noexcept { return shadow_ ? &*shadow_ : nullptr; }
  std::size_t maxBytes() const noexcept { return key_ ? key_->maxBytes() : 0; }

  /// Contacts nobody: TLS 1.3 begins twice for each signature.
  /// @param key     null: the one it had
  /// @param digest  its name, or null
  void start(Shadow::Start *how, const Share *key, const char *digest, const OSSL_PARAM params[]);
  int set(const OSSL_PARAM params[]);

  /// Adds to the message.
  void update(krHolder::View data);

  krHolder::Bytes signMessage(std::size_t room);
  krHolder::Bytes signDigest(krHolder::View digest, std::size_t room) const;
  bool verifyMessage(krHolder::View signature);
  bool verifyDigest(krHolder::View signature, krHolder::View digest) const noexcept;

private:
  const char *properties() const noexcept { return properties_ ? properties_->c_str() : nullptr; }
  krHolder::Bytes ask(krHolder::Form form, krHolder::Bytes data, std::size_t room) const;
  void describePss(krHolder::Sign &sign, std::size_t digestBytes, const char *maskDigest, int saltRule) const;
  void startHash();
  krHolder::Bytes finishHash();

  const Provider &provider_;
  std::optional<std::string> properties_;
  Share key_;
  std::optional<Shadow> shadow_;
  krHolder::Bytes message_; // all of it, while the holder can take it as it is
  DigestContextPtr hash_;   // from then on
};

} // namespace krProvider
