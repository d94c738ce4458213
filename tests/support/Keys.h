// Keys for the tests: software keys with OpenSSL's own methods, and fresh objects bound to the engine.
#pragma once

#include "support/Vectors.h"

#include <krOpenSSL/krHandles.h>

namespace krTest {

using krOpenSSL::EVPPKeyCtxPtr;
using krOpenSSL::EVPPKeyPtr;
using krOpenSSL::keyObject::dsaOf;
using krOpenSSL::keyObject::ecKeyOf;
using krOpenSSL::keyObject::rsaOf;

/// What differs by OpenSSL's version is asked here.
inline constexpr bool kOpenSSL3 = OPENSSL_VERSION_NUMBER >= 0x30000000L;
inline constexpr int kSslv23Padding = 2;

enum class Kind { rsa, dsa, p256, p384, p521 };
inline constexpr Kind kKinds[]{Kind::rsa, Kind::dsa, Kind::p256, Kind::p384, Kind::p521};

/// Has the library set up for its life, and made the software keys before.
struct Library {
  Library();
  ~Library();
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;
};

/// A key with OpenSSL's own methods, made once per process. To be asked for before the library's set-up.
EVP_PKEY *softwareKey(Kind kind);

/// A new object with the whole key, or with its public half, bound to the engine that is registered now.
EVPPKeyPtr wholeCopy(EVP_PKEY *key);
EVPPKeyPtr publicHalf(EVP_PKEY *key);

/// The public half as OpenSSL decodes it: for callbacks, not for attach.
EVPPKeyPtr decodedHalf(EVP_PKEY *key);

/// Stores the connection on the key under its ex-data index.
void attach(EVP_PKEY *key, SSL *ssl);

/// Signs a bare digest: for RSA with the hash of that length, MD5+SHA-1 for 36 bytes; for the others to a
/// DER signature, whatever the padding. Empty on failure.
Bytes signDigest(EVP_PKEY *key, const Bytes &digest, int padding = RSA_PKCS1_PADDING);

/// A DSA or ECDSA signature in DER whose numbers have so many bytes, of ones alone: the longest for as many.
Bytes derSignature(std::size_t rBytes, std::size_t sBytes);

/// A new object of what a callback answers: decoded(d2i_ECDSA_SIG, der).
template <class Signature>
Signature *decoded(Signature *(*decode)(Signature **, const unsigned char **, long), const Bytes &der) {
  const unsigned char *cursor = der.data();
  return decode(nullptr, &cursor, static_cast<long>(der.size()));
}

/// Whether @p signature is what signDigest could have made.
bool verifies(EVP_PKEY *key, const Bytes &digest, const Bytes &signature, int padding = RSA_PKCS1_PADDING);

} // namespace krTest
