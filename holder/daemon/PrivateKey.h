// What a private key does for a request: what may be asked of the back end's key, and what it may answer.
#pragma once

#include "Failure.h"
#include "HeldKey.h"

namespace krHolder {

/// A key and how it is known. Any number of threads may use it.
class PrivateKey {
public:
  /// @throws Unusable for another type than RSA, RSA-PSS or EC, and for an RSA key longer than 16384 bits
  explicit PrivateKey(std::unique_ptr<const HeldKey> key);

  const Bytes &publicKey() const noexcept { return publicKey_; } ///< DER, SubjectPublicKeyInfo
  const Fingerprint &fingerprint() const noexcept { return fingerprint_; }

  /// Each throws a Refusal for what is not possible with this key, or fails.
  Bytes sign(const Sign &request) const;
  Bytes decrypt(const Decrypt &request) const;
  Bytes raw(const Raw &request) const;

private:
  Bytes asked(const Decrypting &what) const;

  std::unique_ptr<const HeldKey> key_;
  Bytes publicKey_;
  Fingerprint fingerprint_{};
};

} // namespace krHolder
