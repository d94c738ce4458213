// A private key in software, as the key holder keeps it: the only part of this program that touches one.
#pragma once

#include "Bytes.h"

#include <krOpenSSL/krHandles.h>

#include <optional>
#include <string>

namespace delegated_tls {

/// What a key holder can be asked to do.
enum class Operation : unsigned char {
  sign,              ///< a signature over a bare digest: PKCS#1 for RSA, DER for DSA and ECDSA
  rsaPrivateEncrypt, ///< RSA with the padding given (RSA-PSS comes as a padded block)
  rsaPrivateDecrypt, ///< RSA with the padding given (TLS key transport)
};

/// An RSA, EC or DSA private key. Its object has to be made before the library is set up, or in another
/// process, so that it is not bound to the delegating engine.
class PrivateKey {
public:
  static PrivateKey fromPemFile(const std::string &path);
  static PrivateKey generateRsa();
  static PrivateKey generateEc();
  static PrivateKey generateDsa();

  /// The DER-encoded SubjectPublicKeyInfo.
  Bytes publicHalf() const;

  /// The result, or nothing when the key cannot do it or OpenSSL refused.
  std::optional<Bytes> perform(Operation operation, int padding, const Bytes &data) const;

private:
  explicit PrivateKey(krOpenSSL::EVPPKeyPtr key) : key_(std::move(key)) {}
  std::optional<Bytes> sign(const Bytes &digest) const;

  krOpenSSL::EVPPKeyPtr key_;
};

/// The hash algorithm of a digest, told by its length, since the provider passes none; NID_undef when no algorithm has
/// that length.
int digestNid(std::size_t length);

/// The DER-encoded SubjectPublicKeyInfo of any key.
Bytes publicKeyDer(EVP_PKEY *key);

/// A fresh key object over a SubjectPublicKeyInfo.
krOpenSSL::EVPPKeyPtr publicKeyFrom(const Bytes &der);

/// Fails for keys that no holder signs with: "keys of type X are not supported".
void requireSupportedType(EVP_PKEY *key);

} // namespace delegated_tls
