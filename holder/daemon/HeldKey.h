// A private key, wherever a back end has it.
#pragma once

#include "wire/Message.h"

#include <krOpenSSL/krHandles.h>

namespace krHolder {

/// What is to be signed. It fits the key: scheme and lengths were looked at before.
struct Signing {
  Scheme scheme;
  const EVP_MD *digest;     ///< the algorithm whose digest the value is
  const EVP_MD *maskDigest; ///< of PSS; null otherwise
  int saltBytes;            ///< of PSS; 0 otherwise
  View value;
};

/// What is to be decrypted, as long as the key.
struct Decrypting {
  int padding;              ///< RSA_NO_PADDING, or what is to be taken off: RSA_PKCS1_PADDING, RSA_PKCS1_OAEP_PADDING
  const EVP_MD *digest;     ///< of OAEP; null otherwise
  const EVP_MD *maskDigest; ///< likewise
  View label;               ///< likewise; may be empty
  View data;
};

/// Any number of threads may use it at once. What an operation throws ends it: a Refusal's text is the client's answer,
/// every other exception's is a line in the holder's log and the client gets none of it. What an operation gives is
/// judged by the holder before it goes on.
class HeldKey {
public:
  HeldKey() = default;
  virtual ~HeldKey() = default;
  HeldKey(const HeldKey &) = delete;
  HeldKey &operator=(const HeldKey &) = delete;

  /// An RSA, RSA-PSS or EC key; only its public half is looked at. There for as long as the object.
  virtual EVP_PKEY *publicHalf() const noexcept = 0;

  /// @return the signature: RSA's as long as the key, ECDSA's as DER
  virtual Bytes sign(const Signing &what) const = 0;

  /// Asked of RSA keys alone.
  /// @return the text; without padding as long as the key
  virtual Bytes decrypt(const Decrypting &what) const = 0;
};

} // namespace krHolder
